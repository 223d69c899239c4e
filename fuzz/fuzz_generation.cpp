// A whole Generate run from fuzzed WAV images and settings, through the
// product's own path (model::runGeneration reading the images from disk and
// rendering on all cores), checked against the engine's steps driven
// directly in the same order on one thread.
// The run must either fail with one of its documented messages (or a file
// error for a source that is not on disk) or give the requested number of
// variations with drawable envelopes, byte for byte what the engine gives;
// on the way, every boundary list and pattern must stay in range.
//
// Input layout (integers little-endian):
//
//   offset  size  meaning
//   0       1     slice count: value % 133 - 2, so -2 ... 130
//   1       1     chop model: value % 9, in picker order (Grid ... Momentum);
//                 bit 4 matches the formats of a mashup's loops; (value >> 5)
//                 % 3 fits the variations: off, trim, stretch
//   2       1     bits 0-1 variation count + 1; bits 2-7 join fade in ms
//                 (0 ... 63, past the longest a user may ask for) when
//                 flag bit 7 is set
//   3       1     glitch amount: 0-15 pick an edge value (NaN, infinities,
//                 negatives, above 1, ...; see glitchAmount), otherwise
//                 (value - 16) / 200, so 0 ... 1.195
//   4       1     flags: bits 0-1 image count (0 -> 1, 1 -> 2, 2 and 3 -> 3);
//                 bit 2 Mashup Mode; bit 3 blank seed text, so the clock
//                 (which returns the seed) decides; bit 4 the first image is
//                 selected but not checked; bit 5 the last image is missing
//                 from disk; bit 6 no selected file; bit 7 join fades
//   5       8     seed, unsigned
//   13      2     length of image 1 when there are 2 or 3 images
//   15      2     length of image 2 when there are 3 images
//   17      ...   the images back to back; the last takes the rest. Each is
//                 cut to 65535 bytes to keep executions fast.
//
// Every image is checked for Mashup Mode (their file names sort in image
// order), except as bit 4 says.

#include "FuzzCheck.hpp"

#include "audio/AppError.hpp"
#include "audio/FormatConversion.hpp"
#include "audio/WavReader.hpp"
#include "chop/BarGridFit.hpp"
#include "chop/JoinFades.hpp"
#include "chop/Slicing.hpp"
#include "chop/TransientDetection.hpp"
#include "chop/VariationPlan.hpp"
#include "model/Generation.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

namespace {

using namespace marquetry;
using fuzz::require;

constexpr std::size_t headerSize = 17;
constexpr std::size_t maxImageSize = 65535;
constexpr std::int64_t envelopePoints = 1000;

struct Settings {
    std::int64_t sliceCount = 0;
    chop::ChopModel model = chop::ChopModel::grid;
    std::int64_t variationCount = 1;
    double glitchAmount = 0;
    std::int64_t joinFadeMs = 0;
    chop::FitMode fit = chop::FitMode::off;
    bool matchFormats = false;
    std::size_t imageCount = 1;
    bool mashup = false;
    bool blankSeedText = false;
    bool firstUnchecked = false;
    bool lastMissing = false;
    bool noSelection = false;
    std::uint64_t seed = 0;
};

double glitchAmount(std::uint8_t value) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    static constexpr double edges[16] = {
        std::numeric_limits<double>::quiet_NaN(), inf, -inf, -1.0, -0.25, -0.0, 0.0,
        std::numeric_limits<double>::denorm_min(), 0.125, 0.55, 1.0, 1.0000000000000002, 1.5, 2.0, 1e300,
        std::numeric_limits<double>::lowest(),
    };
    return value < 16 ? edges[value] : (value - 16) / 200.0;
}

std::uint64_t readLE(const std::uint8_t* p, int bytes) {
    std::uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i)
        value = (value << 8) | p[i];
    return value;
}

Settings readSettings(const std::uint8_t* header) {
    Settings s;
    s.sliceCount = static_cast<std::int64_t>(header[0] % 133) - 2;
    s.model = chop::allChopModels[header[1] % chop::allChopModels.size()];
    // The high bits of the model byte pick the options that reshape a run.
    s.fit = static_cast<chop::FitMode>((header[1] >> 5) % 3);
    s.matchFormats = (header[1] & 0x10) != 0;
    s.variationCount = header[2] % 4 + 1;
    s.glitchAmount = glitchAmount(header[3]);
    const std::uint8_t flags = header[4];
    s.imageCount = std::min<std::size_t>(flags & 3u, 2) + 1;
    s.mashup = (flags & 0x04) != 0;
    s.blankSeedText = (flags & 0x08) != 0;
    s.firstUnchecked = (flags & 0x10) != 0;
    s.lastMissing = (flags & 0x20) != 0;
    s.noSelection = (flags & 0x40) != 0;
    s.joinFadeMs = (flags & 0x80) != 0 ? header[2] >> 2 : 0;
    s.seed = readLE(header + 5, 8);
    return s;
}

std::vector<std::span<const std::uint8_t>> readImages(std::span<const std::uint8_t> input, std::size_t count) {
    std::span<const std::uint8_t> rest = input.subspan(headerSize);
    std::vector<std::span<const std::uint8_t>> images;
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t length = rest.size();
        if (i + 1 < count)
            length = std::min<std::size_t>(static_cast<std::size_t>(readLE(input.data() + 13 + 2 * i, 2)), length);
        images.push_back(rest.first(std::min(length, maxImageSize)));
        rest = rest.subspan(length);
    }
    return images;
}

// Memory-backed /dev/shm where there is one, unless TMPDIR asks for another
// place: the run opens every source twice, and opening and closing files on
// a disk file system cost as much as the run itself.
std::filesystem::path scratchBase() {
    std::error_code error;
    if (std::getenv("TMPDIR") == nullptr && std::filesystem::is_directory("/dev/shm", error))
        return "/dev/shm";
    return std::filesystem::temp_directory_path();
}

// The images of an execution as files src-1.wav ... in a folder of this
// process's own, so parallel fuzzing jobs never share files; removed at exit.
// A file that still holds the same bytes from the previous execution is not
// rewritten: mutations mostly touch one image.
class ScratchFiles {
public:
    ScratchFiles()
        : folder_(scratchBase() / ("marquetry-fuzz-" + std::to_string(::getpid()))) {
        std::filesystem::create_directories(folder_);
    }
    ~ScratchFiles() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    ScratchFiles(const ScratchFiles&) = delete;
    ScratchFiles& operator=(const ScratchFiles&) = delete;

    std::string path(std::size_t slot) const {
        return (folder_ / ("src-" + std::to_string(slot + 1) + ".wav")).string();
    }

    void write(std::size_t slot, std::span<const std::uint8_t> image) {
        std::optional<audio::Bytes>& held = held_.at(slot);
        if (held && std::equal(image.begin(), image.end(), held->begin(), held->end()))
            return;
        held.reset();
        std::FILE* file = std::fopen(path(slot).c_str(), "wb");
        require(file != nullptr, "cannot write the scratch file", path(slot));
        const bool written = std::fwrite(image.data(), 1, image.size(), file) == image.size();
        require(std::fclose(file) == 0 && written, "cannot write the scratch file", path(slot));
        held = audio::Bytes(image.begin(), image.end());
    }

    void remove(std::size_t slot) {
        held_.at(slot).reset();
        std::error_code ignored;
        std::filesystem::remove(path(slot), ignored);
    }

private:
    std::filesystem::path folder_;
    std::array<std::optional<audio::Bytes>, 3> held_;
};

bool isSafeFileName(const std::string& name) {
    constexpr std::string_view suffix = ".wav";
    if (name.size() <= suffix.size() || !name.ends_with(suffix))
        return false;
    return std::all_of(name.begin(), name.end() - suffix.size(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    });
}

audio::Bytes joined(const std::vector<chop::Slice>& slices) {
    audio::Bytes out;
    for (const chop::Slice& slice : slices)
        out.insert(out.end(), slice.begin(), slice.end());
    return out;
}

bool strictlyIncreasing(const chop::Boundaries& b) {
    return std::adjacent_find(b.begin(), b.end(), std::greater_equal<>()) == b.end();
}

// The slices of one decoded source, as createSlices cuts them, drawing from
// `rng` what it draws. The Transient, Dice and Swarm cuts are made here from
// boundary lists checked first (the product's createSlices is held to the
// same cut through the variation bytes compared in the end), so that the
// costly transient detection runs once per side.
std::vector<chop::Slice> checkedSlices(const audio::WavData& wav, const Settings& s, chop::SeededGenerator& rng) {
    const audio::FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    const std::int64_t n = s.sliceCount;

    chop::Boundaries b;
    if (s.model == chop::ChopModel::dice || s.model == chop::ChopModel::swarm) {
        const chop::SeededGenerator before = rng;
        b = chop::buildStochasticBoundaries(frames, n, rng, s.model);
        require(b.size() >= 2 && b.front() == 0, "stochastic boundaries start at 0");
        if (frames < 1 || n < 1) {
            require(b == chop::Boundaries{0, std::max<audio::FrameCount>(frames, 1)}, "degenerate stochastic cut");
            require(rng == before, "a degenerate stochastic cut draws nothing");
        } else {
            require(static_cast<std::int64_t>(b.size()) == n + 1, "one stochastic boundary per slice, plus one");
            require(b.back() == frames, "stochastic boundaries end at the frame count");
            require(std::is_sorted(b.begin(), b.end()), "stochastic boundaries ascend");
            require(frames < n || strictlyIncreasing(b), "stochastic boundaries strictly increase");
        }
    } else if (s.model == chop::ChopModel::transient) {
        b = chop::buildTransientBoundaries(wav, n);
        require(!b.empty() && b.front() == 0 && b.back() == frames, "transient boundaries run from 0 to the end");
        require(strictlyIncreasing(b), "transient boundaries strictly increase");
        require(static_cast<std::int64_t>(b.size()) <= std::max<std::int64_t>(n, 1) + 1, "too many transient slices");
    } else {
        std::vector<chop::Slice> slices;
        try {
            slices = chop::createSlices(wav, n, s.model, rng);
        } catch (const audio::AppError& error) {
            const std::string expected = frames < n ? "Input loop too short for " + std::to_string(n) + " slices."
                                                    : "Calculated zero-length slices.";
            require(error.what() == expected, "even split failure, expected:", expected);
            throw;
        }
        require(n >= 1 && frames >= n, "the even split succeeded where it must fail");
        require(static_cast<std::int64_t>(slices.size()) == n, "the even split gives exactly sliceCount slices");
        require(joined(slices) == wav.pcmData, "even slices tile the source");
        const auto wholeFrames = [&](const chop::Slice& x) { return !x.empty() && x.size() % wav.blockAlign == 0; };
        require(std::all_of(slices.begin(), slices.end(), wholeFrames), "every even slice holds whole frames");
        return slices;
    }

    std::vector<chop::Slice> slices = chop::splitSlicesByBoundaries(wav.pcmData, wav.blockAlign, b);
    require(slices.size() + 1 == std::max<std::size_t>(b.size(), 1), "one slice per pair of boundaries");
    std::erase_if(slices, [](const chop::Slice& x) { return x.empty(); });
    const auto wholeFrames = [&](const chop::Slice& x) { return x.size() % wav.blockAlign == 0; };
    require(std::all_of(slices.begin(), slices.end(), wholeFrames), "every slice holds whole frames");
    if (frames >= 1 && b.back() == frames && strictlyIncreasing(b))
        require(joined(slices) == wav.pcmData, "slices at increasing boundaries tile the source");
    return slices;
}

struct Source {
    std::string path;
    std::span<const std::uint8_t> image;
    bool onDisk = true;
};

struct Outcome {
    enum class Kind { success, appError, fileError } kind = Kind::success;
    std::string message;
    audio::WavData reference;
    std::vector<chop::VariationPlan> plans;
    std::vector<audio::Bytes> variations;
};

// The run driven through the engine's own steps in the order generation
// uses them, on one thread, each step's result checked on the way.
Outcome engineRun(const std::vector<Source>& sources, const Settings& s) {
    Outcome out;
    const auto failWith = [&](std::string message) {
        out.kind = Outcome::Kind::appError;
        out.message = std::move(message);
        return out;
    };
    if (sources.empty() || sources.front().path.empty())
        return failWith("No source files available.");

    const chop::PlanSettings settings{s.sliceCount, s.model, s.variationCount, s.glitchAmount, s.joinFadeMs, s.fit};
    chop::SeededGenerator rng(s.seed);
    std::vector<audio::WavData> decoded;
    std::vector<chop::PoolSlice> pool;
    for (const Source& source : sources) {
        if (!source.onDisk) {
            out.kind = Outcome::Kind::fileError;
            return out;
        }
        try {
            decoded.push_back(audio::parseWav(source.image));
            if (s.matchFormats && decoded.size() > 1)
                decoded.back() = audio::convertFormat(decoded.back(), decoded.front());
            const audio::WavData& wav = decoded.back();
            chop::SeededGenerator probe = rng;
            const std::vector<chop::Slice> slices = checkedSlices(wav, s, probe);
            const std::size_t first = pool.size();
            chop::appendToPool(pool, static_cast<std::int64_t>(decoded.size() - 1), wav, settings, rng);
            require(rng == probe, "the pool's cut draws what createSlices draws");
            require(pool.size() - first == slices.size(), "one pool slice per slice");
            for (std::size_t i = 0; i < slices.size(); ++i) {
                const chop::PoolSlice& slice = pool[first + i];
                const auto from = wav.pcmData.begin() + slice.start * wav.blockAlign;
                require(slice.start >= 0 && slice.frames > 0, "pool slices are non-empty");
                require(std::equal(slices[i].begin(), slices[i].end(), from, from + slice.frames * wav.blockAlign),
                        "a pool slice holds the frames createSlices copies");
            }
        } catch (const audio::AppError& error) {
            return failWith(error.what());
        }
    }
    out.reference = decoded.front();
    try {
        out.plans = chop::planVariations(pool, decoded, settings, rng);
    } catch (const audio::AppError& error) {
        return failWith(error.what());
    }

    const auto n = static_cast<std::int64_t>(pool.size());
    for (const chop::VariationPlan& plan : out.plans) {
        require(static_cast<std::int64_t>(plan.placements.size()) == n, "a variation places as many slices as the pool holds");
        std::int64_t next = 0;
        for (const chop::Placement& placement : plan.placements) {
            require(placement.slice >= 0 && placement.slice < n, "placements name a pool slice");
            require(placement.byteOffset == next && placement.byteCount >= 0, "placements tile the variation");
            require(s.model == chop::ChopModel::glitch || placement.treatment == chop::GlitchTreatment{},
                    "only the Glitch model treats slices");
            next += placement.byteCount;
        }
        require(next == plan.byteCount, "placements add up to the variation");
        out.variations.push_back(chop::renderVariation(plan, pool, decoded));
        audio::Bytes& pcm = out.variations.back();
        const audio::WavData& reference = decoded.front();
        const audio::FrameCount fade = chop::joinFadeFrames(s.joinFadeMs, reference.sampleRate);
        chop::applyJoinFades(pcm, plan, reference, fade);
        require(static_cast<std::int64_t>(pcm.size()) == plan.byteCount,
                "a rendered variation has its planned length, faded or not");
        try {
            chop::fitToFrames(pcm, reference, audio::frameCount(reference.pcmData.size(), reference.blockAlign), s.fit,
                              std::max(fade, chop::joinFadeFrames(chop::minFitFadeMs, reference.sampleRate)));
        } catch (const audio::AppError& error) {
            return failWith(error.what());
        }
        require(s.fit == chop::FitMode::off || pcm.size() == reference.pcmData.size(),
                "a fitted variation is as long as the reference");
    }
    for (std::size_t k = 0; k < out.plans.size(); ++k)
        chop::fitPlacements(out.plans[k], static_cast<std::int64_t>(out.variations[k].size()), s.fit,
                            decoded.front().blockAlign);
    return out;
}

bool isDocumentedRunMessage(const std::string& message, std::int64_t sliceCount) {
    return fuzz::isReaderMessage(message)
           || message == "Input loop too short for " + std::to_string(sliceCount) + " slices."
           || message == "Calculated zero-length slices." || message == "No source files available."
           || message == "Could not create slices from selected source audio." || message.starts_with("Cannot convert ")
           || message.starts_with("Cannot stretch ");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < headerSize)
        return 0;
    const std::span<const std::uint8_t> input(data, size);
    const Settings s = readSettings(data);
    const std::vector<std::span<const std::uint8_t>> images = readImages(input, s.imageCount);

    // A static object: its destructor, which removes the folder, runs at exit.
    static ScratchFiles scratch;
    std::vector<Source> files;
    for (std::size_t i = 0; i < images.size(); ++i) {
        Source file{scratch.path(i), images[i]};
        file.onDisk = !(s.lastMissing && i + 1 == images.size());
        if (file.onDisk)
            scratch.write(i, file.image);
        else
            scratch.remove(i);
        files.push_back(file);
    }

    model::RunSettings request;
    request.seedText = s.blankSeedText ? "" : std::to_string(s.seed);
    request.mashupMode = s.mashup;
    request.selectedPath = s.noSelection ? "" : files.front().path;
    const bool skipFirst = s.firstUnchecked && files.size() >= 2;
    for (std::size_t i = skipFirst ? 1 : 0; i < files.size(); ++i)
        request.checkedPaths.insert(files[i].path);
    request.plan = {s.sliceCount, s.model, s.variationCount, s.glitchAmount, s.joinFadeMs, s.fit};
    request.matchFormats = s.matchFormats;

    // The source list: the checked files in name order (which is image order)
    // in Mashup Mode, otherwise the selected file alone.
    std::vector<Source> sources;
    if (s.mashup && !request.checkedPaths.empty())
        sources.assign(files.begin() + (skipFirst ? 1 : 0), files.end());
    else
        sources.push_back(s.noSelection ? Source{} : files.front());
    const Outcome expected = engineRun(sources, s);

    const auto clock = [&] { return static_cast<std::int64_t>(s.seed); };
    const auto uuid = [] { return playback::Uuid{}; };
    model::GenerationResult result;
    try {
        result = model::runGeneration(request, clock, uuid);
    } catch (const audio::AppError& error) {
        require(isDocumentedRunMessage(error.what(), s.sliceCount), "undocumented failure:", error.what());
        require(expected.kind == Outcome::Kind::appError && error.what() == expected.message,
                "the run failed otherwise than the engine, which said:", expected.message);
        return 0;
    } catch (const std::system_error& error) {
        require(expected.kind == Outcome::Kind::fileError, "file error for a file on disk:", error.what());
        return 0;
    }
    require(expected.kind == Outcome::Kind::success, "the run succeeded where the engine failed with:",
            expected.message);
    require(result.reference == expected.reference, "the reference is the first source as decoded");
    require(result.run.sources.size() == sources.size(), "source count");
    require(static_cast<std::int64_t>(result.loops.size()) == s.variationCount, "one loop per requested variation");
    for (std::size_t k = 0; k < result.loops.size(); ++k) {
        const model::GeneratedLoop& loop = result.loops[k];
        require(loop.pcmData == expected.variations[k], "variation bytes differ from the engine's");
        require(loop.placements == expected.plans[k].placements, "placements differ from the engine's");
        require(fuzz::isDrawable(loop.waveform), "variation envelope values in [0, 1]");
        // About 1000 points for long variations, up to twice that just below a
        // bucket boundary; none without a whole reference frame.
        const bool hasFrames =
            loop.pcmData.size() >= result.reference.blockAlign && result.reference.bitsPerSample >= 8;
        const auto points = static_cast<std::int64_t>(loop.waveform.size());
        require(loop.waveform.empty() != hasFrames && points < 2 * envelopePoints, "variation envelope length");
        require(isSafeFileName(loop.name), "variation name is a safe file name:", loop.name);
        require(loop.isSelected, "new variations start selected");
    }
    return 0;
}

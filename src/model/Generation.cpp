#include "model/Generation.hpp"

#include "audio/AppError.hpp"
#include "audio/FormatConversion.hpp"
#include "chop/BarGridFit.hpp"
#include "chop/TempoEstimate.hpp"
#include "audio/WaveformEnvelope.hpp"
#include "audio/WavReader.hpp"
#include "model/ErrorText.hpp"
#include "model/FileSystem.hpp"
#include "model/Sha256.hpp"
#include "model/SystemServices.hpp"
#include "model/UnicodeOrder.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace marquetry::model {
namespace {

constexpr std::int64_t envelopePoints = 1000;

bool isNameCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

std::vector<std::string> sourceList(const RunSettings& request) {
    if (request.mashupMode && !request.checkedPaths.empty()) {
        std::vector<std::string> paths(request.checkedPaths.begin(), request.checkedPaths.end());
        sortByPath(paths);
        return paths;
    }
    return {request.selectedPath};
}

// The tempo a mashup is matched to or from: the user's correction, else the
// estimate. A loop whose tempo cannot be told stops the run with a sentence
// that says how to go on, rather than pooling it at a guess.
double tempoOf(const std::string& path, const audio::WavData& wav, const RunSettings& request) {
    if (const auto corrected = request.tempoOverrides.find(path); corrected != request.tempoOverrides.end())
        return corrected->second;
    if (const auto estimate = chop::estimateTempo(wav))
        return estimate->bpm;
    throw audio::AppError::io("Cannot match the tempo of " + fileName(path)
                              + ": its tempo cannot be told. Type its tempo beside the waveform, or turn off Match "
                                "tempo.");
}

// A mashup loop as the reference would have it, before it is sliced: in the
// reference's format, then at the reference's tempo.
void matchToReference(audio::WavData& wav, const std::string& path, const audio::WavData& reference,
                      double referenceBpm, const RunSettings& request, const chop::RunProgress* progress) {
    if (request.matchFormats)
        wav = audio::convertFormat(wav, reference);
    if (!request.matchTempo)
        return;
    const double bpm = tempoOf(path, wav, request);
    const audio::FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    const auto target = static_cast<audio::FrameCount>(std::llround(static_cast<double>(frames) * bpm / referenceBpm));
    if (target != frames)
        wav.pcmData = chop::stretchToFrames(wav, wav.pcmData, target, progress);
}

void requireMemory(double bytes) {
    const auto available = static_cast<double>(availableMemoryBytes());
    if (bytes > available)
        throw audio::AppError::io("This run needs " + readableSize(bytes) + " of memory, but only "
                                  + readableSize(available) + " is available. Lower Variations or Slices, or use a"
                                  + " shorter loop.");
}

} // namespace

bool RunRecord::seedFromClock() const {
    return !chop::seedFromText(settings.seedText).has_value();
}

ReadSource readSource(const std::string& path) {
    audio::Bytes image = audio::readWholeFile(path);
    std::string sha256 = sha256Hex(image);
    return {std::move(sha256), audio::parseWavInPlace(std::move(image))};
}

std::string runSummary(const RunRecord& run, std::size_t variations) {
    return "Generated " + std::to_string(variations) + " preview loop(s) "
           + (run.settings.mashupMode ? "from " + std::to_string(run.sources.size()) + " source files"
                                      : std::string("from 1 source file"))
           + " using " + std::string(chop::label(run.settings.plan.chopModel)) + " chop model.";
}

GenerationResult runGeneration(const RunSettings& request, const std::function<std::int64_t()>& unixSeconds,
                               const std::function<playback::Uuid()>& randomUuid, unsigned threads,
                               std::map<std::string, ReadSource> alreadyRead, std::string* failedSource,
                               chop::RunProgress* progress) {
    GenerationResult result;
    result.run.settings = request;
    result.run.seed = chop::resolveSeed(request.seedText, unixSeconds());
    chop::SeededGenerator rng(result.run.seed);

    const std::vector<std::string> paths = sourceList(request);
    if (paths.empty() || paths.front().empty())
        throw audio::AppError::io("No source files available.");

    const chop::PlanSettings& settings = request.plan;
    // Each source is cut as soon as it is decoded, so a failure reports the
    // first source that fails, whether in decoding or in slicing. The first
    // source is the reference: its format is the variations' format.
    std::vector<audio::WavData> sources;
    sources.reserve(paths.size());
    double referenceBpm = 0;
    for (const std::string& path : paths) try {
        chop::throwIfCancelled(progress);
        const auto known = alreadyRead.find(path);
        ReadSource read = known != alreadyRead.end() ? std::move(known->second) : readSource(path);
        if (known != alreadyRead.end())
            alreadyRead.erase(known);
        audio::WavData wav = std::move(read.wav);
        result.run.sources.push_back({path, std::move(read.sha256),
                                      audio::WavData{wav.audioFormat, wav.channels, wav.sampleRate, wav.byteRate,
                                                     wav.blockAlign, wav.bitsPerSample, {}},
                                      audio::frameCount(wav.pcmData.size(), wav.blockAlign)});
        if (sources.empty() && request.matchTempo && paths.size() > 1)
            referenceBpm = tempoOf(path, wav, request);
        if (!sources.empty())
            matchToReference(wav, path, sources.front(), referenceBpm, request, progress);
        sources.push_back(std::move(wav));
        chop::appendToPool(result.run.pool, static_cast<std::int64_t>(sources.size() - 1), sources.back(), settings,
                           rng);
    } catch (const chop::RunCancelled&) {
        throw; // no fault of the loop being read
    } catch (...) {
        if (failedSource != nullptr)
            *failedSource = path;
        throw;
    }
    // Refused before anything large is allocated: first the plan, then the
    // output it describes, both known exactly before either is made.
    const double planBytes = static_cast<double>(std::max<std::int64_t>(settings.variationCount, 0))
                             * static_cast<double>(result.run.pool.size()) * sizeof(chop::Placement);
    requireMemory(planBytes);
    std::vector<chop::VariationPlan> plans = chop::planVariations(result.run.pool, sources, settings, rng);
    const auto fittedBytes = static_cast<double>(sources.front().pcmData.size());
    double outputBytes = 0;
    for (const chop::VariationPlan& plan : plans)
        outputBytes += std::max(static_cast<double>(plan.byteCount), settings.fit == chop::FitMode::off ? 0.0 : fittedBytes)
                       + envelopePoints * sizeof(double);
    requireMemory(outputBytes);

    std::vector<chop::RenderedVariation> rendered =
        chop::renderVariations(plans, result.run.pool, sources, envelopePoints, settings, threads, progress);
    const std::string selectedName = fileName(request.selectedPath);
    result.loops.reserve(rendered.size());
    for (std::size_t i = 0; i < rendered.size(); ++i) {
        GeneratedLoop loop;
        loop.name = variationName(selectedName, settings.chopModel, static_cast<std::int64_t>(i + 1));
        loop.pcmData = std::move(rendered[i].pcm);
        loop.waveform = std::move(rendered[i].waveform);
        loop.placements = std::move(rendered[i].placements);
        loop.id = randomUuid();
        result.loops.push_back(std::move(loop));
    }
    result.reference = std::move(sources.front());
    return result;
}

std::optional<std::string> formatMismatchWarning(const RunRecord& run) {
    if (run.settings.matchFormats || run.sources.size() < 2)
        return std::nullopt;
    const audio::WavData& reference = run.sources.front().format;
    for (const SourceRecord& source : run.sources) {
        if (source.format == reference)
            continue;
        return fileName(source.path) + " is " + audio::describeFormat(source.format) + " but "
               + fileName(run.sources.front().path) + " is " + audio::describeFormat(reference)
               + ": its slices are pooled as raw bytes and will sound wrong.";
    }
    return std::nullopt;
}

std::string variationStem(const std::string& selectedFileName, chop::ChopModel model) {
    const std::size_t dot = selectedFileName.rfind('.');
    const std::string stem = dot == std::string::npos ? selectedFileName : selectedFileName.substr(0, dot);
    std::string name;
    for (const char c : stem)
        if (isNameCharacter(c))
            name += c;
    if (name.empty())
        name = "source";
    name += "_mqtry_";
    for (const char c : chop::label(model)) {
        const char lower = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        if ((lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9'))
            name += lower;
    }
    return name;
}

std::string variationName(const std::string& selectedFileName, chop::ChopModel model, std::int64_t number) {
    const std::string name = variationStem(selectedFileName, model);
    char digits[24];
    std::snprintf(digits, sizeof digits, "%02lld", static_cast<long long>(number));
    return name + digits + ".wav";
}

} // namespace marquetry::model

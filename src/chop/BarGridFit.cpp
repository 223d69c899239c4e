#include "chop/BarGridFit.hpp"

#include "audio/AppError.hpp"
#include "audio/FormatConversion.hpp"
#include "chop/JoinFades.hpp"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>

namespace marquetry::chop {
namespace {

constexpr std::size_t blockFrames = 4096;

using Channels = std::vector<std::vector<float>>;

Channels deinterleave(const std::vector<float>& samples, std::size_t channels) {
    const std::size_t frames = samples.size() / channels;
    Channels planar(channels, std::vector<float>(frames));
    for (std::size_t f = 0; f < frames; ++f)
        for (std::size_t c = 0; c < channels; ++c)
            planar[c][f] = samples[f * channels + c];
    return planar;
}

// Feeds `planar` through `pass` (study or process) in blocks; `final` marks
// the last block, as the offline stretcher expects. A block is the longest
// stretch of work a cancel waits for.
template <typename Pass>
void inBlocks(const Channels& planar, const RunProgress* progress, Pass&& pass) {
    const std::size_t frames = planar.front().size();
    std::vector<const float*> pointers(planar.size());
    for (std::size_t at = 0; at < frames; at += blockFrames) {
        throwIfCancelled(progress);
        const std::size_t count = std::min(blockFrames, frames - at);
        for (std::size_t c = 0; c < planar.size(); ++c)
            pointers[c] = planar[c].data() + at;
        pass(pointers.data(), count, at + count == frames);
    }
}

} // namespace

std::string_view fitModeName(FitMode mode) {
    switch (mode) {
    case FitMode::off: return "off";
    case FitMode::trim: return "trim";
    case FitMode::stretch: return "stretch";
    }
    return "off";
}

std::optional<FitMode> parseFitMode(std::string_view name) {
    for (const FitMode mode : {FitMode::off, FitMode::trim, FitMode::stretch})
        if (fitModeName(mode) == name)
            return mode;
    return std::nullopt;
}

Bytes stretchToFrames(const audio::WavData& format, std::span<const std::uint8_t> pcm, audio::FrameCount targetFrames,
                      const RunProgress* progress) {
    const audio::FrameCount frames = audio::frameCount(pcm.size(), format.blockAlign);
    const double ratio = frames == 0 ? 0.0 : static_cast<double>(targetFrames) / static_cast<double>(frames);
    if (!audio::isConvertible(format))
        throw audio::AppError::io("Cannot stretch " + audio::describeFormat(format) + " audio.");
    if (frames < minStretchFrames || targetFrames < minStretchFrames || ratio > maxStretchRatio
        || ratio < 1.0 / maxStretchRatio)
        throw audio::AppError::io("Cannot stretch " + std::to_string(frames) + " frames of audio to "
                                  + std::to_string(targetFrames) + " frames: stretching needs at least "
                                  + std::to_string(minStretchFrames)
                                  + " frames on each side and lengths at most eight times apart.");
    const std::size_t channels = format.channels;
    const Channels input = deinterleave(audio::toFloat(format, pcm), channels);

    using RubberBand::RubberBandStretcher;
    RubberBandStretcher stretcher(format.sampleRate, channels,
                                  RubberBandStretcher::OptionProcessOffline
                                      | RubberBandStretcher::OptionThreadingNever,
                                  ratio, 1.0);
    stretcher.setExpectedInputDuration(static_cast<std::size_t>(frames));
    stretcher.setMaxProcessSize(blockFrames);
    inBlocks(input, progress, [&](const float* const* block, std::size_t count, bool final) {
        stretcher.study(block, count, final);
    });

    Channels output(channels);
    std::vector<float> chunk;
    std::vector<float*> pointers(channels);
    const auto collect = [&] {
        for (int available = stretcher.available(); available > 0; available = stretcher.available()) {
            const auto count = static_cast<std::size_t>(available);
            Channels got(channels, std::vector<float>(count));
            for (std::size_t c = 0; c < channels; ++c)
                pointers[c] = got[c].data();
            const std::size_t retrieved = stretcher.retrieve(pointers.data(), count);
            for (std::size_t c = 0; c < channels; ++c)
                output[c].insert(output[c].end(), got[c].begin(), got[c].begin() + static_cast<std::ptrdiff_t>(retrieved));
        }
    };
    inBlocks(input, progress, [&](const float* const* block, std::size_t count, bool final) {
        stretcher.process(block, count, final);
        collect();
    });
    collect();

    // The stretcher's length can differ from the request by a few frames:
    // the bar grid needs it exact, so the tail is cut or padded with silence.
    const auto target = static_cast<std::size_t>(targetFrames);
    std::vector<float> interleaved(target * channels, 0.0f);
    for (std::size_t c = 0; c < channels; ++c) {
        const std::size_t kept = std::min(target, output[c].size());
        for (std::size_t f = 0; f < kept; ++f)
            interleaved[f * channels + c] = output[c][f];
    }
    return audio::fromFloat(format, interleaved);
}

void fitToFrames(Bytes& pcm, const audio::WavData& format, audio::FrameCount targetFrames, FitMode mode,
                 audio::FrameCount endFadeFrames, const RunProgress* progress) {
    const auto targetBytes = static_cast<std::size_t>(targetFrames) * format.blockAlign;
    if (mode == FitMode::off || pcm.size() == targetBytes)
        return;
    if (mode == FitMode::stretch) {
        pcm = stretchToFrames(format, pcm, targetFrames, progress);
        return;
    }
    const audio::FrameIndex keptFrames =
        std::min(audio::frameCount(pcm.size(), format.blockAlign), targetFrames);
    const bool unsigned8 = format.audioFormat == audio::formatPcm && format.bitsPerSample == 8;
    pcm.resize(targetBytes, unsigned8 ? std::uint8_t{128} : std::uint8_t{0});
    applyEndFade(pcm, format, keptFrames, endFadeFrames);
}

void fitPlacements(VariationPlan& plan, std::int64_t fittedBytes, FitMode mode, std::uint16_t blockAlign) {
    const std::int64_t originalBytes = plan.byteCount;
    plan.byteCount = fittedBytes;
    if (mode == FitMode::off || originalBytes == fittedBytes || blockAlign == 0)
        return;
    std::vector<Placement>& placements = plan.placements;
    if (mode == FitMode::trim) {
        std::erase_if(placements, [&](const Placement& p) { return p.byteOffset >= fittedBytes; });
        if (!placements.empty())
            placements.back().byteCount =
                std::min(placements.back().byteCount, fittedBytes - placements.back().byteOffset);
        return;
    }
    const double ratio = static_cast<double>(fittedBytes) / static_cast<double>(originalBytes);
    for (Placement& p : placements)
        p.byteOffset = std::llround(static_cast<double>(p.byteOffset / blockAlign) * ratio) * blockAlign;
    for (std::size_t i = 0; i < placements.size(); ++i) {
        const std::int64_t end = i + 1 < placements.size() ? placements[i + 1].byteOffset : fittedBytes;
        placements[i].byteCount = std::max<std::int64_t>(end - placements[i].byteOffset, 0);
    }
}

} // namespace marquetry::chop

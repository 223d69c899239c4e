#include "plugin/PreparedRun.hpp"

#include "audio/AppError.hpp"
#include "audio/FormatConversion.hpp"
#include "chop/SeededGenerator.hpp"
#include "chop/TempoEstimate.hpp"
#include "model/DawExport.hpp"
#include "model/ErrorText.hpp"

#include <charconv>
#include <cmath>
#include <exception>
#include <filesystem>
#include <optional>

namespace marquetry::plugin {
namespace {

std::unique_ptr<PreparedRun> silent(Status status, std::string message) {
    auto run = std::make_unique<PreparedRun>();
    run->status = status;
    run->message = std::move(message);
    return run;
}

std::optional<double> typedTempo(const std::string& text) {
    double bpm = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bpm);
    if (error != std::errc() || end != text.data() + text.size() || !(bpm >= chop::minTempoBpm)
        || !(bpm <= chop::maxTempoBpm))
        return std::nullopt;
    return bpm;
}

// A variation as the audio thread reads it (see PlayableVariation), its
// placements moved with it; the run's bytes are taken, not copied.
PlayableVariation playable(const audio::WavData& reference, model::GeneratedLoop& loop, double sampleRate) {
    const auto rate = static_cast<std::uint32_t>(std::lround(sampleRate));
    PlayableVariation variation;
    if (reference.sampleRate == rate && reference.audioFormat == audio::formatPcm && reference.bitsPerSample == 16
        && (reference.channels == 1 || reference.channels == 2) && reference.blockAlign == 2 * reference.channels) {
        variation.channels = reference.channels;
        variation.pcm = std::move(loop.pcmData);
    } else {
        // libsamplerate, once, here, never while playing.
        const audio::WavData stereo{audio::formatFloat, 2, rate, rate * 8, 8, 32, {}};
        audio::WavData source = reference;
        source.pcmData = std::move(loop.pcmData);
        variation.pcm = audio::convertFormat(source, stereo).pcmData;
        variation.float32 = true;
    }
    variation.frames = static_cast<audio::FrameCount>(variation.pcm.size() / (variation.float32 ? 8u : 2u * variation.channels));
    const double scale = static_cast<double>(rate) / reference.sampleRate;
    const std::int64_t blockAlign = reference.blockAlign;
    const auto at = [&](std::int64_t byte) {
        const audio::FrameIndex frame = byte / blockAlign;
        return rate == reference.sampleRate ? frame
                                            : std::min<audio::FrameIndex>(
                                                  variation.frames, std::llround(static_cast<double>(frame) * scale));
    };
    for (const chop::Placement& placement : loop.placements) {
        const audio::FrameIndex start = at(placement.byteOffset);
        const audio::FrameIndex end = at(placement.byteOffset + placement.byteCount);
        variation.placements.push_back({0, start, end - start});
    }
    return variation;
}

} // namespace

model::RunSettings runSettings(const PluginSettings& settings) {
    model::RunSettings run;
    run.seedText = settings.seedText;
    run.selectedPath = settings.loopPath;
    run.plan = {settings.slices, settings.model, settings.variations, settings.glitch, settings.joinFadeMs};
    return run;
}

std::unique_ptr<const PreparedRun> prepareRun(const PluginSettings& settings, double sampleRate, unsigned threads) {
    if (settings.loopPath.empty())
        return silent(Status::noLoop, "No loop is loaded.");
    // Hosts hand an empty path back as the state file's own folder.
    if (std::error_code error; !std::filesystem::is_regular_file(settings.loopPath, error))
        return silent(Status::noLoop, "The loop " + settings.loopPath + " is not a file.");
    if (!chop::seedFromText(settings.seedText))
        return silent(Status::badSeed, "The seed \"" + settings.seedText
                                           + "\" is not a whole number: type one, so the project always plays the "
                                             "same variations.");
    if (!(sampleRate >= 1))
        return silent(Status::failed, "The host gave no sample rate.");

    auto run = std::make_unique<PreparedRun>();
    try {
        // The seed text parses, so the clock and the random ids decide nothing heard.
        model::GenerationResult result =
            model::runGeneration(runSettings(settings), [] { return std::int64_t{0}; },
                                 [] { return playback::Uuid{}; }, threads);
        run->loopSha256 = result.run.sources.front().sha256;
        run->sampleRate = sampleRate;
        run->variations.reserve(result.loops.size());
        for (model::GeneratedLoop& loop : result.loops)
            run->variations.push_back(playable(result.reference, loop, sampleRate));

        std::vector<const model::GeneratedLoop*> loops;
        for (const model::GeneratedLoop& loop : result.loops)
            loops.push_back(&loop);
        for (const model::KitSlice& slice : model::kitSlices(loops)) {
            if (static_cast<std::int64_t>(run->kit.size()) == model::maxKitSlices)
                break;
            const auto variation = static_cast<std::size_t>(slice.loop - result.loops.data());
            const auto index = static_cast<std::size_t>(slice.placement - slice.loop->placements.data());
            SampleSpan span = run->variations[variation].placements[index];
            span.variation = variation;
            run->kit.push_back(span);
        }

        const audio::FrameCount frames = audio::frameCount(result.reference.pcmData.size(), result.reference.blockAlign);
        if (!settings.tempoText.empty()) {
            if (const auto bpm = typedTempo(settings.tempoText))
                run->loopBpm = *bpm;
            else
                run->message = "The tempo \"" + settings.tempoText + "\" is not a number of BPM from "
                               + std::to_string(static_cast<int>(chop::minTempoBpm)) + " to "
                               + std::to_string(static_cast<int>(chop::maxTempoBpm)) + ": only notes play.";
        } else if (const auto estimate = chop::estimateTempo(result.reference); estimate && frames > 0) {
            run->loopBpm = estimate->bpm;
        } else {
            run->message = "The loop's tempo cannot be told: set its tempo, or play its slices by notes.";
        }
        run->status = run->loopBpm > 0 ? Status::ready : Status::unknownTempo;
        if (!settings.loopSha256.empty() && settings.loopSha256 != run->loopSha256) {
            run->status = Status::loopChanged;
            run->message = "The loop " + settings.loopPath
                           + " has changed since the project was saved: the variations may sound different.";
        }
    } catch (const audio::AppError& error) {
        return silent(error.kind() == audio::AppError::Kind::invalidWav ? Status::unreadableLoop : Status::failed,
                      model::describe(error));
    } catch (const std::exception& error) {
        return silent(Status::unreadableLoop, model::describe(error));
    }
    return run;
}

} // namespace marquetry::plugin

#pragma once

#include "audio/FormatConversion.hpp"
#include "audio/WavData.hpp"
#include "chop/ChopModel.hpp"
#include "model/Generation.hpp"

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace marquetry::plugin {

/// What the plugin is doing, as its `status` output shows it. The order is
/// the order of the host's list; a new case goes at the end.
enum class Status { ready, loading, noLoop, unreadableLoop, badSeed, unknownTempo, loopChanged, failed };

/// The plugin's state and run parameters: everything a run is made from.
/// Copied by the worker when it starts a run.
struct PluginSettings {
    std::string loopPath;
    std::string loopSha256; ///< of the loop the project was saved with; empty: take the file as it is
    std::string seedText;
    std::string tempoText; ///< the user's tempo of the loop in BPM; empty: the estimate
    chop::ChopModel model = chop::ChopModel::grid;
    std::int64_t slices = 16;
    std::int64_t variations = 10;
    double glitch = 0.55;
    std::int64_t joinFadeMs = 0;

    bool operator==(const PluginSettings&) const = default;
};

/// The command line's generate run for `settings`: one source, Mashup Mode
/// off, the seed as typed.
model::RunSettings runSettings(const PluginSettings& settings);

/// A slice of a run's material: `frames` frames from `start` of one
/// variation.
struct SampleSpan {
    std::size_t variation = 0;
    audio::FrameIndex start = 0;
    audio::FrameCount frames = 0;
};

/// One variation as the audio thread plays it. 16-bit PCM (mono or stereo)
/// at the host's rate is kept as the run made it and read as k / 32768 while
/// it plays, so a run costs no more memory than the engine's output; any
/// other layout or rate is converted once, when the run is made, to float
/// stereo at the host's rate.
struct PlayableVariation {
    audio::Bytes pcm;
    bool float32 = false;          ///< float stereo; else 16-bit PCM
    std::uint16_t channels = 2;    ///< 1 or 2
    std::vector<SampleSpan> placements; ///< one per placement, in playing order; they tile the frames
    audio::FrameCount frames = 0;

    /// Channel `channel` (0 left, 1 right; mono gives both the same) at
    /// `frame`, which the caller keeps below `frames`. Real-time safe.
    float sample(audio::FrameIndex frame, int channel) const noexcept {
        const std::size_t index = static_cast<std::size_t>(frame) * channels + (channels == 2 ? channel : 0);
        if (!float32) {
            const std::uint8_t* p = pcm.data() + 2 * index;
            return audio::pcm16ToFloat(static_cast<std::int16_t>(p[0] | (p[1] << 8)));
        }
        const std::uint8_t* p = pcm.data() + 4 * index;
        const std::uint32_t bits = static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8)
                                   | (static_cast<std::uint32_t>(p[2]) << 16)
                                   | (static_cast<std::uint32_t>(p[3]) << 24);
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
};

/// A finished run, immutable once published to the audio thread. With a
/// status other than ready or loopChanged it holds nothing to play.
struct PreparedRun {
    Status status = Status::loading;
    std::string message;    ///< why it cannot play, or the notice about the loop; empty when all is well
    std::string loopSha256; ///< of the loop file as read this time
    double loopBpm = 0;     ///< the tempo the variations are at; 0: unknown, so only notes play
    double sampleRate = 0;  ///< the rate the samples were prepared at
    std::vector<PlayableVariation> variations;
    std::vector<SampleSpan> kit; ///< slice k of the exported slice kit, played by note 36 + k
};

/// Runs `settings` through the engine and turns the result into what the
/// audio thread plays at `sampleRate`: every variation (converted when it is
/// not 16-bit PCM at that rate, resampled when the loop's rate differs) with
/// its placements, and the kit's slices. Bad input gives a run with its status and a sentence,
/// never an exception. Slow: call it on a worker thread, never the audio
/// thread.
std::unique_ptr<const PreparedRun> prepareRun(const PluginSettings& settings, double sampleRate, unsigned threads = 0);

} // namespace marquetry::plugin

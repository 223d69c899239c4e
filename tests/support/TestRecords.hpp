#pragma once

#include "audio/WavData.hpp"

#include <cstdint>
#include <vector>

namespace marquetry::chop::test {

/// A 16-bit integer PCM record at 44.1 kHz holding `samples`, interleaved.
inline audio::WavData pcm16(std::uint16_t channels, const std::vector<std::int16_t>& samples) {
    audio::WavData wav;
    wav.audioFormat = audio::formatPcm;
    wav.channels = channels;
    wav.sampleRate = 44100;
    wav.blockAlign = static_cast<std::uint16_t>(2 * channels);
    wav.byteRate = wav.sampleRate * wav.blockAlign;
    wav.bitsPerSample = 16;
    for (const std::int16_t s : samples) {
        wav.pcmData.push_back(static_cast<std::uint8_t>(static_cast<std::uint16_t>(s) & 0xFF));
        wav.pcmData.push_back(static_cast<std::uint8_t>(static_cast<std::uint16_t>(s) >> 8));
    }
    return wav;
}

/// A mono 16-bit record of `frames` frames whose frame i holds the value i
/// (wrapping), so every slice's origin can be read back from its bytes.
inline audio::WavData numberedFrames(std::int64_t frames) {
    std::vector<std::int16_t> samples;
    for (std::int64_t i = 0; i < frames; ++i)
        samples.push_back(static_cast<std::int16_t>(i));
    return pcm16(1, samples);
}

} // namespace marquetry::chop::test

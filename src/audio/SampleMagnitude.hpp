#pragma once

#include "audio/WavData.hpp"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace marquetry::audio {

/// The sample layouts whose loudness the engine reads. Everything else (8-bit
/// and 64-bit PCM, 64-bit float, odd widths) reads as silence.
enum class SampleKind { silent, pcm16, pcm24, pcm32, float32 };

/// How the samples of `wav` are read, from its format code and bit width.
constexpr SampleKind sampleKind(const WavData& wav) {
    if (wav.audioFormat == formatPcm) {
        switch (wav.bitsPerSample) {
        case 16: return SampleKind::pcm16;
        case 24: return SampleKind::pcm24;
        case 32: return SampleKind::pcm32;
        default: return SampleKind::silent;
        }
    }
    if (wav.audioFormat == formatFloat && wav.bitsPerSample == 32)
        return SampleKind::float32;
    return SampleKind::silent;
}

/// Loudness of one little-endian sample starting at `p`, in single precision:
/// integers are scaled by 32767, 8388607 or 2^31 (so the most negative 16- and
/// 24-bit values read slightly above 1), floats are limited to 1 and NaN reads
/// as 1. The caller guarantees that the sample's bytes lie inside its buffer.
inline float sampleMagnitude(SampleKind kind, const std::uint8_t* p) {
    switch (kind) {
    case SampleKind::pcm16: {
        const auto value = static_cast<std::int16_t>(p[0] | (p[1] << 8));
        return std::fabs(static_cast<float>(value)) / 32767.0f;
    }
    case SampleKind::pcm24: {
        std::int32_t value = p[0] | (p[1] << 8) | (p[2] << 16);
        if ((p[2] & 0x80) != 0)
            value -= 1 << 24;
        return std::fabs(static_cast<float>(value)) / 8388607.0f;
    }
    case SampleKind::pcm32: {
        const auto bits = static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8)
                          | (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
        return std::fabs(static_cast<float>(static_cast<std::int32_t>(bits))) * 0x1p-31f;
    }
    case SampleKind::float32: {
        float value;
        const std::uint32_t bits = static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8)
                                   | (static_cast<std::uint32_t>(p[2]) << 16)
                                   | (static_cast<std::uint32_t>(p[3]) << 24);
        std::memcpy(&value, &bits, sizeof value);
        return std::isnan(value) ? 1.0f : std::fmin(std::fabs(value), 1.0f);
    }
    case SampleKind::silent: break;
    }
    return 0.0f;
}

/// The loudest channel of frame `frame` of `pcm`, in the layout of `format`.
/// A sample whose bytes do not lie wholly inside `pcm` reads as 0, which
/// guards headers whose channels x sample width exceed blockAlign.
inline float frameMagnitude(const WavData& format, SampleKind kind, const std::uint8_t* pcm, std::size_t pcmSize,
                            FrameIndex frame) {
    const std::size_t bytesPerSample = format.bitsPerSample / 8u;
    if (kind == SampleKind::silent || bytesPerSample == 0)
        return 0.0f;
    const std::size_t base = static_cast<std::size_t>(frame) * format.blockAlign;
    float peak = 0.0f;
    for (std::size_t c = 0; c < format.channels; ++c) {
        const std::size_t offset = base + c * bytesPerSample;
        if (offset + bytesPerSample > pcmSize)
            break;
        const float magnitude = sampleMagnitude(kind, pcm + offset);
        if (peak < magnitude)
            peak = magnitude;
    }
    return peak;
}

} // namespace marquetry::audio

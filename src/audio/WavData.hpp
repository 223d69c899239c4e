#pragma once

#include <cstdint>
#include <vector>

namespace marquetry::audio {

/// A byte buffer: file images, PCM payloads, slices.
using Bytes = std::vector<std::uint8_t>;

/// Frame indices and frame counts. A frame is `blockAlign` bytes: one sample
/// of every channel.
using FrameIndex = std::int64_t;
using FrameCount = std::int64_t;

/// A decoded WAV stream: the first 16 bytes of the fmt chunk exactly as stored,
/// and the raw interleaved little-endian bytes of the data chunk.
///
/// Records from `loadWav` guarantee audioFormat 1 or 3, blockAlign >= 1 and a
/// payload that is a whole number of frames. Nothing else is promised:
/// channels may be 0 and bitsPerSample may disagree with blockAlign, so every
/// consumer bounds its own reads.
struct WavData {
    std::uint16_t audioFormat = 0;
    std::uint16_t channels = 0;
    std::uint32_t sampleRate = 0;
    std::uint32_t byteRate = 0;
    std::uint16_t blockAlign = 0;
    std::uint16_t bitsPerSample = 0;
    Bytes pcmData;

    bool operator==(const WavData&) const = default;
};

/// Format codes the reader accepts.
inline constexpr std::uint16_t formatPcm = 1;
inline constexpr std::uint16_t formatFloat = 3;

/// Whole frames in a buffer of `byteCount` bytes; 0 when blockAlign is 0.
constexpr FrameCount frameCount(std::size_t byteCount, std::uint16_t blockAlign) {
    return blockAlign == 0 ? 0 : static_cast<FrameCount>(byteCount / blockAlign);
}

} // namespace marquetry::audio

#pragma once

// WAV images put together byte by byte, so that a test can break any single
// field; small records with known samples; and the real loops the build
// converts.

#include "audio/WavData.hpp"

#include <cstdint>
#include <numeric>
#include <string>
#include <string_view>

namespace marquetry::audio::test {

/// Appends `value` as `byteCount` little-endian bytes (not the writer under test).
inline void putLE(Bytes& out, std::uint64_t value, int byteCount) {
    for (int i = 0; i < byteCount; ++i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

template <class... Parts>
Bytes concat(const Parts&... parts) {
    Bytes out;
    (out.insert(out.end(), std::begin(parts), std::end(parts)), ...);
    return out;
}

/// A chunk header whose size field may disagree with what follows.
inline Bytes chunkHeader(std::string_view id, std::uint32_t size) {
    Bytes out(id.begin(), id.end());
    putLE(out, size, 4);
    return out;
}

/// A well-formed chunk, with its pad byte when the body is odd.
inline Bytes chunk(std::string_view id, const Bytes& body) {
    Bytes out = concat(chunkHeader(id, static_cast<std::uint32_t>(body.size())), body);
    if (body.size() % 2 != 0)
        out.push_back(0);
    return out;
}

/// A fmt chunk with byteRate = rate x blockAlign, and `extra` filler bytes
/// after the 16 that matter.
inline Bytes fmt(std::uint16_t format, std::uint16_t channels, std::uint16_t blockAlign, std::uint16_t bits,
                 std::uint32_t rate = 44100, std::size_t extra = 0) {
    Bytes body;
    for (const auto& [value, size] : {std::pair<std::uint64_t, int>{format, 2}, {channels, 2}, {rate, 4},
                                     {std::uint64_t{rate} * blockAlign, 4}, {blockAlign, 2}, {bits, 2}})
        putLE(body, value, size);
    body.resize(16 + extra, 0xEE);
    return chunk("fmt ", body);
}

/// The 12-byte file header; the RIFF size is never checked, so 0 will do.
inline Bytes riff(std::string_view riffTag = "RIFF", std::string_view waveTag = "WAVE", std::uint32_t size = 0) {
    return concat(chunkHeader(riffTag, size), waveTag);
}

/// A record of `pcm` in the given layout, with byteRate = rate x blockAlign.
inline WavData record(std::uint16_t format, std::uint16_t channels, std::uint16_t blockAlign, std::uint16_t bits,
                      Bytes pcm = {}, std::uint32_t rate = 44100) {
    return {format, channels, rate, rate * blockAlign, blockAlign, bits, std::move(pcm)};
}

/// `size` counting bytes from `first` (wrapping), so that bytes taken from
/// the wrong place show.
inline Bytes counting(std::size_t size, std::uint8_t first = 1) {
    Bytes out(size);
    std::iota(out.begin(), out.end(), first);
    return out;
}

/// 16-bit samples as little-endian bytes.
inline Bytes samples16(const std::vector<std::int16_t>& samples) {
    Bytes out;
    for (const std::int16_t s : samples)
        putLE(out, static_cast<std::uint16_t>(s), 2);
    return out;
}

/// A 16-bit integer PCM record at 44.1 kHz holding `samples`, interleaved.
inline WavData pcm16(std::uint16_t channels, const std::vector<std::int16_t>& samples) {
    return record(formatPcm, channels, static_cast<std::uint16_t>(2 * channels), 16, samples16(samples));
}

/// A mono 16-bit record of `frames` frames whose frame i holds the value i
/// (wrapping), so every slice's origin can be read back from its bytes.
inline WavData numberedFrames(std::int64_t frames) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(frames));
    std::iota(samples.begin(), samples.end(), std::int16_t{0});
    return pcm16(1, samples);
}

/// Path of one of the drum loops converted for the tests.
inline std::string testLoopPath(std::string_view file) {
    return std::string(MARQUETRY_TEST_LOOPS_DIR) + "/" + std::string(file);
}

} // namespace marquetry::audio::test

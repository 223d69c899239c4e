#include "audio/LoopTags.hpp"

#include "audio/WavWriter.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <string_view>

namespace marquetry::audio {
namespace {

constexpr std::uint16_t unityNote = 60;

void appendTag(Bytes& buffer, std::string_view tag) {
    // One byte at a time: GCC 12 misreads a range insert into a buffer that
    // starts empty as an overflow.
    for (const char c : tag)
        buffer.push_back(static_cast<std::uint8_t>(c));
}

void appendF32LE(Bytes& buffer, double value) {
    appendU32LE(buffer, std::bit_cast<std::uint32_t>(static_cast<float>(value)));
}

std::uint32_t clampU32(std::int64_t value) {
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(value, 0, std::numeric_limits<std::uint32_t>::max()));
}

// A chunk header, then the body appended by `body`, with the size patched in
// and a pad byte after an odd body.
template <typename Body>
void appendChunk(Bytes& buffer, std::string_view tag, Body&& body) {
    appendTag(buffer, tag);
    const std::size_t sizeAt = buffer.size();
    appendU32LE(buffer, 0);
    body();
    const std::size_t size = buffer.size() - sizeAt - 4;
    for (int shift = 0; shift < 32; shift += 8)
        buffer[sizeAt + static_cast<std::size_t>(shift / 8)] = static_cast<std::uint8_t>((size >> shift) & 0xFF);
    if (size % 2 != 0)
        buffer.push_back(0);
}

} // namespace

Bytes loopTagChunks(const LoopTags& tags, const WavData& format, FrameCount frames) {
    Bytes chunks;
    appendChunk(chunks, "acid", [&] {
        // Flags: bit 0 clear (a loop, not a one-shot), bit 1 (root note
        // set), bit 2 (stretch to the host's tempo).
        appendU32LE(chunks, 0x02 | 0x04);
        appendU16LE(chunks, unityNote);
        appendU16LE(chunks, 0x8000);
        appendF32LE(chunks, 0);
        appendU32LE(chunks, clampU32(tags.beats));
        appendU16LE(chunks, 4); // meter denominator
        appendU16LE(chunks, static_cast<std::uint16_t>(std::clamp<std::int64_t>(tags.beatsPerBar, 1, 0xFFFF))); // numerator
        appendF32LE(chunks, tags.bpm);
    });
    appendChunk(chunks, "smpl", [&] {
        appendU32LE(chunks, 0); // manufacturer
        appendU32LE(chunks, 0); // product
        const double period = format.sampleRate == 0 ? 0.0 : std::round(1e9 / format.sampleRate);
        appendU32LE(chunks, static_cast<std::uint32_t>(period)); // nanoseconds per frame
        appendU32LE(chunks, unityNote);
        appendU32LE(chunks, 0); // pitch fraction
        appendU32LE(chunks, 0); // SMPTE format
        appendU32LE(chunks, 0); // SMPTE offset
        appendU32LE(chunks, 1); // loops
        appendU32LE(chunks, 0); // sampler data
        appendU32LE(chunks, 0); // cue point id
        appendU32LE(chunks, 0); // forward
        appendU32LE(chunks, 0); // first frame
        appendU32LE(chunks, clampU32(frames - 1)); // last frame, inclusive
        appendU32LE(chunks, 0); // fraction
        appendU32LE(chunks, 0); // forever
    });
    if (tags.cues.empty())
        return chunks;
    appendChunk(chunks, "cue ", [&] {
        appendU32LE(chunks, static_cast<std::uint32_t>(tags.cues.size()));
        for (std::size_t i = 0; i < tags.cues.size(); ++i) {
            appendU32LE(chunks, static_cast<std::uint32_t>(i + 1));
            appendU32LE(chunks, clampU32(tags.cues[i].frame)); // position in play order
            appendTag(chunks, "data");
            appendU32LE(chunks, 0); // chunk start
            appendU32LE(chunks, 0); // block start
            appendU32LE(chunks, clampU32(tags.cues[i].frame));
        }
    });
    appendChunk(chunks, "LIST", [&] {
        appendTag(chunks, "adtl");
        for (std::size_t i = 0; i < tags.cues.size(); ++i)
            appendChunk(chunks, "labl", [&] {
                appendU32LE(chunks, static_cast<std::uint32_t>(i + 1));
                appendTag(chunks, tags.cues[i].label);
                chunks.push_back(0);
            });
    });
    return chunks;
}

} // namespace marquetry::audio

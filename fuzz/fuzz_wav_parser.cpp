// Any byte string through the WAV reader, then through every consumer of a
// decoded record. The reader must either refuse the bytes with the message a
// plain walk of the chunk list predicts, or return a record that keeps every
// promise of WavData and that the envelope, the transient detector and a
// write/read round trip all handle.

#include "FuzzCheck.hpp"

#include "audio/AppError.hpp"
#include "audio/SampleMagnitude.hpp"
#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"
#include "audio/WaveformEnvelope.hpp"
#include "chop/Slicing.hpp"
#include "chop/TransientDetection.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace {

using namespace marquetry;
using fuzz::require;

std::uint32_t readU32LE(const std::uint8_t* p) {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = (value << 8) | p[i];
    return value;
}

std::uint32_t readU16LE(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8);
}

// What the reader should make of `image`: a refusal message, or the fmt body
// and data payload of the last chunks of each kind.
struct Expectation {
    std::string_view error;
    const std::uint8_t* fmt = nullptr;
    std::span<const std::uint8_t> payload;
};

Expectation refusal(std::string_view message) {
    Expectation refused;
    refused.error = message;
    return refused;
}

// A second, deliberately naive reading of the layout (unsigned 64-bit
// positions instead of the reader's signed ones), so a slip in either shows.
Expectation expectedDecoding(std::span<const std::uint8_t> image) {
    if (image.size() < 44)
        return refusal("WAV file is too small.");
    if (std::memcmp(image.data(), "RIFF", 4) != 0 || std::memcmp(image.data() + 8, "WAVE", 4) != 0)
        return refusal("Invalid WAV header.");

    const std::uint64_t size = image.size();
    Expectation found;
    bool sawData = false;
    for (std::uint64_t at = 12; at + 8 <= size;) {
        const std::uint64_t body = readU32LE(image.data() + at + 4);
        if (at + 8 + body > size)
            return refusal("Corrupt chunk data.");
        if (std::memcmp(image.data() + at, "fmt ", 4) == 0) {
            if (body < 16)
                return refusal("Invalid fmt chunk.");
            found.fmt = image.data() + at + 8;
        } else if (std::memcmp(image.data() + at, "data", 4) == 0) {
            found.payload = image.subspan(static_cast<std::size_t>(at + 8), static_cast<std::size_t>(body));
            sawData = true;
        }
        at += 8 + body + (body % 2);
    }
    if (found.fmt == nullptr || !sawData)
        return refusal("Missing fmt or data chunks.");
    const std::uint32_t format = readU16LE(found.fmt);
    if (format != 1 && format != 3)
        return refusal("Only PCM/float WAV files are supported.");
    const std::uint32_t blockAlign = readU16LE(found.fmt + 12);
    if (blockAlign == 0 || found.payload.size() % blockAlign != 0)
        return refusal("Invalid block alignment.");
    return found;
}

void checkRecord(const audio::WavData& wav, const Expectation& expected) {
    require(wav.audioFormat == audio::formatPcm || wav.audioFormat == audio::formatFloat, "format code is 1 or 3");
    require(wav.blockAlign >= 1, "blockAlign >= 1");
    require(wav.pcmData.size() % wav.blockAlign == 0, "payload is whole frames");
    require(std::equal(wav.pcmData.begin(), wav.pcmData.end(), expected.payload.begin(), expected.payload.end()),
            "payload is the last data chunk");
    // The six fields are the first 16 fmt bytes in file order, little-endian.
    audio::Bytes fields;
    audio::appendU16LE(fields, wav.audioFormat);
    audio::appendU16LE(fields, wav.channels);
    audio::appendU32LE(fields, wav.sampleRate);
    audio::appendU32LE(fields, wav.byteRate);
    audio::appendU16LE(fields, wav.blockAlign);
    audio::appendU16LE(fields, wav.bitsPerSample);
    require(std::memcmp(fields.data(), expected.fmt, 16) == 0, "format fields are the last fmt chunk's");
}

void checkEnvelope(const audio::WavData& wav) {
    const std::vector<double> envelope = audio::waveformEnvelope(wav, 1000);
    require(fuzz::isDrawable(envelope), "envelope values in [0, 1]");
    const audio::FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    if (frames < 1 || wav.bitsPerSample < 8) {
        require(envelope.empty(), "no envelope without frames or below 8 bits");
        return;
    }
    const std::int64_t target = std::max<std::int64_t>(32, std::min<std::int64_t>(1000, frames));
    const std::int64_t step = std::max<std::int64_t>(1, frames / target);
    require(static_cast<std::int64_t>(envelope.size()) == (frames + step - 1) / step, "one value per bucket");
    if (audio::sampleKind(wav) == audio::SampleKind::silent || wav.channels == 0)
        require(std::all_of(envelope.begin(), envelope.end(), [](double v) { return v == 0.0; }),
                "samples nothing interprets draw as silence");
}

void checkTransientBoundaries(const audio::WavData& wav, std::int64_t sliceCount) {
    const audio::FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    const chop::Boundaries boundaries = chop::buildTransientBoundaries(wav, sliceCount);
    require(!boundaries.empty() && boundaries.front() == 0, "transient boundaries start at 0");
    require(boundaries.back() == frames, "transient boundaries end at the frame count");
    require(std::adjacent_find(boundaries.begin(), boundaries.end(), std::greater_equal<>()) == boundaries.end(),
            "transient boundaries strictly increase");
    require(static_cast<std::int64_t>(boundaries.size()) <= sliceCount + 1, "no more transient slices than asked for");
    if (frames <= sliceCount)
        require(static_cast<std::int64_t>(boundaries.size()) == frames + 1, "a short source gives one frame each");

    // Strictly increasing boundaries from 0 to the end tile the source.
    audio::Bytes joined;
    for (const chop::Slice& slice : chop::splitSlicesByBoundaries(wav.pcmData, wav.blockAlign, boundaries))
        joined.insert(joined.end(), slice.begin(), slice.end());
    require(joined == wav.pcmData, "transient slices tile the source");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> image(data, size);
    const Expectation expected = expectedDecoding(image);

    std::optional<audio::WavData> decoded;
    try {
        decoded = audio::parseWav(image);
    } catch (const audio::AppError& error) {
        require(fuzz::isReaderMessage(error.what()), "a refusal uses one of the reader's messages:", error.what());
        require(error.kind() == audio::AppError::Kind::invalidWav, "refusals are invalidWav");
        require(error.what() == expected.error, "the first failing check wins, expected:", expected.error);
        return 0;
    }
    require(expected.error.empty(), "the reader accepted a file it should refuse with:", expected.error);
    const audio::WavData& wav = *decoded;
    checkRecord(wav, expected);
    checkEnvelope(wav);
    if (!wav.pcmData.empty())
        checkTransientBoundaries(wav, 1 + static_cast<std::int64_t>(size % 24));

    const audio::Bytes written = audio::buildWavFileData(wav, wav.pcmData);
    require(written.size() == 44 + wav.pcmData.size(), "the written image is header + payload");
    require(audio::parseWav(written) == wav, "write then read gives the same record");
    return 0;
}

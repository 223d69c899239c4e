// Import of the formats sample packs come in: the amen break converted by sox
// and libsndfile's own converter at build time, checked against the same
// samples decoded by sox into plain WAV and read by our own reader.
#include "audio/AppError.hpp"
#include "audio/AudioImport.hpp"
#include "audio/WavReader.hpp"

#include "support/WavImageBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace marquetry::audio {
namespace {

using namespace test;
using ::testing::StartsWith;

// The format fields and the payload's size, so that a failure does not
// print the payload.
auto fieldsOf(const WavData& wav) {
    return std::tuple(wav.audioFormat, wav.channels, wav.sampleRate, wav.byteRate, wav.blockAlign,
                      wav.bitsPerSample, wav.pcmData.size());
}

std::string refusalOf(std::span<const std::uint8_t> image, std::uint64_t limit = maxWavPayloadBytes) {
    try {
        importAudio(image, limit);
    } catch (const AppError& error) {
        return error.what();
    }
    return "(imported)";
}

// Integer sources keep their width (8-bit becomes unsigned), floats become
// 32-bit float, mu-law decodes exactly as sox decodes it; from a path and
// from memory alike.
TEST(AudioImport, KeepsEverySampleOfLosslessSources) {
    const std::pair<const char*, const char*> cases[] = {
        {"import/amen_s16.flac", "amen_s16.wav"},
        {"import/amen_s24.flac", "amen_s24.wav"},
        {"import/amen_s16.aiff", "amen_s16.wav"},
        {"import/amen_s8.aiff", "amen_u8.wav"},
        {"import/amen_s24_extensible.wav", "amen_s24.wav"},
        {"import/amen_s32_extensible.wav", "amen_s32.wav"},
        {"import/amen_s24.rf64", "amen_s24.wav"},
        {"import/amen_f32.aifc", "amen_f32.wav"},
        {"import/amen_f64.wav", "amen_f32.wav"},
        {"import/amen_ulaw.wav", "amen_ulaw_s16.wav"},
        {"amen_u8.wav", "amen_u8.wav"},
        {"amen_f32.wav", "amen_f32.wav"},
    };
    for (const auto& [source, reference] : cases) {
        SCOPED_TRACE(source);
        const WavData expected = loadWav(testLoopPath(reference));
        for (const WavData& imported :
             {importAudio(testLoopPath(source)), importAudio(readWholeFile(testLoopPath(source)))}) {
            EXPECT_EQ(fieldsOf(imported), fieldsOf(expected));
            EXPECT_TRUE(imported.pcmData == expected.pcmData) << "samples differ";
        }
    }
}

// Lossy sources become 16-bit at their own rate, the same on every run, and
// still sound like the break: the difference from the original carries less
// than a quarter of its energy (a wrong scale, sign or offset gives more).
TEST(AudioImport, DecodesLossySourcesTo16BitCloseToTheOriginal) {
    const WavData original = loadWav(testLoopPath("amen_s16.wav"));
    const auto sampleAt = [](const Bytes& pcm, std::size_t i) {
        return static_cast<double>(static_cast<std::int16_t>(pcm[2 * i] | (pcm[2 * i + 1] << 8)));
    };
    const std::pair<const char*, std::uint32_t> cases[] = {
        {"import/amen.ogg", 44100}, {"import/amen.mp3", 44100}, {"import/amen_48k.opus", 48000}};
    for (const auto& [source, rate] : cases) {
        SCOPED_TRACE(source);
        const WavData imported = importAudio(testLoopPath(source));
        // No frames lost or added.
        ASSERT_EQ(fieldsOf(imported), std::tuple(formatPcm, 2, rate, rate * 4, 4, 16, original.pcmData.size()));
        EXPECT_TRUE(importAudio(testLoopPath(source)) == imported) << "the same bytes again";
        double signal = 0.0;
        double noise = 0.0;
        for (std::size_t i = 0; i < original.pcmData.size() / 2; ++i) {
            const double expected = sampleAt(original.pcmData, i);
            signal += expected * expected;
            noise += (sampleAt(imported.pcmData, i) - expected) * (sampleAt(imported.pcmData, i) - expected);
        }
        EXPECT_LT(noise, signal / 4);
    }
}

TEST(AudioImport, RefusesWhatItCannotConvertWithOneSentence) {
    const Bytes flac = readWholeFile(testLoopPath("import/amen_s16.flac"));
    // A FLAC stream header and nothing else: 4096-frame blocks, 44.1 kHz mono
    // 16-bit, 2^34 frames (8 GiB of PCM), no checksum.
    const Bytes hugeFlac = concat(std::string_view("fLaC"), Bytes{0x80, 0, 0, 34, 0x10, 0, 0x10, 0, 0, 0, 0, 0, 0, 0},
                                  Bytes{0x0A, 0xC4, 0x40, 0xF4, 0, 0, 0, 0}, Bytes(16, 0));
    const Bytes emptyWav = concat(riff("RIFF", "WAVE", 36), fmt(1, 2, 4, 16), chunk("data", {}));

    EXPECT_THAT(refusalOf(Bytes{'h', 'e', 'l', 'l', 'o'}), StartsWith("Not an audio file libsndfile can read ("));
    EXPECT_EQ(refusalOf(concat(riff("RIFF", "WAVE", 20), chunk("data", Bytes(12, 1)))),
              "Not an audio file libsndfile can read (Error in WAV file. No 'data' chunk marker).");
    // An MP3 cut inside its first frames, which libsndfile blames on the file
    // not being a regular one.
    const Bytes mp3 = readWholeFile(testLoopPath("import/amen.mp3"));
    EXPECT_EQ(refusalOf(std::span(mp3).first(1000)),
              "Not an audio file libsndfile can read (Supported file format but file is malformed).");
    EXPECT_EQ(refusalOf(hugeFlac), "Audio data too long for a WAV file (more than 4 GB).");
    EXPECT_EQ(refusalOf(flac, 300'000), "Audio data longer than the limit of 300000 bytes.");
    EXPECT_EQ(refusalOf(emptyWav), "It holds no audio.");
}

} // namespace
} // namespace marquetry::audio

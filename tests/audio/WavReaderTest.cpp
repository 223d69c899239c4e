#include "audio/AppError.hpp"
#include "audio/WavReader.hpp"

#include "WavImageBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <optional>
#include <system_error>

namespace marquetry::audio {
namespace {

using namespace test;

const char* const tooSmall = "WAV file is too small.";
const char* const badHeader = "Invalid WAV header.";
const char* const corrupt = "Corrupt chunk data.";
const char* const badFmt = "Invalid fmt chunk.";
const char* const missing = "Missing fmt or data chunks.";
const char* const unsupported = "Only PCM/float WAV files are supported.";
const char* const badAlign = "Invalid block alignment.";

// Counting bytes, so that a payload taken from the wrong chunk shows.
Bytes bytes(std::size_t size, std::uint8_t first = 1) {
    Bytes out(size);
    std::iota(out.begin(), out.end(), first);
    return out;
}

WavData record(std::uint16_t format, std::uint16_t channels, std::uint16_t blockAlign, std::uint16_t bits,
               Bytes pcm, std::uint32_t rate = 44100) {
    return {format, channels, rate, rate * blockAlign, blockAlign, bits, std::move(pcm)};
}

const Bytes stereo16 = fmt(1, 2, 4, 16);
const Bytes canonicalEmpty = concat(riff("RIFF", "WAVE", 36), stereo16, chunk("data", {}));

// The message of the AppError parsing raises, or nothing when it decodes; any
// other exception escapes and fails the test.
std::optional<std::string> failureOf(const Bytes& image) {
    try {
        parseWav(image);
    } catch (const AppError& error) {
        EXPECT_EQ(error.kind(), AppError::Kind::invalidWav);
        EXPECT_EQ(error.errorDescription(), error.what());
        return error.what();
    }
    return std::nullopt;
}

struct Rejection {
    const char* name;
    Bytes image;
    const char* message;
};

// In the order the reader checks; cases with two faults show which check wins.
const Rejection rejections[] = {
    {"FortyThreeBytesOfValidHeader", Bytes(canonicalEmpty.begin(), canonicalEmpty.end() - 1), tooSmall},
    {"ShortFileWithBadHeader", Bytes(43, 'x'), tooSmall},
    {"NotRiff", concat(riff("RIFX"), stereo16, chunk("data", bytes(12))), badHeader},
    {"NotWave", concat(riff("RIFF", "WAVF"), stereo16, chunk("data", bytes(12))), badHeader},
    {"DataSizeOfInterruptedRecording", concat(riff(), stereo16, chunkHeader("data", 0xFFFF'FFFF), bytes(12)), corrupt},
    {"OverlongTrailingUnknownChunk",
     concat(riff(), stereo16, chunk("data", bytes(12)), chunkHeader("junk", 5), bytes(4)), corrupt},
    {"OverlongShortFmt", concat(riff(), chunk("LIST", bytes(20)), chunkHeader("fmt ", 15), bytes(4)), corrupt},
    {"ShortFmt", concat(riff(), chunk("fmt ", bytes(15)), chunk("data", bytes(12))), badFmt},
    {"ShortFmtWithoutData", concat(riff(), chunk("fmt ", bytes(14)), chunk("LIST", bytes(12))), badFmt},
    {"NoData", concat(riff(), stereo16, chunk("LIST", bytes(20))), missing},
    {"NoFmt", concat(riff(), chunk("data", bytes(12)), chunk("LIST", bytes(20))), missing},
    {"UpperCaseFmt", concat(riff(), chunkHeader("FMT ", 16), Bytes(stereo16.begin() + 8, stereo16.end()),
                            chunk("data", bytes(12))), missing},
    {"UpperCaseData", concat(riff(), stereo16, chunk("DATA", bytes(12))), missing},
    {"IdentifierWithHighByte", concat(riff(), stereo16, chunk("dat\xE1", bytes(12))), missing},
    {"MissingDataBeforeFormat", concat(riff(), fmt(65534, 2, 0, 16), chunk("LIST", bytes(20))), missing},
    {"Extensible", concat(riff(), fmt(65534, 2, 4, 16), chunk("data", bytes(12))), unsupported},
    {"FormatBeforeAlignment", concat(riff(), fmt(2, 2, 0, 16), chunk("data", bytes(10))), unsupported},
    {"ZeroBlockAlign", concat(riff(), fmt(1, 2, 0, 16), chunk("data", {})), badAlign},
    {"TenBytesOfStereo16", concat(riff(), stereo16, chunk("data", bytes(10))), badAlign},
};

class WavReaderRejects : public testing::TestWithParam<Rejection> {};

TEST_P(WavReaderRejects, WithTheFirstFailingChecksMessage) {
    EXPECT_EQ(failureOf(GetParam().image), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(WavReader, WavReaderRejects, testing::ValuesIn(rejections), NameParam{});

struct Acceptance {
    const char* name;
    Bytes image;
    WavData expected;
};

const Acceptance acceptances[] = {
    {"CanonicalHeaderWithEmptyData", canonicalEmpty, record(1, 2, 4, 16, {})},
    {"RiffSizeLargerThanFile", concat(riff("RIFF", "WAVE", 0xFFFF'FFFF), stereo16, chunk("data", bytes(12))),
     record(1, 2, 4, 16, bytes(12))},
    {"OddChunkFollowedByPad", concat(riff(), chunk("LIST", bytes(3)), stereo16, chunk("data", bytes(8))),
     record(1, 2, 4, 16, bytes(8))},
    {"OddDataEndingTheFileWithoutPad", concat(riff(), fmt(1, 1, 1, 8), chunkHeader("data", 3), bytes(3)),
     record(1, 1, 1, 8, bytes(3))},
    {"FmtAfterData", concat(riff(), chunk("data", bytes(12)), stereo16), record(1, 2, 4, 16, bytes(12))},
    {"SecondDataReplacesFirst", concat(riff(), stereo16, chunk("data", bytes(4)), chunk("data", bytes(8, 0x40))),
     record(1, 2, 4, 16, bytes(8, 0x40))},
    {"SecondFmtReplacesFirst", concat(riff(), stereo16, chunk("data", bytes(8)), fmt(3, 1, 4, 32, 48000)),
     record(3, 1, 4, 32, bytes(8), 48000)},
    {"Fmt18WithFactChunk",
     concat(riff(), fmt(3, 2, 8, 32, 44100, 2), chunk("fact", bytes(4)), chunk("data", bytes(16))),
     record(3, 2, 8, 32, bytes(16))},
    {"Fmt40", concat(riff(), fmt(1, 2, 4, 16, 44100, 24), chunk("data", bytes(12))), record(1, 2, 4, 16, bytes(12))},
    {"EightBitPcm", concat(riff(), fmt(1, 1, 1, 8, 8000), chunk("data", bytes(5))), record(1, 1, 1, 8, bytes(5), 8000)},
    {"SixtyFourBitFloat", concat(riff(), fmt(3, 2, 16, 64), chunk("data", bytes(32))), record(3, 2, 16, 64, bytes(32))},
    {"ZeroChannelsAndOddWidth", concat(riff(), fmt(1, 0, 3, 16, 0), chunk("data", bytes(6))),
     record(1, 0, 3, 16, bytes(6), 0)},
};

class WavReaderAccepts : public testing::TestWithParam<Acceptance> {};

TEST_P(WavReaderAccepts, AndKeepsFieldsAndPayloadAsStored) {
    EXPECT_EQ(parseWav(GetParam().image), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(WavReader, WavReaderAccepts, testing::ValuesIn(acceptances), NameParam{});

TEST(WavReader, IgnoresATrailingFragmentShorterThanAChunkHeader) {
    for (std::size_t extra = 1; extra <= 7; ++extra)
        EXPECT_EQ(parseWav(concat(riff(), stereo16, chunk("data", bytes(12)), Bytes(extra, 0xFF))),
                  record(1, 2, 4, 16, bytes(12)));
}

// File errors keep the operating system's description and name the path.
TEST(WavReader, ReportsUnreadableFilesAsSystemErrors) {
    for (const std::string& path : {testLoopPath("no-such-loop.wav"), std::string(MARQUETRY_TEST_LOOPS_DIR)}) {
        try {
            loadWav(path);
            ADD_FAILURE() << "no error for " << path;
        } catch (const AppError& error) {
            ADD_FAILURE() << "AppError for " << path << ": " << error.what();
        } catch (const std::system_error& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr(path));
        }
    }
}

struct RealLoop {
    const char* name;
    std::uint16_t format, channels, blockAlign, bits;
    FrameCount frames;
    std::size_t dataOffset;
};

const RealLoop realLoops[] = {
    {"amen_s16", 1, 2, 4, 16, 77321, 44},      {"amen_s24", 1, 2, 6, 24, 77321, 44},
    {"amen_s32", 1, 2, 8, 32, 77321, 44},      {"amen_f32", 3, 2, 8, 32, 77321, 58},
    {"amen_mono_s16", 1, 1, 2, 16, 77321, 44}, {"breakbeat_s16", 1, 2, 4, 16, 84000, 44},
    {"amen_10s_s16", 1, 2, 4, 16, 441000, 44},
};

class WavReaderRealLoop : public testing::TestWithParam<RealLoop> {};

TEST_P(WavReaderRealLoop, DecodesFormatAndWholeDataChunk) {
    const RealLoop& loop = GetParam();
    const Bytes file = readWholeFile(testLoopPath(std::string(loop.name) + ".wav"));
    const WavData wav = loadWav(testLoopPath(std::string(loop.name) + ".wav"));
    const auto dataEnd = loop.dataOffset + static_cast<std::size_t>(loop.frames) * loop.blockAlign;
    ASSERT_LE(dataEnd, file.size());
    EXPECT_EQ(wav, record(loop.format, loop.channels, loop.blockAlign, loop.bits,
                          Bytes(file.begin() + static_cast<std::ptrdiff_t>(loop.dataOffset),
                                file.begin() + static_cast<std::ptrdiff_t>(dataEnd))));
}

INSTANTIATE_TEST_SUITE_P(WavReader, WavReaderRealLoop, testing::ValuesIn(realLoops), NameParam{});

// Damaged files must end in one of the reader's own errors, never a crash or a
// record that breaks the reader's promises. The float loop has the most
// chunks to damage (fmt with extension, fact, data).
void expectDecodesOrFailsCleanly(const Bytes& image) {
    const std::vector<std::string> messages{tooSmall, badHeader, corrupt, badFmt, missing, unsupported, badAlign};
    try {
        const WavData wav = parseWav(image);
        EXPECT_TRUE(wav.audioFormat == 1 || wav.audioFormat == 3);
        ASSERT_GE(wav.blockAlign, 1);
        EXPECT_EQ(wav.pcmData.size() % wav.blockAlign, 0u);
    } catch (const AppError& error) {
        EXPECT_THAT(messages, testing::Contains(error.what()));
    }
}

TEST(WavReader, RejectsEveryTruncationOfARealFile) {
    const Bytes file = readWholeFile(testLoopPath("amen_f32.wav"));
    auto check = [&](std::size_t length) {
        SCOPED_TRACE(length);
        const Bytes image(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
        expectDecodesOrFailsCleanly(image);
        EXPECT_TRUE(failureOf(image));
    };
    for (std::size_t length = 0; length < 128; ++length)
        check(length);
    for (std::size_t length = file.size() - 16; length < file.size(); ++length)
        check(length);
}

TEST(WavReader, SurvivesDamagedHeaderBytesOfARealFile) {
    Bytes image = readWholeFile(testLoopPath("amen_f32.wav"));
    for (std::size_t at = 0; at < 64; ++at) {
        for (const int mask : {0x01, 0x80, 0xFF}) {
            SCOPED_TRACE(testing::Message() << "byte " << at << " ^ " << mask);
            image[at] = static_cast<std::uint8_t>(image[at] ^ mask);
            expectDecodesOrFailsCleanly(image);
            image[at] = static_cast<std::uint8_t>(image[at] ^ mask);
        }
    }
}

} // namespace
} // namespace marquetry::audio

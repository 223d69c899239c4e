#include "audio/AppError.hpp"
#include "audio/WavReader.hpp"

#include "support/ChildProcess.hpp"
#include "support/TestFiles.hpp"
#include "support/WavImageBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <numeric>
#include <system_error>
#include <tuple>

namespace marquetry::audio {
namespace {

using namespace test;
using testing::AnyOfArray;
using testing::Contains;
using testing::ThrowsMessage;

// In the order the reader checks them.
const std::string messages[] = {"WAV file is too small.",      "Invalid WAV header.",
                                "Corrupt chunk data.",         "Invalid fmt chunk.",
                                "Missing fmt or data chunks.", "Only PCM/float WAV files are supported.",
                                "Invalid block alignment."};
enum Message { tooSmall, badHeader, corrupt, badFmt, missing, unsupported, badAlign };

// Counting bytes, so that a payload taken from the wrong chunk shows.
Bytes bytes(std::size_t size, std::uint8_t first = 1) { return counting(size, first); }

const Bytes stereo16 = fmt(1, 2, 4, 16);
const Bytes canonicalEmpty = concat(riff("RIFF", "WAVE", 36), stereo16, chunk("data", {}));

// In the order of the checks; cases with two faults show which check wins.
TEST(WavReader, RejectsWithTheFirstFailingChecksMessage) {
    const std::tuple<const char*, Bytes, Message> rejections[] = {
        {"43 bytes of valid header", Bytes(canonicalEmpty.begin(), canonicalEmpty.end() - 1), tooSmall},
        {"short file with bad header", Bytes(43, 'x'), tooSmall},
        {"not RIFF", concat(riff("RIFX"), stereo16, chunk("data", bytes(12))), badHeader},
        {"not WAVE", concat(riff("RIFF", "WAVF"), stereo16, chunk("data", bytes(12))), badHeader},
        {"interrupted recording", concat(riff(), stereo16, chunkHeader("data", 0xFFFF'FFFF), bytes(12)), corrupt},
        {"overlong short fmt", concat(riff(), chunk("LIST", bytes(20)), chunkHeader("fmt ", 15), bytes(4)), corrupt},
        {"short fmt without data", concat(riff(), chunk("fmt ", bytes(14)), chunk("LIST", bytes(12))), badFmt},
        {"no data", concat(riff(), stereo16, chunk("LIST", bytes(20))), missing},
        {"no fmt", concat(riff(), chunk("data", bytes(12)), chunk("LIST", bytes(20))), missing},
        {"upper-case DATA", concat(riff(), stereo16, chunk("DATA", bytes(12))), missing},
        {"no data before format", concat(riff(), fmt(65534, 2, 0, 16), chunk("LIST", bytes(20))), missing},
        {"extensible", concat(riff(), fmt(65534, 2, 4, 16), chunk("data", bytes(12))), unsupported},
        {"format before alignment", concat(riff(), fmt(2, 2, 0, 16), chunk("data", bytes(10))), unsupported},
        {"zero block align", concat(riff(), fmt(1, 2, 0, 16), chunk("data", {})), badAlign},
        {"10 bytes of stereo 16-bit", concat(riff(), stereo16, chunk("data", bytes(10))), badAlign},
    };
    // A header read of the same bytes on disk refuses them alike.
    const TemporaryFolder folder;
    for (const auto& [name, image, message] : rejections) {
        EXPECT_THAT([&] { parseWav(image); }, ThrowsMessage<AppError>(messages[message])) << name;
        const std::string path = writeFile(folder.path + "/a.wav", image);
        EXPECT_THAT([&] { readWavHeader(path); }, ThrowsMessage<AppError>(messages[message])) << name;
    }
}

TEST(WavReader, AcceptsAndKeepsFieldsAndPayloadAsStored) {
    const std::tuple<const char*, Bytes, WavData> acceptances[] = {
        {"canonical header with empty data", canonicalEmpty, record(1, 2, 4, 16)},
        {"RIFF size larger than the file",
         concat(riff("RIFF", "WAVE", 0xFFFF'FFFF), stereo16, chunk("data", bytes(12))), record(1, 2, 4, 16, bytes(12))},
        {"odd chunk followed by its pad", concat(riff(), chunk("LIST", bytes(3)), stereo16, chunk("data", bytes(8))),
         record(1, 2, 4, 16, bytes(8))},
        {"odd data ending the file without pad", concat(riff(), fmt(1, 1, 1, 8), chunkHeader("data", 3), bytes(3)),
         record(1, 1, 1, 8, bytes(3))},
        {"fmt after data", concat(riff(), chunk("data", bytes(12)), stereo16), record(1, 2, 4, 16, bytes(12))},
        {"second data replaces the first",
         concat(riff(), stereo16, chunk("data", bytes(4)), chunk("data", bytes(8, 0x40))),
         record(1, 2, 4, 16, bytes(8, 0x40))},
        {"fmt 18 with fact chunk",
         concat(riff(), fmt(3, 2, 8, 32, 44100, 2), chunk("fact", bytes(4)), chunk("data", bytes(16))),
         record(3, 2, 8, 32, bytes(16))},
        {"fmt 40", concat(riff(), fmt(1, 2, 4, 16, 44100, 24), chunk("data", bytes(12))),
         record(1, 2, 4, 16, bytes(12))},
        {"zero channels and odd width", concat(riff(), fmt(1, 0, 3, 16, 0), chunk("data", bytes(6))),
         record(1, 0, 3, 16, bytes(6), 0)},
        {"trailing fragment shorter than a chunk header",
         concat(riff(), stereo16, chunk("data", bytes(12)), Bytes(7, 0xFF)), record(1, 2, 4, 16, bytes(12))},
    };
    // From a file the payload is moved inside the buffer the file was read
    // into, which must give the same record whatever the chunk layout.
    const TemporaryFolder folder;
    for (const auto& [name, image, expected] : acceptances) {
        EXPECT_EQ(parseWav(image), expected) << name;
        const std::string path = writeFile(folder.path + "/a.wav", image);
        EXPECT_EQ(loadWav(path), expected) << name;
        WavData format = expected;
        format.pcmData.clear();
        EXPECT_EQ(readWavHeader(path), (WavHeader{format, expected.pcmData.size()})) << name;
    }
}

// File errors keep the operating system's description and name the path.
TEST(WavReader, ReportsUnreadableFilesAsSystemErrors) {
    for (const std::string& path : {testLoopPath("no-such-loop.wav"), std::string(MARQUETRY_TEST_LOOPS_DIR)})
        EXPECT_THAT([&] { loadWav(path); }, testing::ThrowsMessage<std::system_error>(testing::HasSubstr(path)));
}

class WavReaderFiles : public ::testing::Test {
protected:
    // A canonical header whose data chunk claims `payloadBytes`, followed by
    // that many zeros that take no room on disk.
    std::string sparseWav(const std::string& name, std::uint64_t payloadBytes) const {
        const Bytes header = concat(riff(), stereo16, chunkHeader("data", static_cast<std::uint32_t>(payloadBytes)));
        const std::string path = writeFile(folder + "/" + name, header);
        std::filesystem::resize_file(path, header.size() + payloadBytes);
        return path;
    }

    const TemporaryFolder temporary;
    const std::string folder = temporary.path;
};

// Each is refused at once, before a byte is read, in a child that would run
// out of its address space or its time if it tried.
TEST_F(WavReaderFiles, RefusesWhatIsNotARegularFileOrTooLargeWithoutReadingIt) {
    ASSERT_EQ(::mkfifo((folder + "/pipe.wav").c_str(), 0600), 0);
    std::filesystem::create_symlink("/dev/zero", folder + "/zero.wav");
    std::filesystem::create_symlink("loop-b.wav", folder + "/loop-a.wav");
    std::filesystem::create_symlink("loop-a.wav", folder + "/loop-b.wav");
    const std::string sparse = sparseWav("5gb.wav", 5'000'000'000);

    const std::pair<std::string, std::string> refusals[] = {
        {folder + "/pipe.wav", "is a named pipe (FIFO), not a file"},
        {folder + "/zero.wav", "is a character device, not a file"},
        {sparse, "is larger than a WAV file can be (4 GiB)"},
        {folder + "/loop-a.wav", "Too many levels of symbolic links"},
    };
    for (const auto read : {+[](const std::string& path) { loadWav(path); },
                            +[](const std::string& path) { readWavHeader(path); }}) {
        for (const auto& [path, description] : refusals) {
            const std::string outcome = inChildProcess(
                [&] {
                    try {
                        read(path);
                    } catch (const std::system_error& error) {
                        return std::string(error.what());
                    }
                    return std::string("read");
                },
                {{RLIMIT_AS, addressSpaceInUse() + (256 << 20)}}, 5);
            EXPECT_EQ(outcome, path + ": " + description);
        }
    }
}

// The header of a loop of nearly 4 GiB is read within a few megabytes.
TEST_F(WavReaderFiles, ReadsAHeaderWithoutThePayload) {
    constexpr std::uint64_t payloadBytes = 4'000'000'000;
    const std::string path = sparseWav("large.wav", payloadBytes);
    const std::string outcome = inChildProcess(
        [&] { return std::to_string(readWavHeader(path).payloadBytes); },
        {{RLIMIT_AS, addressSpaceInUse() + (16 << 20)}}, 5);
    EXPECT_EQ(outcome, std::to_string(payloadBytes));
}

// A quarter of a gigabyte of payload decodes within 1.5 times its size: the record
// keeps the buffer the file was read into, so there is never a second copy.
TEST_F(WavReaderFiles, HoldsOneCopyOfALargePayload) {
    constexpr std::uint64_t payloadBytes = 256 << 20;
    const std::string path = sparseWav("large.wav", payloadBytes);
    const std::string outcome = inChildProcess(
        [&] {
            const WavData wav = loadWav(path);
            return std::to_string(wav.pcmData.size());
        },
        {{RLIMIT_AS, addressSpaceInUse() + payloadBytes * 3 / 2}});
    EXPECT_EQ(outcome, std::to_string(payloadBytes));
}

// Damaged files end in one of the reader's own errors, never a crash or a
// record that breaks the reader's promises. The float loop has the most
// chunks to damage (fmt with extension, fact, data).
void expectDecodesOrFailsCleanly(const Bytes& image) {
    try {
        const WavData wav = parseWav(image);
        EXPECT_TRUE(wav.audioFormat == 1 || wav.audioFormat == 3);
        ASSERT_GE(wav.blockAlign, 1);
        EXPECT_EQ(wav.pcmData.size() % wav.blockAlign, 0u);
    } catch (const AppError& error) {
        EXPECT_THAT(messages, Contains(error.what()));
    }
}

TEST(WavReader, SurvivesTruncatedAndDamagedRealFiles) {
    Bytes image = readWholeFile(testLoopPath("amen_f32.wav"));
    std::vector<std::size_t> lengths(128);
    std::iota(lengths.begin(), lengths.end(), 0);
    lengths.push_back(image.size() - 1);
    for (const std::size_t length : lengths) {
        SCOPED_TRACE(length);
        const Bytes cut(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_THAT([&] { parseWav(cut); }, ThrowsMessage<AppError>(AnyOfArray(messages)));
    }
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

#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

namespace marquetry::audio {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

WavData record(std::uint16_t format, std::uint16_t channels, std::uint32_t rate, std::uint16_t bits) {
    const auto blockAlign = static_cast<std::uint16_t>(channels * (bits / 8));
    return {format, channels, rate, rate * blockAlign, blockAlign, bits, {}};
}

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t to) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

TEST(WavWriter, AppendsIntegersLowByteFirst) {
    Bytes buffer{0xAA};
    appendU16LE(buffer, 0x1234);
    appendU32LE(buffer, 0x89AB'CDEF);
    appendU16LE(buffer, 0xFFFF);
    appendU32LE(buffer, 0);
    EXPECT_THAT(buffer, ElementsAre(0xAA, 0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x89, 0xFF, 0xFF, 0, 0, 0, 0));
}

// The record's own payload is not the one written: variations are written
// with the format of the source they were cut from.
TEST(WavWriter, WritesThePlainHeaderOfStereo16BitAt44100AndTheGivenPayload) {
    WavData wav = record(1, 2, 44100, 16);
    wav.pcmData = {9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_THAT(buildWavFileData(wav, Bytes{1, 2, 3, 4}),
                ElementsAreArray<std::uint8_t>({0x52, 0x49, 0x46, 0x46, 0x28, 0x00, 0x00, 0x00, 0x57, 0x41, 0x56,
                                                0x45, 0x66, 0x6D, 0x74, 0x20, 0x10, 0x00, 0x00, 0x00, 0x01, 0x00,
                                                0x02, 0x00, 0x44, 0xAC, 0x00, 0x00, 0x10, 0xB1, 0x02, 0x00, 0x04,
                                                0x00, 0x10, 0x00, 0x64, 0x61, 0x74, 0x61, 0x04, 0x00, 0x00, 0x00,
                                                1,    2,    3,    4}));
}

TEST(WavWriter, WritesAnEmptyPayloadAsA44ByteImageTheReaderAccepts) {
    const WavData wav = record(1, 2, 44100, 16);
    const Bytes image = buildWavFileData(wav, {});
    ASSERT_EQ(image.size(), 44u);
    EXPECT_THAT(slice(image, 4, 8), ElementsAre(36, 0, 0, 0));
    EXPECT_THAT(slice(image, 40, 44), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(parseWav(image), wav);
}

// Float records get no extension and no fact chunk, and fields that disagree
// with each other are written as they are, never recomputed.
TEST(WavWriter, CopiesFormatFieldsIntoAPlain16ByteFmtChunk) {
    const WavData wav{3, 0, 0, 0xDEAD'BEEF, 7, 64, {}};
    const Bytes image = buildWavFileData(wav, Bytes(14, 0x55));
    ASSERT_EQ(image.size(), 44u + 14u);
    EXPECT_THAT(slice(image, 12, 40), ElementsAreArray<std::uint8_t>({'f', 'm', 't', ' ', 16, 0, 0, 0, 3, 0, 0, 0,
                                                                        0, 0, 0, 0, 0xEF, 0xBE, 0xAD, 0xDE, 7, 0, 64,
                                                                        0, 'd', 'a', 't', 'a'}));
}

TEST(WavWriter, WritesAnOddPayloadWithoutPadByte) {
    const WavData wav = record(1, 1, 8000, 8);
    const Bytes image = buildWavFileData(wav, Bytes{0x80, 0x7F, 0x81});
    ASSERT_EQ(image.size(), 47u);
    EXPECT_THAT(slice(image, 4, 8), ElementsAre(39, 0, 0, 0));
    EXPECT_THAT(slice(image, 40, 47), ElementsAre(3, 0, 0, 0, 0x80, 0x7F, 0x81));
}

// Every width the reader accepts, several rates, odd lengths and 1 to 8
// channels: reading back what was written gives the same record.
struct Width {
    std::uint16_t format, bits;
};
const Width widths[] = {{1, 8}, {1, 16}, {1, 24}, {1, 32}, {3, 32}, {3, 64}};

class WavWriterRoundTrip : public testing::TestWithParam<std::tuple<Width, std::uint32_t>> {};

TEST_P(WavWriterRoundTrip, ReadsBackTheSameRecord) {
    const auto [width, rate] = GetParam();
    std::uint32_t noise = 12345;
    for (const FrameCount frames : {0, 1, 2, 3, 7, 127, 2049}) {
        for (std::uint16_t channels = 1; channels <= 8; ++channels) {
            WavData wav = record(width.format, channels, rate, width.bits);
            wav.pcmData.resize(static_cast<std::size_t>(frames) * wav.blockAlign);
            for (auto& byte : wav.pcmData) {
                noise = noise * 1664525u + 1013904223u;
                byte = static_cast<std::uint8_t>(noise >> 24);
            }
            const Bytes image = buildWavFileData(wav, wav.pcmData);
            ASSERT_EQ(image.size(), 44u + wav.pcmData.size());
            ASSERT_EQ(parseWav(image), wav) << frames << " frames, " << channels << " channels";
        }
    }
}

std::string roundTripName(const testing::TestParamInfo<std::tuple<Width, std::uint32_t>>& info) {
    const auto [width, rate] = info.param;
    return (width.format == 1 ? "Pcm" : "Float") + std::to_string(width.bits) + "At" + std::to_string(rate);
}

INSTANTIATE_TEST_SUITE_P(WavWriter, WavWriterRoundTrip,
                         testing::Combine(testing::ValuesIn(widths), testing::Values(8000u, 44100u, 192000u)),
                         roundTripName);

} // namespace
} // namespace marquetry::audio

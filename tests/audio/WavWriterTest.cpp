#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"

#include "support/WavImageBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace marquetry::audio {
namespace {

using test::record;
using testing::ElementsAreArray;

// The record's own payload is not the one written: variations are written
// with the format of the source they were cut from. Fields that disagree with
// each other are written as they are, never recomputed, float gets no
// extension or fact chunk, and an odd payload no pad byte.
TEST(WavWriter, WritesThePlain44ByteHeaderAndTheGivenPayload) {
    EXPECT_THAT(buildWavFileData(record(1, 2, 4, 16, Bytes(8, 9)), Bytes{1, 2, 3, 4}),
                ElementsAreArray<std::uint8_t>({'R', 'I', 'F', 'F', 0x28, 0,    0,    0, 'W', 'A', 'V', 'E',
                                                'f', 'm', 't', ' ', 0x10, 0,    0,    0, 1,   0,   2,   0,
                                                0x44, 0xAC, 0, 0,   0x10, 0xB1, 0x02, 0, 4,   0,   16,  0,
                                                'd', 'a', 't', 'a', 4,    0,    0,    0, 1,   2,   3,   4}));
    EXPECT_THAT(buildWavFileData(WavData{3, 0, 0, 0xDEAD'BEEF, 7, 64, {}}, Bytes{0x80, 0x7F, 0x81}),
                ElementsAreArray<std::uint8_t>({'R', 'I', 'F', 'F', 39,   0,    0,    0,    'W', 'A', 'V', 'E',
                                                'f', 'm', 't', ' ', 16,   0,    0,    0,    3,   0,   0,   0,
                                                0,   0,   0,   0,   0xEF, 0xBE, 0xAD, 0xDE, 7,   0,   64,  0,
                                                'd', 'a', 't', 'a', 3,    0,    0,    0,    0x80, 0x7F, 0x81}));
}

// Every width the reader accepts at several rates, odd lengths and 1 to 8
// channels: reading back what was written gives the same record.
TEST(WavWriter, RoundTripsEveryWidthThroughTheReader) {
    const std::pair<std::uint16_t, std::uint16_t> widths[] = {{1, 8}, {1, 16}, {1, 24}, {1, 32}, {3, 32}, {3, 64}};
    std::uint32_t noise = 12345;
    for (const auto& [format, bits] : widths) {
        for (const std::uint32_t rate : {8000u, 192000u}) {
            for (const std::size_t frames : {0, 1, 7, 2049}) {
                for (const std::uint16_t channels : std::initializer_list<std::uint16_t>{1, 2, 3, 8}) {
                    const auto blockAlign = static_cast<std::uint16_t>(channels * bits / 8);
                    Bytes pcm(frames * blockAlign);
                    for (auto& byte : pcm)
                        byte = static_cast<std::uint8_t>((noise = noise * 1664525u + 1013904223u) >> 24);
                    const WavData wav = record(format, channels, blockAlign, bits, pcm, rate);
                    ASSERT_EQ(parseWav(buildWavFileData(wav, pcm)), wav)
                        << bits << " bits at " << rate << ", " << frames << " frames, " << channels << " channels";
                }
            }
        }
    }
}

} // namespace
} // namespace marquetry::audio

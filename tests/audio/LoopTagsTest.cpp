#include "audio/LoopTags.hpp"
#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"

#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstring>

namespace marquetry::audio {
namespace {

using test::record;

// libsndfile reads from memory through these.
struct MemoryFile {
    const Bytes* bytes;
    sf_count_t position = 0;
};

SF_VIRTUAL_IO memoryIo() {
    SF_VIRTUAL_IO io{};
    io.get_filelen = [](void* user) { return static_cast<sf_count_t>(static_cast<MemoryFile*>(user)->bytes->size()); };
    io.seek = [](sf_count_t offset, int whence, void* user) {
        auto* file = static_cast<MemoryFile*>(user);
        const auto size = static_cast<sf_count_t>(file->bytes->size());
        file->position = whence == SEEK_SET ? offset : whence == SEEK_CUR ? file->position + offset : size + offset;
        return file->position;
    };
    io.read = [](void* out, sf_count_t count, void* user) {
        auto* file = static_cast<MemoryFile*>(user);
        const auto size = static_cast<sf_count_t>(file->bytes->size());
        const sf_count_t got = std::max<sf_count_t>(0, std::min(count, size - file->position));
        if (got > 0)
            std::memcpy(out, file->bytes->data() + file->position, static_cast<std::size_t>(got));
        file->position += got;
        return got;
    };
    io.write = [](const void*, sf_count_t, void*) { return sf_count_t{0}; };
    io.tell = [](void* user) { return static_cast<MemoryFile*>(user)->position; };
    return io;
}

// A host reads the tempo, beats, meter, loop and unity note we write, in
// every layout we export, and our own reader still finds the samples behind
// them.
TEST(LoopTags, AreReadBackByLibsndfileAndSkippedByOurReader) {
    const std::pair<std::uint16_t, std::uint16_t> widths[] = {{1, 8}, {1, 16}, {1, 24}, {3, 32}};
    for (const auto& [format, bits] : widths) {
        for (const std::uint16_t channels : std::initializer_list<std::uint16_t>{1, 2}) {
            SCOPED_TRACE(testing::Message() << bits << " bits, " << channels << " channels");
            const std::uint16_t blockAlign = static_cast<std::uint16_t>(channels * bits / 8);
            const FrameCount frames = 44100;
            Bytes pcm(static_cast<std::size_t>(frames) * blockAlign);
            for (std::size_t i = 0; i < pcm.size(); ++i)
                pcm[i] = static_cast<std::uint8_t>(i * 7);
            const WavData wav = record(format, channels, blockAlign, bits);
            // An odd label length checks the padding inside the list.
            const std::int64_t meter = channels == 1 ? 4 : 3;
            const LoopTags tags{126.5, 2, {{0, "slice 01"}, {11025, "slice 07 reversed"}, {30000, "x"}}, meter};
            const Bytes image = buildWavFileData(wav, pcm, loopTagChunks(tags, wav, frames));

            const WavData read = parseWav(image);
            EXPECT_EQ(read.pcmData, pcm);
            EXPECT_EQ(read.bitsPerSample, bits);

            MemoryFile file{&image};
            SF_VIRTUAL_IO io = memoryIo();
            SF_INFO info{};
            SNDFILE* sound = sf_open_virtual(&io, SFM_READ, &info, &file);
            ASSERT_NE(sound, nullptr) << sf_strerror(nullptr);
            EXPECT_EQ(info.frames, frames);
            SF_LOOP_INFO loop{};
            ASSERT_EQ(sf_command(sound, SFC_GET_LOOP_INFO, &loop, sizeof loop), SF_TRUE);
            EXPECT_FLOAT_EQ(static_cast<float>(loop.bpm), 126.5f);
            EXPECT_EQ(loop.num_beats, 2);
            EXPECT_EQ(loop.loop_mode, SF_LOOP_FORWARD);
            EXPECT_EQ(loop.time_sig_num, meter);
            EXPECT_EQ(loop.time_sig_den, 4);
            EXPECT_EQ(loop.root_key, 60);
            SF_INSTRUMENT instrument{};
            ASSERT_EQ(sf_command(sound, SFC_GET_INSTRUMENT, &instrument, sizeof instrument), SF_TRUE);
            EXPECT_EQ(instrument.basenote, 60);
            ASSERT_EQ(instrument.loop_count, 1);
            EXPECT_EQ(instrument.loops[0].mode, SF_LOOP_FORWARD);
            EXPECT_EQ(instrument.loops[0].start, 0u);
            // The last frame, inclusive as written, or one past it as some versions report.
            EXPECT_GE(instrument.loops[0].end, static_cast<unsigned>(frames - 1));
            EXPECT_LE(instrument.loops[0].end, static_cast<unsigned>(frames));
            SF_CUES cues{};
            ASSERT_EQ(sf_command(sound, SFC_GET_CUE, &cues, sizeof cues), SF_TRUE);
            ASSERT_EQ(cues.cue_count, 3u);
            EXPECT_EQ(cues.cue_points[1].sample_offset, 11025u);
            EXPECT_EQ(cues.cue_points[2].sample_offset, 30000u);
            sf_close(sound);
        }
    }
}

TEST(LoopTags, NoChunksGiveThePlainImage) {
    const WavData wav = record(1, 2, 4, 16);
    const Bytes pcm{1, 2, 3, 4};
    EXPECT_EQ(buildWavFileData(wav, pcm, {}), buildWavFileData(wav, pcm));
    EXPECT_EQ(buildWavFileData(wav, pcm, {}).size(), 48u);
}

} // namespace
} // namespace marquetry::audio

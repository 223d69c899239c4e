// Join fades on real breaks in every sample layout, and on loops too short
// for the fade.
#include "chop/JoinFades.hpp"

#include "audio/WavReader.hpp"

#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace marquetry::chop {
namespace {

using audio::FrameCount;
using audio::FrameIndex;
using audio::WavData;

// A sample in quantisation steps: integers as stored (8-bit around 128),
// floats times 2^23, so one step is 1 in every layout.
double sampleAt(const WavData& format, const Bytes& pcm, FrameIndex frame, int channel) {
    const std::uint8_t* p =
        pcm.data() + frame * format.blockAlign + static_cast<std::size_t>(channel) * format.bitsPerSample / 8;
    if (format.audioFormat == audio::formatFloat) {
        float value;
        std::memcpy(&value, p, 4);
        return value * 8388608.0;
    }
    switch (format.bitsPerSample) {
    case 8: return p[0] - 128;
    case 16: return static_cast<std::int16_t>(p[0] | (p[1] << 8));
    case 24: return ((p[0] << 8) | (p[1] << 16) | (p[2] << 24)) >> 8;
    default: {
        std::int32_t value;
        std::memcpy(&value, p, 4);
        return value;
    }
    }
}

std::vector<FrameIndex> sliceStarts(const VariationPlan& plan, const WavData& format) {
    std::vector<FrameIndex> starts;
    for (const Placement& placement : plan.placements)
        starts.push_back(placement.byteOffset / format.blockAlign);
    return starts;
}

TEST(JoinFades, LengthInFramesIsRoundedFromMillisecondsAndLimited) {
    const struct {
        std::int64_t ms;
        std::uint32_t rate;
        FrameCount frames;
    } cases[] = {{5, 44100, 221}, {1, 44100, 44}, {50, 48000, 2400}, {0, 44100, 0},   {-3, 44100, 0},
                 {5, 0, 0},       {51, 1000, 50}, {1, 4294967295u, 4294967}, {1, 500, 1}, {1, 499, 0}};
    for (const auto& c : cases)
        EXPECT_EQ(joinFadeFrames(c.ms, c.rate), c.frames) << c.ms << " ms at " << c.rate;
}

// Every join and both loop ends fall silent, nothing outside the ramps
// changes, the length stays, and no step at a join is larger than a step
// inside a slice.
TEST(JoinFades, RealLoopsFallSilentAtEveryJoinAndChangeNothingElse) {
    const ChopModel models[] = {ChopModel::grid, ChopModel::transient, ChopModel::dice, ChopModel::glitch};
    for (const char* name : {"amen_u8.wav", "amen_s16.wav", "amen_s24.wav", "amen_s32.wav", "amen_f32.wav"}) {
        const std::vector<WavData> sources{audio::loadWav(audio::test::testLoopPath(name))};
        const WavData& format = sources[0];
        const FrameCount fade = joinFadeFrames(5, format.sampleRate);
        for (const ChopModel model : models) {
            SCOPED_TRACE(std::string(name) + " " + std::string(label(model)));
            SeededGenerator rng(11);
            const PlanSettings settings{16, model, 3, 0.9, 5};
            const RunPlan plan = planRun(sources, settings, rng);
            const auto plain = renderVariations(plan.variations, plan.pool, sources, 10, {16, model, 3, 0.9, 0});
            const auto faded = renderVariations(plan.variations, plan.pool, sources, 10, settings);
            for (std::size_t v = 0; v < plan.variations.size(); ++v) {
                EXPECT_EQ(plain[v].pcm, renderVariation(plan.variations[v], plan.pool, sources));
                const Bytes& pcm = faded[v].pcm;
                ASSERT_EQ(pcm.size(), plain[v].pcm.size());
                const FrameCount frames = audio::frameCount(pcm.size(), format.blockAlign);
                std::vector<FrameIndex> starts = sliceStarts(plan.variations[v], format);
                starts.push_back(frames);
                double largestInside = 0;
                double largestAtJoin = 0;
                for (std::size_t s = 0; s + 1 < starts.size(); ++s) {
                    const FrameIndex first = starts[s];
                    const FrameIndex end = starts[s + 1];
                    const FrameCount ramp = std::min(fade, (end - first) / 2);
                    for (int c = 0; c < format.channels; ++c) {
                        ASSERT_LE(std::abs(sampleAt(format, pcm, first, c)), 1.0) << "frame " << first;
                        ASSERT_LE(std::abs(sampleAt(format, pcm, end - 1, c)), 1.0) << "frame " << end - 1;
                        if (first > 0)
                            largestAtJoin = std::max(largestAtJoin, std::abs(sampleAt(format, pcm, first, c)
                                                                             - sampleAt(format, pcm, first - 1, c)));
                        for (FrameIndex f = first + 1; f < end; ++f)
                            largestInside = std::max(largestInside, std::abs(sampleAt(format, pcm, f, c)
                                                                             - sampleAt(format, pcm, f - 1, c)));
                    }
                    const auto from = static_cast<std::ptrdiff_t>((first + ramp) * format.blockAlign);
                    const auto to = static_cast<std::ptrdiff_t>((end - ramp) * format.blockAlign);
                    ASSERT_TRUE(std::equal(pcm.begin() + from, pcm.begin() + to, plain[v].pcm.begin() + from))
                        << "slice from frame " << first;
                }
                EXPECT_LE(largestAtJoin, largestInside);
            }
        }
    }
}

// Slices of one to a few frames under a fade hundreds of frames long, in
// every layout the fade handles and a few it leaves alone; under ASan this
// also proves that no ramp reaches past its buffer.
TEST(JoinFades, SlicesShorterThanTheFadeAreRampedWithinThemselves) {
    const struct {
        const char* what;
        WavData format;
        bool faded;
    } layouts[] = {
        {"u8 mono", audio::test::record(audio::formatPcm, 1, 1, 8), true},
        {"s16 stereo", audio::test::record(audio::formatPcm, 2, 4, 16), true},
        {"s24 3ch", audio::test::record(audio::formatPcm, 3, 9, 24), true},
        {"s32 padded", audio::test::record(audio::formatPcm, 1, 6, 32), true},
        {"f32 stereo", audio::test::record(audio::formatFloat, 2, 8, 32), true},
        {"f64", audio::test::record(audio::formatFloat, 1, 8, 64), false},
        {"s16 wider than its frame", audio::test::record(audio::formatPcm, 4, 4, 16), false},
        {"no channels", audio::test::record(audio::formatPcm, 0, 2, 16), false},
    };
    for (const auto& [what, format, faded] : layouts) {
        for (const FrameCount sliceFrames : {1, 2, 3, 5}) {
            SCOPED_TRACE(std::string(what) + ", slices of " + std::to_string(sliceFrames));
            VariationPlan plan;
            for (std::int64_t i = 0; i < 3; ++i)
                plan.placements.push_back({i, i * sliceFrames * format.blockAlign, sliceFrames * format.blockAlign, {}});
            // A partial frame at the end, as a mashup of mixed formats leaves.
            plan.byteCount = 3 * sliceFrames * format.blockAlign + format.blockAlign / 2;
            const Bytes loud(static_cast<std::size_t>(plan.byteCount), 0x40);
            Bytes pcm = loud;
            applyJoinFades(pcm, plan, format, 220);
            ASSERT_EQ(pcm.size(), loud.size());
            if (!faded) {
                EXPECT_EQ(pcm, loud);
                continue;
            }
            for (FrameIndex frame = 0; frame < 3 * sliceFrames; ++frame) {
                const FrameIndex inSlice = frame % sliceFrames;
                const bool atJoin = inSlice == 0 || inSlice == sliceFrames - 1;
                const bool middle = sliceFrames % 2 == 1 && inSlice == sliceFrames / 2 && sliceFrames > 1;
                for (int c = 0; c < format.channels; ++c) {
                    const double value = sampleAt(format, pcm, frame, c);
                    if (atJoin) {
                        EXPECT_LE(std::abs(value), 1.0) << "frame " << frame;
                    } else if (middle) {
                        EXPECT_EQ(value, sampleAt(format, loud, frame, c)) << "frame " << frame;
                    }
                }
            }
            EXPECT_TRUE(std::equal(pcm.end() - format.blockAlign / 2, pcm.end(), loud.end() - format.blockAlign / 2));
        }
    }
}

// Gains of 3/4, 1/2 and 1/4 are exact in every layout's precision, so each
// gained integer must be the exact product rounded half away from zero: at
// full scale, at .5, and at .25 of a 32-bit value, which single precision
// would get wrong.
TEST(JoinFades, GainedIntegersRoundHalfAwayFromZeroAtFullScale) {
    for (const int bits : {8, 16, 24, 32}) {
        SCOPED_TRACE(std::to_string(bits) + " bits");
        const std::int64_t lowest = -(std::int64_t{1} << (bits - 1));
        const std::int64_t values[] = {lowest, lowest + 1, -lowest - 1, -lowest - 2, -3, -1, 1, 3};
        const auto channels = static_cast<int>(std::size(values));
        const WavData format = audio::test::record(audio::formatPcm, static_cast<std::uint16_t>(channels),
                                                   static_cast<std::uint16_t>(channels * bits / 8),
                                                   static_cast<std::uint16_t>(bits));
        Bytes pcm;
        for (FrameIndex frame = 0; frame < 4; ++frame)
            for (const std::int64_t value : values)
                audio::test::putLE(pcm, static_cast<std::uint64_t>(bits == 8 ? value + 128 : value), bits / 8);
        applyEndFade(pcm, format, 4, 4);
        for (FrameIndex frame = 0; frame < 4; ++frame) {
            for (int c = 0; c < channels; ++c) {
                const std::int64_t quarters = values[c] * (3 - frame);
                const std::int64_t rounded = (std::abs(quarters) + 2) / 4;
                EXPECT_EQ(sampleAt(format, pcm, frame, c), static_cast<double>(quarters < 0 ? -rounded : rounded))
                    << values[c] << " times " << 3 - frame << "/4";
            }
        }
    }
}

} // namespace
} // namespace marquetry::chop

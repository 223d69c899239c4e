#include "chop/Slicing.hpp"

#include "audio/AppError.hpp"

#include "support/WavImageBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace marquetry::chop {
namespace {

using audio::AppError;
using audio::test::numberedFrames;
using testing::StrEq;
using testing::ThrowsMessage;

// Each slice of numbered mono frames as (frames, the number of its first
// frame), -1 standing for no first frame.
using Shape = std::vector<std::pair<FrameCount, std::int64_t>>;
Shape shapeOf(const std::vector<Slice>& slices) {
    Shape shape;
    for (const Slice& s : slices)
        shape.emplace_back(std::ssize(s) / 2, s.empty() ? -1 : s[0] | (s[1] << 8));
    return shape;
}

TEST(SplitSlices, GivesEvenSlicesWithTheRemainderLastAndNoPartialFrame) {
    auto partial = numberedFrames(9);
    partial.pcmData.push_back(0x7F);
    EXPECT_EQ(shapeOf(splitSlices(numberedFrames(10).pcmData, 2, 4)), (Shape{{2, 0}, {2, 2}, {2, 4}, {4, 6}}));
    EXPECT_EQ(shapeOf(splitSlices(numberedFrames(4).pcmData, 2, 4)), (Shape{{1, 0}, {1, 1}, {1, 2}, {1, 3}}));
    EXPECT_EQ(shapeOf(splitSlices(partial.pcmData, 2, 3)), (Shape{{3, 0}, {3, 3}, {3, 6}}));
}

TEST(SplitSlices, RefusesTooFewFramesAndNonPositiveCounts) {
    const Bytes threeFrames = numberedFrames(3).pcmData;
    EXPECT_THAT([&] { splitSlices(threeFrames, 2, 4); },
                ThrowsMessage<AppError>(StrEq("Input loop too short for 4 slices.")));
    EXPECT_THAT([&] { splitSlices(threeFrames, 2, -2); },
                ThrowsMessage<AppError>(StrEq("Calculated zero-length slices.")));
}

TEST(SplitSlicesByBoundaries, ClampsAndNeverReadsPastTheData) {
    const std::pair<Boundaries, Shape> cases[] = {
        {{0, 5, 5, 9}, {{5, 0}, {1, 5}, {4, 5}}},
        {{-3, 4, 12}, {{4, 0}, {5, 4}}},
        {{6, 2}, {{1, 6}}},
        {{0}, {}},
        {{9, 9, 20}, {{0, -1}, {0, -1}}}, // nothing left to give past the end
    };
    const Bytes nineFrames = numberedFrames(9).pcmData;
    for (const auto& [boundaries, expected] : cases)
        EXPECT_EQ(shapeOf(splitSlicesByBoundaries(nineFrames, 2, boundaries)), expected)
            << testing::PrintToString(boundaries);
}

TEST(StochasticBoundaries, TileTheSourceWithOneSliceOrMoreEach) {
    for (const ChopModel model : {ChopModel::dice, ChopModel::swarm}) {
        for (std::uint64_t seed = 1; seed <= 10; ++seed) {
            for (const auto& [frames, count] : {std::pair<FrameCount, std::int64_t>{16, 16}, {17, 16}, {1000, 7},
                                               {44100, 128}, {441000, 4}, {129, 128}}) {
                SeededGenerator rng(seed);
                const Boundaries b = buildStochasticBoundaries(frames, count, rng, model);
                ASSERT_EQ(b.size(), static_cast<std::size_t>(count) + 1);
                EXPECT_TRUE(b.front() == 0 && b.back() == frames);
                for (std::size_t i = 1; i < b.size(); ++i)
                    ASSERT_LT(b[i - 1], b[i]) << label(model) << " seed " << seed << " frames " << frames;
            }
        }
    }
}

TEST(StochasticBoundaries, EndWhenSlicesOutnumberFramesAndDrawNothingForNone) {
    for (const ChopModel model : {ChopModel::dice, ChopModel::swarm}) {
        SeededGenerator rng(5);
        const Boundaries b = buildStochasticBoundaries(5, 16, rng, model);
        EXPECT_TRUE(b.size() == 17u && b.back() == 5 && std::is_sorted(b.begin(), b.end())) << label(model);

        SeededGenerator untouched(5);
        EXPECT_EQ(buildStochasticBoundaries(0, 16, untouched, model), (Boundaries{0, 1}));
        EXPECT_EQ(untouched, SeededGenerator(5));
    }
}

// The even split refuses a source with fewer frames than slices; the other
// cuts give one frame per slice at most, and nothing for no frames.
TEST(CreateSlices, DropsEmptySlicesOfATinySourceOrRefusesItForAnEvenSplit) {
    const auto wav = numberedFrames(3);
    for (const ChopModel model : allChopModels) {
        SeededGenerator rng(1);
        if (model == ChopModel::transient || model == ChopModel::dice || model == ChopModel::swarm)
            EXPECT_EQ(shapeOf(createSlices(wav, 8, model, rng)), (Shape{{1, 0}, {1, 1}, {1, 2}})) << label(model);
        else
            EXPECT_THAT([&] { createSlices(wav, 8, model, rng); },
                        ThrowsMessage<AppError>(StrEq("Input loop too short for 8 slices.")))
                << label(model);
    }
    SeededGenerator rng(1);
    EXPECT_TRUE(createSlices(numberedFrames(0), 8, ChopModel::swarm, rng).empty());
}

} // namespace
} // namespace marquetry::chop

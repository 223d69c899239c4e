#include "chop/Slicing.hpp"

#include "TestRecords.hpp"
#include "audio/AppError.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace marquetry::chop {
namespace {

using audio::AppError;

std::vector<FrameCount> frameSizes(const std::vector<Slice>& slices, std::int64_t blockAlign) {
    std::vector<FrameCount> sizes;
    for (const Slice& slice : slices)
        sizes.push_back(static_cast<FrameCount>(slice.size()) / blockAlign);
    return sizes;
}

// The frame number stored in the first sample of a numbered mono slice.
std::int64_t firstFrame(const Slice& slice) { return slice[0] | (slice[1] << 8); }

TEST(SplitSlices, GivesEvenSlicesWithTheRemainderLast) {
    const auto wav = test::numberedFrames(10);
    const auto slices = splitSlices(wav.pcmData, 2, 4);
    EXPECT_EQ(frameSizes(slices, 2), (std::vector<FrameCount>{2, 2, 2, 4}));
    EXPECT_EQ(firstFrame(slices[3]), 6);

    EXPECT_EQ(frameSizes(splitSlices(test::numberedFrames(4).pcmData, 2, 4), 2),
              (std::vector<FrameCount>{1, 1, 1, 1}));
}

TEST(SplitSlices, LeavesOutATrailingPartialFrame) {
    auto wav = test::numberedFrames(9);
    wav.pcmData.push_back(0x7F);
    const auto slices = splitSlices(wav.pcmData, 2, 3);
    EXPECT_EQ(frameSizes(slices, 2), (std::vector<FrameCount>{3, 3, 3}));
    EXPECT_EQ(slices[2].size(), 6u);
}

TEST(SplitSlices, RefusesTooFewFramesAndNonPositiveCounts) {
    EXPECT_THROW(
        {
            try {
                splitSlices(test::numberedFrames(3).pcmData, 2, 4);
            } catch (const AppError& error) {
                EXPECT_EQ(error, AppError::invalidWav("Input loop too short for 4 slices."));
                throw;
            }
        },
        AppError);
    EXPECT_THROW(splitSlices({}, 4, 4), AppError);
    try {
        splitSlices(test::numberedFrames(3).pcmData, 2, -2);
        FAIL() << "a negative count must be refused";
    } catch (const AppError& error) {
        EXPECT_EQ(error.errorDescription(), "Calculated zero-length slices.");
    }
}

TEST(SplitSlicesByBoundaries, ClampsAndNeverReadsPastTheData) {
    const auto wav = test::numberedFrames(9);
    const auto slices = splitSlicesByBoundaries(wav.pcmData, 2, {0, 5, 5, 9});
    ASSERT_EQ(frameSizes(slices, 2), (std::vector<FrameCount>{5, 1, 4}));
    EXPECT_EQ(firstFrame(slices[1]), 5);
    EXPECT_EQ(firstFrame(slices[2]), 5);

    EXPECT_EQ(frameSizes(splitSlicesByBoundaries(wav.pcmData, 2, {-3, 4, 12}), 2), (std::vector<FrameCount>{4, 5}));
    EXPECT_EQ(frameSizes(splitSlicesByBoundaries(wav.pcmData, 2, {6, 2}), 2), (std::vector<FrameCount>{1}));
    EXPECT_TRUE(splitSlicesByBoundaries(wav.pcmData, 2, {0}).empty());
    // Pairs starting at or past the end have no frame to give.
    EXPECT_EQ(frameSizes(splitSlicesByBoundaries(wav.pcmData, 2, {9, 9, 20}), 2), (std::vector<FrameCount>{0, 0}));
    EXPECT_EQ(frameSizes(splitSlicesByBoundaries({}, 2, {0, 1}), 2), (std::vector<FrameCount>{0}));
}

class StochasticBoundaries : public testing::TestWithParam<ChopModel> {};

TEST_P(StochasticBoundaries, TileTheSourceWithOneSliceOrMoreEach) {
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
        for (const auto& [frames, count] : {std::pair<FrameCount, std::int64_t>{16, 16}, {17, 16}, {1000, 7},
                                           {44100, 128}, {441000, 4}, {129, 128}}) {
            SeededGenerator rng(seed);
            const Boundaries b = buildStochasticBoundaries(frames, count, rng, GetParam());
            ASSERT_EQ(b.size(), static_cast<std::size_t>(count) + 1);
            EXPECT_EQ(b.front(), 0);
            EXPECT_EQ(b.back(), frames);
            for (std::size_t i = 1; i < b.size(); ++i)
                ASSERT_LT(b[i - 1], b[i]) << "seed " << seed << " frames " << frames << " count " << count;
        }
    }
}

TEST_P(StochasticBoundaries, AreDeterminedByTheGeneratorState) {
    SeededGenerator first(99);
    SeededGenerator second(99);
    EXPECT_EQ(buildStochasticBoundaries(50000, 32, first, GetParam()),
              buildStochasticBoundaries(50000, 32, second, GetParam()));
    EXPECT_EQ(first, second);

    // Each weight takes two draws at least.
    SeededGenerator counted(99);
    SeededGenerator reference(99);
    buildStochasticBoundaries(50000, 32, counted, GetParam());
    for (int i = 0; i < 2 * 32; ++i, reference.next())
        ASSERT_NE(counted, reference) << "only " << i << " outputs taken";
}

TEST_P(StochasticBoundaries, EndWhenSlicesOutnumberFrames) {
    SeededGenerator rng(5);
    const Boundaries b = buildStochasticBoundaries(5, 16, rng, GetParam());
    ASSERT_EQ(b.size(), 17u);
    EXPECT_EQ(b.back(), 5);
    EXPECT_TRUE(std::is_sorted(b.begin(), b.end()));

    SeededGenerator untouched(5);
    EXPECT_EQ(buildStochasticBoundaries(0, 16, untouched, GetParam()), (Boundaries{0, 1}));
    EXPECT_EQ(untouched, SeededGenerator(5));
}

INSTANTIATE_TEST_SUITE_P(DiceAndSwarm, StochasticBoundaries, testing::Values(ChopModel::dice, ChopModel::swarm),
                         [](const auto& modelInfo) { return std::string(label(modelInfo.param)); });

TEST(CreateSlices, OnlyDiceAndSwarmDrawFromTheGenerator) {
    const auto wav = test::numberedFrames(4000);
    for (const ChopModel model : allChopModels) {
        SeededGenerator rng(42);
        const auto slices = createSlices(wav, 16, model, rng);
        const bool draws = model == ChopModel::dice || model == ChopModel::swarm;
        EXPECT_EQ(rng != SeededGenerator(42), draws) << label(model);
        EXPECT_FALSE(slices.empty());
        EXPECT_LE(slices.size(), 16u);
        for (const Slice& slice : slices)
            EXPECT_FALSE(slice.empty()) << label(model);
    }
}

TEST(CreateSlices, DropsEmptySlicesOfATinySource) {
    const auto wav = test::numberedFrames(3);
    for (const ChopModel model : {ChopModel::transient, ChopModel::dice, ChopModel::swarm}) {
        SeededGenerator rng(1);
        const auto slices = createSlices(wav, 8, model, rng);
        EXPECT_EQ(frameSizes(slices, 2), (std::vector<FrameCount>{1, 1, 1})) << label(model);
    }
    SeededGenerator rng(1);
    EXPECT_THROW(createSlices(wav, 8, ChopModel::grid, rng), AppError);
    EXPECT_TRUE(createSlices(test::numberedFrames(0), 8, ChopModel::swarm, rng).empty());
}

} // namespace
} // namespace marquetry::chop

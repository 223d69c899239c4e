#include "chop/PatternGenerators.hpp"

#include <gtest/gtest.h>

#include <array>

namespace marquetry::chop {
namespace {

TEST(PatternGenerators, EachGeneratorMatchesItsKnownSequenceForSeed42) {
    const auto dice = [](std::int64_t n, SeededGenerator& rng) { return generatePattern(ChopModel::dice, n, rng); };
    const struct {
        const char* name;
        Pattern (*generate)(std::int64_t, SeededGenerator&);
        std::int64_t n;
        Pattern expected;
    } table[] = {
        {"grid-like", generatePatternGridLike, 16, {0, 4, 3, 4, 1, 1, 0, 7, 3, 1, 0, 2, 11, 7, 6, 4}},
        {"grid-like", generatePatternGridLike, 8, {0, 2, 5, 4, 4, 4, 3, 5}},
        {"dice", dice, 16, {0, 4, 3, 4, 1, 1, 0, 7, 1, 1, 0, 2, 3, 5, 6, 4}},
        {"pivot", generatePatternPivot, 16, {0, 0, 0, 4, 4, 3, 1, 2, 0, 0, 0, 4, 8, 6, 9, 9}},
        {"pivot", generatePatternPivot, 8, {0, 0, 0, 0, 0, 0, 1, 2}},
        {"interlock", generatePatternInterlock, 16, {0, 11, 0, 7, 15, 4, 4, 3, 3, 1, 8, 7, 6, 12, 12, 6}},
        {"interlock", generatePatternInterlock, 8, {0, 5, 7, 6, 1, 6, 6, 2}},
        {"drift", generatePatternDrift, 16, {0, 0, 0, 0, 8, 8, 9, 8, 0, 0, 1, 0, 0, 0, 2, 2}},
        {"drift", generatePatternDrift, 8, {0, 0, 0, 0, 4, 4, 5, 4}},
        {"momentum", generatePatternMomentum, 16, {0, 1, 4, 4, 4, 5, 9, 8, 8, 9, 7, 11, 12, 13, 1, 1}},
        {"momentum", generatePatternMomentum, 8, {0, 2, 2, 2, 1, 4, 0, 5}},
    };
    for (const auto& row : table) {
        SeededGenerator rng(42);
        EXPECT_EQ(row.generate(row.n, rng), row.expected) << row.name << " " << row.n;
    }
}

TEST(PatternGenerators, WeightedChoiceFavoursTheValues0To12InStepsOf4) {
    SeededGenerator rng(42);
    const std::array<std::int64_t, 8> firstBar{0, 1, 2, 3, 4, 5, 6, 7};
    Pattern choices;
    for (int i = 0; i < 10; ++i)
        choices.push_back(weightedChoice(firstBar, rng));
    EXPECT_EQ(choices, (Pattern{5, 0, 1, 2, 0, 6, 1, 6, 2, 4}));

    // The weight follows the value, not its position: 16..28 weigh 2, 12 last weighs 4.
    const std::array<std::int64_t, 5> options{16, 20, 24, 28, 12};
    SeededGenerator twin = rng;
    for (int i = 0; i < 100; ++i) {
        const std::uint64_t r = twin.next(12);
        ASSERT_EQ(weightedChoice(options, rng), r < 8 ? options[r / 2] : 12) << "draw " << i;
    }
}

TEST(PatternGenerators, EveryPatternFillsThePoolWithValidIndices) {
    for (std::uint64_t seed = 0; seed < 4; ++seed) {
        SeededGenerator rng(seed);
        for (std::int64_t n = 1; n <= 130; ++n) {
            for (const ChopModel model : allChopModels) {
                const Pattern pattern = generatePattern(model, n, rng);
                ASSERT_EQ(std::ssize(pattern), n) << label(model) << " n=" << n << " seed=" << seed;
                for (const std::int64_t entry : pattern)
                    ASSERT_TRUE(entry >= 0 && entry < n) << label(model) << " n=" << n << " entry=" << entry;
                // Only the grid walk may leave its first entry alone.
                const bool gridWalk =
                    model == ChopModel::grid || model == ChopModel::transient || model == ChopModel::dice;
                EXPECT_TRUE(gridWalk || pattern.front() == 0) << label(model) << " n=" << n;
            }
        }
    }
}

} // namespace
} // namespace marquetry::chop

#include "chop/PatternGenerators.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <vector>

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

// The grid walk written out plainly: each section's slices listed and every
// pick made by weightedChoice over them, as the walk did when it was
// quadratic in the slice count.
Pattern plainGridWalk(std::int64_t n, SeededGenerator& rng) {
    const std::int64_t g = std::max<std::int64_t>(1, n / 4);
    std::int64_t section = 0;
    std::vector<std::int64_t> slices;
    Pattern pattern;
    for (std::int64_t i = 0; i < n; ++i) {
        if (i % g == 0) {
            std::vector<std::int64_t> candidates{section};
            if (section >= 1)
                candidates.push_back(section - 1);
            if (section < 3)
                candidates.push_back(section + 1);
            section = rng.randomElement(std::span<const std::int64_t>(candidates));
            const std::int64_t start = std::min(section * g, n - 1);
            slices.clear();
            for (std::int64_t slice = start; slice < std::min(start + g, n); ++slice)
                slices.push_back(slice);
        }
        const bool anySlice = rng.randomDouble(0, 1) < 0.2;
        pattern.push_back(anySlice ? static_cast<std::int64_t>(rng.next(static_cast<std::uint64_t>(n)))
                                   : weightedChoice(slices, rng));
    }
    if (rng.randomDouble(0, 1) < 0.8)
        pattern.front() = 0;
    return pattern;
}

TEST(PatternGenerators, GridWalkPicksExactlyAsWeightedChoiceOverItsSection) {
    std::vector<std::int64_t> counts(300);
    std::iota(counts.begin(), counts.end(), 1);
    counts.push_back(5000);
    for (std::uint64_t seed = 0; seed < 4; ++seed) {
        for (const std::int64_t n : counts) {
            SeededGenerator fast(seed * 7919 + static_cast<std::uint64_t>(n));
            SeededGenerator plain = fast;
            ASSERT_EQ(generatePatternGridLike(n, fast), plainGridWalk(n, plain)) << "n=" << n << " seed=" << seed;
            ASSERT_EQ(fast, plain) << "n=" << n << " seed=" << seed;
        }
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

#include "chop/PatternGenerators.hpp"

#include "chop/ChopRecipe.hpp"

#include <algorithm>
#include <array>
#include <cassert>

namespace marquetry::chop {
namespace {

constexpr std::array<std::int64_t, 7> pivotSteps{-3, -2, -1, 1, 2, 3, 4};
constexpr std::array<std::int64_t, 3> driftSteps{-1, 1, 2};

// Every value below is a slice count or index (>= 0), so the unsigned
// round trip through the generator's bound never changes it.
std::int64_t drawBelow(std::int64_t upperBound, SeededGenerator& rng) {
    return static_cast<std::int64_t>(rng.next(static_cast<std::uint64_t>(upperBound)));
}

double unitDraw(SeededGenerator& rng) { return rng.randomDouble(0.0, 1.0); }

template <std::size_t N>
std::int64_t pick(const std::array<std::int64_t, N>& table, SeededGenerator& rng) {
    return rng.randomElement(std::span<const std::int64_t>(table));
}

Pattern reservedPattern(std::int64_t sliceCount) {
    Pattern pattern;
    pattern.reserve(static_cast<std::size_t>(std::max<std::int64_t>(sliceCount, 0)));
    return pattern;
}

void applyReplacements(Pattern& pattern, std::int64_t sliceCount, double rate, SeededGenerator& rng) {
    for (std::int64_t& entry : pattern)
        if (unitDraw(rng) < rate)
            entry = drawBelow(sliceCount, rng);
}

} // namespace

Pattern generatePattern(ChopModel model, std::int64_t sliceCount, SeededGenerator& rng) {
    return generatePattern(recipe(model), sliceCount, rng);
}

Pattern generatePattern(const ChopRecipe& steps, std::int64_t sliceCount, SeededGenerator& rng) {
    Pattern pattern;
    switch (steps.order) {
    case Order::gridWalk: pattern = generatePatternGridLike(sliceCount, rng); break;
    case Order::pivot: pattern = generatePatternPivot(sliceCount, rng); break;
    case Order::interlock: pattern = generatePatternInterlock(sliceCount, rng); break;
    case Order::drift: pattern = generatePatternDrift(sliceCount, rng); break;
    case Order::momentum: pattern = generatePatternMomentum(sliceCount, rng); break;
    }
    if (steps.replacementRate > 0)
        applyReplacements(pattern, sliceCount, steps.replacementRate, rng);
    return pattern;
}

Pattern generatePatternGridLike(std::int64_t sliceCount, SeededGenerator& rng) {
    const std::int64_t n = sliceCount;
    const std::int64_t sectionLength = std::max<std::int64_t>(1, n / 4);
    std::int64_t section = 0;

    // The weighted choice over a section's contiguous slice indices, in
    // constant time with the very same draw: only the values up to 12 can be
    // heavy (the rule of weightedChoice), so past them every slice weighs 2
    // and the draw maps straight onto an index.
    const auto weight = [](std::int64_t value) -> std::uint64_t {
        return value == 0 || value == 4 || value == 8 || value == 12 ? 4 : 2;
    };
    std::int64_t start = 0;
    std::int64_t end = 0;
    std::uint64_t sectionWeight = 0;
    const auto weightedSlice = [&] {
        std::uint64_t r = rng.next(sectionWeight);
        std::int64_t slice = start;
        for (; slice < end && slice <= 12; ++slice) {
            if (r < weight(slice))
                return slice;
            r -= weight(slice);
        }
        return slice + static_cast<std::int64_t>(r / 2);
    };

    Pattern pattern = reservedPattern(n);
    for (std::int64_t i = 0; i < n; ++i) {
        if (i % sectionLength == 0) {
            // The list order (stay, back, forward) is what the draw indexes.
            std::array<std::int64_t, 3> candidates{section, 0, 0};
            std::size_t candidateCount = 1;
            if (section >= 1)
                candidates[candidateCount++] = section - 1;
            if (section < 3)
                candidates[candidateCount++] = section + 1;
            section = rng.randomElement(std::span<const std::int64_t>(candidates.data(), candidateCount));
            // With fewer than four slices the upper sections fall back onto the last slice.
            start = std::min(section * sectionLength, n - 1);
            end = std::min(start + sectionLength, n);
            sectionWeight = 2 * static_cast<std::uint64_t>(end - start);
            for (std::int64_t slice = start; slice < end && slice <= 12; ++slice)
                sectionWeight += weight(slice) - 2;
        }

        if (unitDraw(rng) < 0.2)
            pattern.push_back(drawBelow(n, rng));
        else
            pattern.push_back(weightedSlice());
    }
    if (!pattern.empty() && unitDraw(rng) < 0.8)
        pattern.front() = 0;
    return pattern;
}

Pattern generatePatternPivot(std::int64_t sliceCount, SeededGenerator& rng) {
    const std::int64_t n = sliceCount;
    const std::int64_t quarter = std::max<std::int64_t>(1, n / 4);
    const std::int64_t phrase = std::max<std::int64_t>(2, n / 4);
    // Only n = 1 leaves `quarter` out of range, and a single step never jumps.
    const std::array<std::int64_t, 4> anchors{0, quarter, std::min(2 * quarter, n - 1), std::min(3 * quarter, n - 1)};

    Pattern pattern = reservedPattern(n);
    std::int64_t current = 0;
    for (std::int64_t i = 0; i < n; ++i) {
        if (i > 0 && unitDraw(rng) >= 0.34) {
            bool jumped = false;
            if (i % phrase == 0 && unitDraw(rng) < 0.45) {
                current = pick(anchors, rng);
                jumped = true;
            }
            if (!jumped)
                current = std::clamp(current + pick(pivotSteps, rng), std::int64_t{0}, n - 1);
        }
        pattern.push_back(current);
    }
    return pattern;
}

Pattern generatePatternInterlock(std::int64_t sliceCount, SeededGenerator& rng) {
    const std::int64_t n = sliceCount;
    const std::int64_t bound = std::max<std::int64_t>(n, 1);
    const std::int64_t offsetA = drawBelow(bound, rng);
    const std::int64_t offsetB = drawBelow(bound, rng);
    const std::int64_t half = n == 1 ? 1 : n / 2;

    Pattern pattern = reservedPattern(n);
    std::int64_t last = 0;
    for (std::int64_t i = 0; i < n; ++i) {
        std::int64_t candidate = unitDraw(rng) < 0.55 ? (7 * i + offsetB) % n : (5 * i + offsetA) % n;
        if (i % 4 == 3 && unitDraw(rng) < 0.5)
            candidate = (candidate + drawBelow(half, rng)) % n;
        if (unitDraw(rng) >= 0.18)
            last = candidate;
        pattern.push_back(last);
    }
    if (!pattern.empty())
        pattern.front() = 0;
    return pattern;
}

Pattern generatePatternDrift(std::int64_t sliceCount, SeededGenerator& rng) {
    const std::int64_t n = sliceCount;
    const std::int64_t middle = std::max<std::int64_t>(1, n / 2);

    Pattern pattern = reservedPattern(n);
    for (std::int64_t i = 0; i < n; ++i) {
        if (i == 0) {
            pattern.push_back(0);
        } else if (i % 4 != 0) {
            const std::int64_t last = pattern.back();
            if (unitDraw(rng) < 0.62)
                pattern.push_back(last);
            else
                pattern.push_back(std::clamp(last + pick(driftSteps, rng), std::int64_t{0}, n - 1));
        } else {
            // A bar line returns to the top or the middle of the pool; i >= 4
            // means n >= 5, so the middle is a valid index.
            pattern.push_back(drawBelow(2, rng) == 0 ? 0 : middle);
        }
    }
    return pattern;
}

Pattern generatePatternMomentum(std::int64_t sliceCount, SeededGenerator& rng) {
    const std::int64_t n = sliceCount;
    const std::int64_t sectionLength = std::max<std::int64_t>(1, n / 4);

    Pattern pattern = reservedPattern(n);
    for (std::int64_t i = 0; i < n; ++i) {
        std::int64_t entry = i;
        // Signed on purpose: with sections of one or two slices every position
        // counts as one of the last two.
        if (i % sectionLength >= sectionLength - 2 && unitDraw(rng) < 0.7)
            entry = drawBelow(n, rng);
        if (!pattern.empty() && unitDraw(rng) < 0.2)
            entry = pattern.back();
        pattern.push_back(entry);
    }
    if (!pattern.empty())
        pattern.front() = 0;
    return pattern;
}

std::int64_t weightedChoice(std::span<const std::int64_t> options, SeededGenerator& rng) {
    assert(!options.empty());
    // The downbeats of the first bar (by value, not by position) are the heavy picks.
    const auto weight = [](std::int64_t value) -> std::uint64_t {
        return value == 0 || value == 4 || value == 8 || value == 12 ? 4 : 2;
    };
    std::uint64_t total = 0;
    for (const std::int64_t option : options)
        total += weight(option);

    const std::uint64_t r = rng.next(total);
    std::uint64_t runningSum = 0;
    for (const std::int64_t option : options) {
        runningSum += weight(option);
        if (r < runningSum)
            return option;
    }
    return options.back();
}

} // namespace marquetry::chop

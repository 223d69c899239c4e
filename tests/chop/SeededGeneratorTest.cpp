#include "chop/SeededGenerator.hpp"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace marquetry::chop {
namespace {

std::vector<std::uint64_t> firstOutputs(std::uint64_t seed, int count) {
    SeededGenerator rng(seed);
    std::vector<std::uint64_t> outputs;
    for (int i = 0; i < count; ++i)
        outputs.push_back(rng.next());
    return outputs;
}

TEST(SeededGenerator, ProducesTheKnownSplitMix64Streams) {
    EXPECT_EQ(firstOutputs(1, 3),
              (std::vector<std::uint64_t>{0x910A2DEC89025CC1, 0xBEEB8DA1658EEC67, 0xF893A2EEFB32555E}));
    EXPECT_EQ(firstOutputs(42, 3),
              (std::vector<std::uint64_t>{0xBDD732262FEB6E95, 0x28EFE333B266F103, 0x47526757130F9F52}));
    EXPECT_EQ(firstOutputs(0, 3),
              (std::vector<std::uint64_t>{0x6E789E6AA1B965F4, 0x06C45D188009454F, 0xF88BB8A8724C81EC}));
    EXPECT_EQ(firstOutputs(0, 50), firstOutputs(11400714819323198485ull, 50));
}

TEST(SeededGenerator, BoundedAndUnitDrawsMatchKnownValues) {
    SeededGenerator bounded(42);
    std::vector<std::uint64_t> draws;
    for (int i = 0; i < 8; ++i)
        draws.push_back(bounded.next(16));
    EXPECT_EQ(draws, (std::vector<std::uint64_t>{11, 2, 4, 5, 0, 13, 3, 12}));

    SeededGenerator unit(42);
    EXPECT_EQ(unit.randomDouble(0, 1), 0.7248717246943267);
    EXPECT_EQ(unit.randomDouble(0, 1), 0.49648461193240256);
    EXPECT_EQ(unit.randomDouble(0, 1), 0.575114762524189);
}

TEST(SeededGenerator, EachSimpleDrawConsumesExactlyOneOutput) {
    SeededGenerator rng(7);
    SeededGenerator reference(7);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(rng.next(1), 0u);
        reference.next();
        EXPECT_EQ(rng, reference);
        // Powers of two never redraw: the result is the top bits of one output.
        const std::uint64_t expectedTop2 = SeededGenerator(reference).next() >> 62;
        EXPECT_EQ(rng.next(4), expectedTop2);
        reference.next();
        rng.randomDouble(0, 1);
        reference.next();
        EXPECT_EQ(rng, reference);
    }
}

TEST(SeededGenerator, RangedDrawsStayInTheirRanges) {
    SeededGenerator rng(123);
    for (int i = 0; i < 20000; ++i) {
        const std::int64_t n = rng.randomIntClosed(-3, 4);
        EXPECT_GE(n, -3);
        EXPECT_LE(n, 4);
        const double half = rng.randomDouble(-2.5, 7.0);
        EXPECT_GE(half, -2.5);
        EXPECT_LT(half, 7.0);
        const double closed = rng.randomDoubleClosed(0.8, 1.2);
        EXPECT_GE(closed, 0.8);
        EXPECT_LE(closed, 1.2);
        EXPECT_LT(rng.next(3), 3u); // 3 exercises the rejection path
    }
    EXPECT_EQ(rng.randomIntClosed(5, 5), 5);
    EXPECT_EQ(rng.randomDoubleClosed(2.0, 2.0), 2.0);
}

TEST(SeededGenerator, RandomElementUsesTheBoundedDraw) {
    constexpr std::array<int, 5> list{10, 20, 30, 40, 50};
    SeededGenerator rng(9);
    SeededGenerator reference(9);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(rng.randomElement(std::span<const int>(list)), list[reference.next(5)]);
}

TEST(SeedFromText, ParsesUnsignedDecimalTextExactlyAsTyped) {
    const std::pair<const char*, std::optional<std::uint64_t>> cases[] = {
        {"42", 42},
        {"+42", 42},
        {"0", 0},
        {"+0", 0},
        {"-0", 0},
        {"-000", 0},
        {"000", 0},
        {"18446744073709551615", UINT64_MAX},
        {"18446744073709551616", std::nullopt},
        {"99999999999999999999", std::nullopt},
        {"-1", std::nullopt},
        {"-", std::nullopt},
        {"+", std::nullopt},
        {" 42", std::nullopt},
        {"42 ", std::nullopt},
        {"4 2", std::nullopt},
        {"4.2", std::nullopt},
        {"abc", std::nullopt},
        {"", std::nullopt},
        {"\xd9\xa4\xd9\xa2", std::nullopt}, // Arabic-Indic digits
        {"++1", std::nullopt},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(seedFromText(text), expected) << '"' << text << '"';
}

TEST(ResolveSeed, FallsBackToTheWallClockSecond) {
    EXPECT_EQ(resolveSeed("42", 1'700'000'000), 42u);
    EXPECT_EQ(resolveSeed("", 1'700'000'000), 1'700'000'000u);
    EXPECT_EQ(resolveSeed("seed", 1'700'000'000), 1'700'000'000u);
    EXPECT_EQ(resolveSeed("-0", 1'700'000'000), 0u);
}

} // namespace
} // namespace marquetry::chop

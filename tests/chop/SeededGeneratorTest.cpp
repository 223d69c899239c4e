#include "chop/SeededGenerator.hpp"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace marquetry::chop {
namespace {

TEST(SeededGenerator, ProducesTheKnownSplitMix64Streams) {
    const std::pair<std::uint64_t, std::vector<std::uint64_t>> streams[] = {
        {1, {0x910A2DEC89025CC1, 0xBEEB8DA1658EEC67, 0xF893A2EEFB32555E}},
        {42, {0xBDD732262FEB6E95, 0x28EFE333B266F103, 0x47526757130F9F52}},
        {0, {0x6E789E6AA1B965F4, 0x06C45D188009454F, 0xF88BB8A8724C81EC}},
    };
    for (const auto& [seed, expected] : streams) {
        SeededGenerator rng(seed);
        std::vector<std::uint64_t> outputs;
        for (std::size_t i = 0; i < expected.size(); ++i)
            outputs.push_back(rng.next());
        EXPECT_EQ(outputs, expected) << "seed " << seed;
    }
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

TEST(SeedFromText, ParsesUnsignedDecimalTextExactlyAsTyped) {
    const std::pair<const char*, std::optional<std::uint64_t>> cases[] = {
        {"42", 42}, {"+42", 42}, {"0", 0}, {"-0", 0}, {"-000", 0}, {"000", 0},
        {"18446744073709551615", UINT64_MAX}, {"18446744073709551616", std::nullopt},
        {"99999999999999999999", std::nullopt}, {"-1", std::nullopt}, {"-", std::nullopt}, {"+", std::nullopt},
        {" 42", std::nullopt}, {"42 ", std::nullopt}, {"4.2", std::nullopt}, {"abc", std::nullopt},
        {"", std::nullopt}, {"++1", std::nullopt}, {"\xd9\xa4\xd9\xa2", std::nullopt}, // Arabic-Indic digits
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(seedFromText(text), expected) << '"' << text << '"';
}

TEST(ResolveSeed, FallsBackToTheWallClockSecond) {
    for (const auto& [text, expected] : {std::pair<const char*, std::uint64_t>{"42", 42}, {"", 1'700'000'000},
                                         {"seed", 1'700'000'000}, {"-0", 0}})
        EXPECT_EQ(resolveSeed(text, 1'700'000'000), expected) << '"' << text << '"';
}

} // namespace
} // namespace marquetry::chop

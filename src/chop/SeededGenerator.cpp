#include "chop/SeededGenerator.hpp"

#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#endif

namespace marquetry::chop {
namespace {

struct Product128 {
    std::uint64_t high;
    std::uint64_t low;
};

Product128 multiply128(std::uint64_t a, std::uint64_t b) noexcept {
#if defined(__SIZEOF_INT128__)
    __extension__ using U128 = unsigned __int128;
    const U128 m = static_cast<U128>(a) * b;
    return {static_cast<std::uint64_t>(m >> 64), static_cast<std::uint64_t>(m)};
#else
    std::uint64_t high;
    const std::uint64_t low = _umul128(a, b, &high);
    return {high, low};
#endif
}

constexpr double unitScale = 0x1p-53; // 53 random bits to [0, 1)
constexpr std::uint64_t mantissaMask = (std::uint64_t{1} << 53) - 1;

} // namespace

std::uint64_t SeededGenerator::next(std::uint64_t upperBound) noexcept {
    Product128 m = multiply128(next(), upperBound);
    if (m.low < upperBound) {
        const std::uint64_t threshold = (0 - upperBound) % upperBound;
        while (m.low < threshold)
            m = multiply128(next(), upperBound);
    }
    return m.high;
}

std::int64_t SeededGenerator::randomIntClosed(std::int64_t lo, std::int64_t hi) noexcept {
    // Unsigned arithmetic keeps the full range [INT64_MIN, INT64_MAX] defined;
    // a span of 2^64 wraps to 0, which callers never ask for.
    const std::uint64_t span = static_cast<std::uint64_t>(hi) - static_cast<std::uint64_t>(lo) + 1;
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(lo) + next(span));
}

double SeededGenerator::randomDouble(double lo, double hi) noexcept {
    const double width = hi - lo;
    for (;;) {
        const double u = static_cast<double>(next() & mantissaMask) * unitScale;
        // Built with -ffp-contract=off: a multiply, then a separately rounded add.
        const double x = width * u + lo;
        if (x != hi)
            return x;
    }
}

double SeededGenerator::randomDoubleClosed(double lo, double hi) noexcept {
    const std::uint64_t r = next((std::uint64_t{1} << 53) + 1);
    if (r == (std::uint64_t{1} << 53))
        return hi;
    const double width = hi - lo;
    return width * (static_cast<double>(r) * unitScale) + lo;
}

std::optional<std::uint64_t> seedFromText(std::string_view seedText) {
    if (seedText.empty())
        return std::nullopt;
    bool negative = false;
    if (seedText.front() == '+' || seedText.front() == '-') {
        negative = seedText.front() == '-';
        seedText.remove_prefix(1);
        if (seedText.empty())
            return std::nullopt;
    }
    constexpr std::uint64_t maxSeed = UINT64_MAX;
    std::uint64_t value = 0;
    for (const char ch : seedText) {
        if (ch < '0' || ch > '9')
            return std::nullopt;
        const auto digit = static_cast<std::uint64_t>(ch - '0');
        if (negative) {
            if (digit != 0)
                return std::nullopt; // below zero: not a seed
            continue;
        }
        if (value > (maxSeed - digit) / 10)
            return std::nullopt;
        value = value * 10 + digit;
    }
    return value;
}

std::uint64_t resolveSeed(std::string_view seedText, std::int64_t unixSeconds) {
    if (const auto seed = seedFromText(seedText))
        return *seed;
    return static_cast<std::uint64_t>(unixSeconds);
}

} // namespace marquetry::chop

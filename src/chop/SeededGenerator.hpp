#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace marquetry::chop {

/// The one source of every random decision of a Generate run: SplitMix64 with
/// fixed derived draws. The algorithms of the draws are part of the product
/// (the same seed must give the same variations on every machine and in every
/// release), so no library distribution may stand in for them.
///
/// A plain value; a run creates exactly one and passes it by reference, on
/// one thread. Preconditions below are programmer errors, never user input.
class SeededGenerator {
public:
    /// A seed of 0 starts from the golden gamma instead, so 0 and
    /// 0x9E3779B97F4A7C15 give the same stream.
    explicit SeededGenerator(std::uint64_t seed) noexcept : state_(seed == 0 ? goldenGamma : seed) {}

    /// The next 64-bit output.
    std::uint64_t next() noexcept {
        state_ += goldenGamma;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    /// Uniform in [0, upperBound), upperBound >= 1: multiply-high with
    /// rejection. Usually one output; never more than one for powers of two.
    std::uint64_t next(std::uint64_t upperBound) noexcept;

    /// Uniform in [lo, hi], lo <= hi.
    std::int64_t randomIntClosed(std::int64_t lo, std::int64_t hi) noexcept;

    /// Uniform in [lo, hi), lo < hi, both finite. randomDouble(0, 1) is the
    /// unit draw and always takes exactly one output.
    double randomDouble(double lo, double hi) noexcept;

    /// Uniform in [lo, hi], lo <= hi, hi - lo finite.
    double randomDoubleClosed(double lo, double hi) noexcept;

    /// An element of a non-empty list, chosen by next(size).
    template <typename T>
    const T& randomElement(std::span<const T> list) noexcept {
        return list[static_cast<std::size_t>(next(list.size()))];
    }

    std::uint64_t state() const noexcept { return state_; }

    bool operator==(const SeededGenerator&) const = default;

    static constexpr std::uint64_t goldenGamma = 0x9E3779B97F4A7C15ull;

private:
    std::uint64_t state_;
};

/// The seed typed by the user as an unsigned decimal 64-bit integer, used
/// exactly as typed: an optional leading "+" or "-" (only "-0", "-00", ...
/// survive a minus), then ASCII digits only. Empty, overflowing or anything
/// else gives none.
std::optional<std::uint64_t> seedFromText(std::string_view seedText);

/// The seed of a run: the typed seed if it parses, otherwise the wall clock in
/// whole seconds since 1970 (UTC), so that runs started within the same second
/// with a blank seed agree.
std::uint64_t resolveSeed(std::string_view seedText, std::int64_t unixSeconds);

} // namespace marquetry::chop

#include "chop/JoinFades.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

namespace marquetry::chop {
namespace {

enum class Layout { none, u8, s16, s24, s32, f32 };

Layout layoutOf(const audio::WavData& format) {
    const std::size_t width = format.bitsPerSample / 8u;
    if (format.channels == 0 || format.bitsPerSample % 8 != 0
        || static_cast<std::size_t>(format.channels) * width > format.blockAlign)
        return Layout::none;
    if (format.audioFormat == audio::formatFloat)
        return format.bitsPerSample == 32 ? Layout::f32 : Layout::none;
    if (format.audioFormat != audio::formatPcm)
        return Layout::none;
    switch (format.bitsPerSample) {
    case 8: return Layout::u8;
    case 16: return Layout::s16;
    case 24: return Layout::s24;
    case 32: return Layout::s32;
    default: return Layout::none;
    }
}

constexpr std::size_t widthOf(Layout layout) {
    switch (layout) {
    case Layout::u8: return 1;
    case Layout::s16: return 2;
    case Layout::s24: return 3;
    case Layout::s32:
    case Layout::f32: return 4;
    case Layout::none: break;
    }
    return 0;
}

// Samples up to 16 bits wide and floats are gained in single precision,
// which holds them exactly and lets the compiler work on several at once;
// 24- and 32-bit integers need double precision.
template <Layout layout>
using Real = std::conditional_t<layout == Layout::s24 || layout == Layout::s32, double, float>;

// Round half away from zero. No gain of a ramp exceeds 1, so a gained sample
// stays within its layout's range and needs no clamp. Truncating x plus the
// largest number below 1/2, signed as x, rounds every value below 2^31
// exactly so (adding 1/2 itself would carry values just below a half up to
// the next whole), in a few operations that the compiler vectorizes.
template <typename Number>
std::int32_t roundHalfAway(Number x) {
    const Number belowHalf = std::nextafter(Number(0.5), Number(0));
    return static_cast<std::int32_t>(x + std::copysign(belowHalf, x));
}

// The sample at byte `at` of `pcm` times `gain`, in place. (Indexing one
// base pointer, rather than passing a pointer per sample, is what lets the
// compiler vectorize the loops over it.)
template <Layout layout>
void scaleSample(std::uint8_t* pcm, std::size_t at, Real<layout> gain) {
    if constexpr (layout == Layout::u8) {
        pcm[at] = static_cast<std::uint8_t>(roundHalfAway(static_cast<float>(pcm[at] - 128) * gain) + 128);
    } else if constexpr (layout == Layout::s16 && std::endian::native == std::endian::little) {
        // The most common layout, read whole: twice as fast as byte by byte.
        std::int16_t value;
        std::memcpy(&value, pcm + at, 2);
        const auto scaled = static_cast<std::int16_t>(roundHalfAway(value * gain));
        std::memcpy(pcm + at, &scaled, 2);
    } else if constexpr (layout == Layout::s16) {
        const auto value = static_cast<std::int16_t>(pcm[at] | (pcm[at + 1] << 8));
        const auto scaled = static_cast<std::uint32_t>(roundHalfAway(value * gain));
        pcm[at] = static_cast<std::uint8_t>(scaled);
        pcm[at + 1] = static_cast<std::uint8_t>(scaled >> 8);
    } else if constexpr (layout == Layout::s24) {
        std::int32_t value = pcm[at] | (pcm[at + 1] << 8) | (pcm[at + 2] << 16);
        if ((pcm[at + 2] & 0x80) != 0)
            value -= 1 << 24;
        const auto scaled = static_cast<std::uint32_t>(roundHalfAway(value * gain));
        pcm[at] = static_cast<std::uint8_t>(scaled);
        pcm[at + 1] = static_cast<std::uint8_t>(scaled >> 8);
        pcm[at + 2] = static_cast<std::uint8_t>(scaled >> 16);
    } else if constexpr (layout == Layout::s32) {
        std::int32_t value;
        std::memcpy(&value, pcm + at, 4);
        const std::int32_t scaled = roundHalfAway(value * gain);
        std::memcpy(pcm + at, &scaled, 4);
    } else if constexpr (layout == Layout::f32) {
        float value;
        std::memcpy(&value, pcm + at, 4);
        // An explicit zero, so that infinities and NaN fall silent too.
        const float scaled = gain == 0.0f ? 0.0f : value * gain;
        std::memcpy(pcm + at, &scaled, 4);
    }
}

// The gain of every sample of a ramp of `ramp` frames of `channels`
// samples, rising from 0 (`rising`) or falling to 0: sample i belongs to
// frame i / channels, whose gain is its distance from the silent end over
// `ramp`. A ramp of 0 frames is the lone silent frame of a one-frame slice.
template <typename Number>
void rampGains(std::vector<Number>& gain, audio::FrameCount ramp, std::size_t channels, bool rising) {
    const auto frames = static_cast<std::size_t>(std::max<audio::FrameCount>(ramp, 1));
    gain.resize(frames * channels);
    for (std::size_t f = 0; f < frames; ++f) {
        const auto g = static_cast<Number>(static_cast<double>(f) / static_cast<double>(frames));
        const std::size_t at = (rising ? f : frames - 1 - f) * channels;
        std::fill_n(gain.begin() + static_cast<std::ptrdiff_t>(at), channels, g);
    }
}

// The ramp's samples from frame `first` on, times `gain`. A tightly packed
// layout is one run of samples, which the compiler turns into vector code.
template <Layout layout>
void scaleFrames(std::uint8_t* pcm, const audio::WavData& format, audio::FrameIndex first,
                 std::span<const Real<layout>> gain) {
    constexpr std::size_t width = widthOf(layout);
    const std::size_t channels = format.channels;
    const std::size_t base = static_cast<std::size_t>(first) * format.blockAlign;
    const Real<layout>* g = gain.data();
    if (channels * width == format.blockAlign) {
        for (std::size_t i = 0; i < gain.size(); ++i)
            scaleSample<layout>(pcm, base + i * width, g[i]);
        return;
    }
    for (std::size_t i = 0; i < gain.size(); ++i)
        scaleSample<layout>(pcm, base + (i / channels) * format.blockAlign + (i % channels) * width, g[i]);
}

template <Layout layout>
void fadeAll(Bytes& pcm, const VariationPlan& variation, const audio::WavData& format, audio::FrameCount fadeFrames) {
    const audio::FrameCount total = audio::frameCount(pcm.size(), format.blockAlign);
    const std::size_t channels = format.channels;
    // The full ramps are built on first use: a fade longer than every slice
    // needs none, however many frames it asks for.
    std::vector<Real<layout>> fullIn, fullOut, shortIn, shortOut;
    for (std::size_t i = 0; i < variation.placements.size(); ++i) {
        const auto frameAt = [&](std::int64_t byteOffset) {
            return std::clamp<audio::FrameIndex>(byteOffset / format.blockAlign, 0, total);
        };
        const audio::FrameIndex start = frameAt(variation.placements[i].byteOffset);
        const audio::FrameIndex end =
            i + 1 < variation.placements.size() ? frameAt(variation.placements[i + 1].byteOffset) : total;
        const audio::FrameCount frames = end - start;
        if (frames <= 0)
            continue;
        const bool full = frames / 2 >= fadeFrames;
        std::vector<Real<layout>>& in = full ? fullIn : shortIn;
        std::vector<Real<layout>>& out = full ? fullOut : shortOut;
        if (!full || in.empty()) {
            rampGains(in, full ? fadeFrames : frames / 2, channels, true);
            rampGains(out, full ? fadeFrames : frames / 2, channels, false);
        }
        scaleFrames<layout>(pcm.data(), format, start, std::span<const Real<layout>>(in));
        // A one-frame slice is its own first and last frame.
        if (frames > 1)
            scaleFrames<layout>(pcm.data(), format, end - static_cast<audio::FrameCount>(out.size() / channels),
                                std::span<const Real<layout>>(out));
    }
}

template <Layout layout>
void fadeEnd(Bytes& pcm, const audio::WavData& format, audio::FrameIndex end, audio::FrameCount fadeFrames) {
    end = std::clamp<audio::FrameIndex>(end, 0, audio::frameCount(pcm.size(), format.blockAlign));
    const audio::FrameCount ramp = std::min(fadeFrames, end);
    if (ramp < 1)
        return;
    std::vector<Real<layout>> out;
    rampGains(out, ramp, format.channels, false);
    scaleFrames<layout>(pcm.data(), format, end - ramp, std::span<const Real<layout>>(out));
}

template <template <Layout> class Action, typename... Args>
void withLayout(const audio::WavData& format, Args&&... args) {
    switch (layoutOf(format)) {
    case Layout::u8: Action<Layout::u8>::run(args...); break;
    case Layout::s16: Action<Layout::s16>::run(args...); break;
    case Layout::s24: Action<Layout::s24>::run(args...); break;
    case Layout::s32: Action<Layout::s32>::run(args...); break;
    case Layout::f32: Action<Layout::f32>::run(args...); break;
    case Layout::none: break;
    }
}

template <Layout layout>
struct FadeJoins {
    static void run(Bytes& pcm, const VariationPlan& variation, const audio::WavData& format,
                    audio::FrameCount fadeFrames) {
        fadeAll<layout>(pcm, variation, format, fadeFrames);
    }
};

template <Layout layout>
struct FadeEnd {
    static void run(Bytes& pcm, const audio::WavData& format, audio::FrameIndex end, audio::FrameCount fadeFrames) {
        fadeEnd<layout>(pcm, format, end, fadeFrames);
    }
};

} // namespace

audio::FrameCount joinFadeFrames(std::int64_t ms, std::uint32_t sampleRate) {
    if (ms <= 0)
        return 0;
    const std::int64_t clamped = std::min(ms, maxJoinFadeMs);
    return (clamped * static_cast<std::int64_t>(sampleRate) + 500) / 1000;
}

void applyJoinFades(Bytes& pcm, const VariationPlan& variation, const audio::WavData& format,
                    audio::FrameCount fadeFrames) {
    if (fadeFrames >= 1)
        withLayout<FadeJoins>(format, pcm, variation, format, fadeFrames);
}

void applyEndFade(Bytes& pcm, const audio::WavData& format, audio::FrameIndex end, audio::FrameCount fadeFrames) {
    if (fadeFrames >= 1)
        withLayout<FadeEnd>(format, pcm, format, end, fadeFrames);
}

} // namespace marquetry::chop

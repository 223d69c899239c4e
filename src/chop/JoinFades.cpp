#include "chop/JoinFades.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>
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

// Round half away from zero, clamped to [lowest, highest]. The truncating
// conversion is exact for |x| < 2^31, which every gained integer sample is,
// and keeps the hot loop free of library calls.
std::int32_t roundClamped(double x, std::int32_t lowest, std::int32_t highest) {
    auto whole = static_cast<std::int64_t>(x);
    const double rest = x - static_cast<double>(whole);
    whole += (rest >= 0.5 ? 1 : 0) - (rest <= -0.5 ? 1 : 0);
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(whole, lowest, highest));
}

// One sample at `p` times `gain`, in place.
template <Layout layout>
void scaleSample(std::uint8_t* p, double gain) {
    if constexpr (layout == Layout::u8) {
        p[0] = static_cast<std::uint8_t>(roundClamped((p[0] - 128) * gain, -128, 127) + 128);
    } else if constexpr (layout == Layout::s16) {
        const auto value = static_cast<std::int16_t>(p[0] | (p[1] << 8));
        const auto scaled = static_cast<std::uint32_t>(roundClamped(value * gain, -32768, 32767));
        p[0] = static_cast<std::uint8_t>(scaled);
        p[1] = static_cast<std::uint8_t>(scaled >> 8);
    } else if constexpr (layout == Layout::s24) {
        std::int32_t value = p[0] | (p[1] << 8) | (p[2] << 16);
        if ((p[2] & 0x80) != 0)
            value -= 1 << 24;
        const auto scaled = static_cast<std::uint32_t>(roundClamped(value * gain, -(1 << 23), (1 << 23) - 1));
        p[0] = static_cast<std::uint8_t>(scaled);
        p[1] = static_cast<std::uint8_t>(scaled >> 8);
        p[2] = static_cast<std::uint8_t>(scaled >> 16);
    } else if constexpr (layout == Layout::s32) {
        std::int32_t value;
        std::memcpy(&value, p, 4);
        const std::int32_t scaled = roundClamped(value * gain, std::numeric_limits<std::int32_t>::min(),
                                                 std::numeric_limits<std::int32_t>::max());
        std::memcpy(p, &scaled, 4);
    } else if constexpr (layout == Layout::f32) {
        float value;
        std::memcpy(&value, p, 4);
        // An explicit zero, so that infinities and NaN fall silent too.
        const float scaled = gain == 0.0 ? 0.0f : static_cast<float>(value * gain);
        std::memcpy(p, &scaled, 4);
    }
}

// Ramps the frames [start, start + frames) of `pcm`: gain[d] for the frame
// d frames from the nearer end, while d < gain.size().
template <Layout layout>
void fadeSlice(std::uint8_t* pcm, const audio::WavData& format, audio::FrameIndex start, audio::FrameCount frames,
               std::span<const double> gain) {
    const std::size_t width = format.bitsPerSample / 8u;
    const std::size_t channels = format.channels;
    const std::size_t blockAlign = format.blockAlign;
    const auto ramp = std::min<audio::FrameCount>(static_cast<audio::FrameCount>(gain.size()), frames);
    const auto scaleFrame = [&](audio::FrameIndex frame, double g) {
        std::uint8_t* p = pcm + static_cast<std::size_t>(frame) * blockAlign;
        for (std::size_t c = 0; c < channels; ++c, p += width)
            scaleSample<layout>(p, g);
    };
    const audio::FrameIndex last = start + frames - 1;
    for (audio::FrameCount d = 0; d < ramp; ++d) {
        const double g = gain[static_cast<std::size_t>(d)];
        scaleFrame(start + d, g);
        // A one-frame slice is its own first and last frame.
        if (last - d >= start + ramp)
            scaleFrame(last - d, g);
    }
}

// gain[d] = d / ramp for d < ramp; a ramp of 0 gives the lone gain 0 that
// silences a one-frame slice.
void rampGains(std::vector<double>& gain, audio::FrameCount ramp) {
    gain.resize(static_cast<std::size_t>(std::max<audio::FrameCount>(ramp, 1)));
    gain[0] = 0.0;
    for (audio::FrameCount d = 1; d < ramp; ++d)
        gain[static_cast<std::size_t>(d)] = static_cast<double>(d) / static_cast<double>(ramp);
}

template <Layout layout>
void fadeAll(Bytes& pcm, const VariationPlan& variation, const audio::WavData& format, audio::FrameCount fadeFrames) {
    const audio::FrameCount total = audio::frameCount(pcm.size(), format.blockAlign);
    // Built on first use: a fade longer than every slice needs no full ramp,
    // however many frames it asks for.
    std::vector<double> fullGain;
    std::vector<double> shortGain;
    for (std::size_t i = 0; i < variation.placements.size(); ++i) {
        const auto frameAt = [&](std::int64_t byteOffset) {
            return std::clamp<audio::FrameIndex>(byteOffset / format.blockAlign, 0, total);
        };
        const audio::FrameIndex start = frameAt(variation.placements[i].byteOffset);
        const audio::FrameIndex end = i + 1 < variation.placements.size()
                                          ? frameAt(variation.placements[i + 1].byteOffset)
                                          : total;
        const audio::FrameCount frames = end - start;
        if (frames <= 0)
            continue;
        if (frames / 2 >= fadeFrames) {
            if (fullGain.empty())
                rampGains(fullGain, fadeFrames);
            fadeSlice<layout>(pcm.data(), format, start, frames, fullGain);
        } else {
            rampGains(shortGain, frames / 2);
            fadeSlice<layout>(pcm.data(), format, start, frames, shortGain);
        }
    }
}

} // namespace

audio::FrameCount joinFadeFrames(std::int64_t ms, std::uint32_t sampleRate) {
    if (ms <= 0)
        return 0;
    const std::int64_t clamped = std::min(ms, maxJoinFadeMs);
    return (clamped * static_cast<std::int64_t>(sampleRate) + 500) / 1000;
}

void applyJoinFades(Bytes& pcm, const VariationPlan& variation, const audio::WavData& format,
                    audio::FrameCount fadeFrames) {
    if (fadeFrames < 1)
        return;
    switch (layoutOf(format)) {
    case Layout::u8: fadeAll<Layout::u8>(pcm, variation, format, fadeFrames); break;
    case Layout::s16: fadeAll<Layout::s16>(pcm, variation, format, fadeFrames); break;
    case Layout::s24: fadeAll<Layout::s24>(pcm, variation, format, fadeFrames); break;
    case Layout::s32: fadeAll<Layout::s32>(pcm, variation, format, fadeFrames); break;
    case Layout::f32: fadeAll<Layout::f32>(pcm, variation, format, fadeFrames); break;
    case Layout::none: break;
    }
}

} // namespace marquetry::chop

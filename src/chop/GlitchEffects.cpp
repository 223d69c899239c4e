#include "chop/GlitchEffects.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace marquetry::chop {
namespace {

Bytes copyOf(std::span<const std::uint8_t> slice) { return Bytes(slice.begin(), slice.end()); }

double clampedAmount(double amount) {
    // std::clamp would pass NaN through, and then no effect could ever fire.
    if (std::isnan(amount))
        return 1.0;
    return std::clamp(amount, 0.0, 1.0);
}

std::int16_t readSample16(const std::uint8_t* p) {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(p[0] | (p[1] << 8)));
}

void writeSample16(std::uint8_t* p, std::int16_t sample) {
    const auto bits = static_cast<std::uint16_t>(sample);
    p[0] = static_cast<std::uint8_t>(bits & 0xFF);
    p[1] = static_cast<std::uint8_t>(bits >> 8);
}

// Number of whole frames in `slice`, 0 for a frame size below one byte.
std::size_t wholeFrames(std::span<const std::uint8_t> slice, std::int64_t frameSize) {
    return frameSize < 1 ? 0 : slice.size() / static_cast<std::uint64_t>(frameSize);
}

} // namespace

Bytes applyGlitchEffects(std::span<const std::uint8_t> slice, const audio::WavData& wav, double amount,
                         SeededGenerator& rng) {
    // Returning before any draw keeps the stream where the next slice expects it.
    if (wav.blockAlign == 0 || slice.empty())
        return copyOf(slice);
    const double a = clampedAmount(amount);
    const std::int64_t frameSize = wav.blockAlign;

    // `current` views the input until an effect produces its own buffer, so
    // a slice that no effect touches is copied only once, at the end.
    Bytes work;
    bool ownsResult = false;
    std::span<const std::uint8_t> current = slice;
    if (rng.randomDouble(0.0, 1.0) < 0.3 * a + 0.05) {
        work = reverseSliceByFrames(current, frameSize);
        ownsResult = true;
        current = work;
    }
    if (rng.randomDouble(0.0, 1.0) < 0.45 * a + 0.1) {
        const std::int64_t top = std::llround(4.0 * a) + 2;
        const std::int64_t repeats = rng.randomIntClosed(2, top);
        work = stutterSliceByFrames(current, frameSize, repeats);
        ownsResult = true;
        current = work;
    }
    const auto finish = [&]() { return ownsResult ? std::move(work) : copyOf(current); };

    // Resampling is only defined for 16-bit integer samples; other formats
    // make no pitch draws at all.
    if (wav.audioFormat != audio::formatPcm || wav.bitsPerSample != 16)
        return finish();
    if (rng.randomDouble(0.0, 1.0) >= 0.55 * a + 0.35)
        return finish();
    const double coarseRange = 12.0 * a + 3.0;
    const double fineRange = 0.5 * a + 0.1;
    const double coarse = rng.randomDoubleClosed(-coarseRange, coarseRange);
    const double fine = rng.randomDoubleClosed(-fineRange, fineRange);
    return pitchShiftPCM16Interleaved(current, wav.channels, coarse + fine);
}

Bytes reverseSliceByFrames(std::span<const std::uint8_t> slice, std::int64_t frameSize) {
    const std::size_t frames = wholeFrames(slice, frameSize);
    if (frames == 0)
        return copyOf(slice);
    const auto bytesPerFrame = static_cast<std::size_t>(frameSize);

    Bytes out;
    out.reserve(frames * bytesPerFrame);
    for (std::size_t f = frames; f-- > 0;) {
        const auto frame = slice.subspan(f * bytesPerFrame, bytesPerFrame);
        out.insert(out.end(), frame.begin(), frame.end());
    }
    return out;
}

Bytes stutterSliceByFrames(std::span<const std::uint8_t> slice, std::int64_t frameSize, std::int64_t repeats) {
    const std::size_t frames = wholeFrames(slice, frameSize);
    if (repeats < 2 || frames < 4)
        return copyOf(slice);
    const std::size_t headBytes = std::max<std::size_t>(1, frames / 4) * static_cast<std::size_t>(frameSize);
    const auto repeatCount = static_cast<std::uint64_t>(repeats);
    // Checked by division: the product itself could wrap.
    if (repeatCount > Bytes{}.max_size() / headBytes)
        throw std::length_error("stutterSliceByFrames: result too large");

    Bytes out;
    out.reserve(headBytes * repeatCount);
    const auto head = slice.first(headBytes);
    for (std::uint64_t r = 0; r < repeatCount; ++r)
        out.insert(out.end(), head.begin(), head.end());
    return out;
}

Bytes pitchShiftPCM16Interleaved(std::span<const std::uint8_t> slice, std::int64_t channels, double semitones) {
    // Comparing against size / 2 rather than forming 2 * channels keeps a
    // huge channel count from overflowing.
    if (channels < 1 || static_cast<std::uint64_t>(channels) > slice.size() / 2)
        return copyOf(slice);
    const auto channelCount = static_cast<std::size_t>(channels);
    const std::size_t bytesPerFrame = 2 * channelCount;
    const std::size_t frames = slice.size() / bytesPerFrame;
    if (frames < 2)
        return copyOf(slice);
    const double ratio = std::pow(2.0, semitones / 12.0);
    if (!std::isfinite(ratio) || ratio == 0.0)
        return copyOf(slice);

    const double outFramesExact = std::trunc(static_cast<double>(frames) / ratio);
    // A tiny ratio asks for more frames than any buffer holds; converting
    // such a value to an integer would be undefined.
    if (!(outFramesExact < static_cast<double>(Bytes{}.max_size() / bytesPerFrame)))
        throw std::length_error("pitchShiftPCM16Interleaved: result too large");
    const std::size_t outFrames = std::max<std::size_t>(1, static_cast<std::size_t>(outFramesExact));
    const std::size_t lastFrame = frames - 1;

    Bytes out(outFrames * bytesPerFrame);
    std::uint8_t* write = out.data();
    for (std::size_t i = 0; i < outFrames; ++i) {
        const double position = static_cast<double>(i) * ratio;
        // The tail of a lengthened slice reaches past the last frame and holds
        // it; clamping before the conversion also keeps the cast defined.
        const auto i0 = static_cast<std::size_t>(std::floor(std::min(position, static_cast<double>(lastFrame))));
        const std::size_t i1 = std::min(i0 + 1, lastFrame);
        const double frac = position - static_cast<double>(i0);
        const std::uint8_t* frame0 = slice.data() + i0 * bytesPerFrame;
        const std::uint8_t* frame1 = slice.data() + i1 * bytesPerFrame;
        for (std::size_t c = 0; c < channelCount; ++c) {
            const double s0 = readSample16(frame0 + 2 * c);
            const double s1 = readSample16(frame1 + 2 * c);
            const double value = std::clamp(s0 + frac * (s1 - s0), -32768.0, 32767.0);
            writeSample16(write, static_cast<std::int16_t>(std::lround(value)));
            write += 2;
        }
    }
    return out;
}

} // namespace marquetry::chop

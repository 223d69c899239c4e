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

// Number of whole frames in `bytes`, 0 for a frame size below one byte.
std::size_t wholeFrames(std::size_t bytes, std::int64_t frameSize) {
    return frameSize < 1 ? 0 : bytes / static_cast<std::uint64_t>(frameSize);
}

// The sizes below decide both what an effect produces and what a plan
// expects it to produce, so the two can never disagree. None means the
// effect leaves the slice as it is.

std::optional<std::size_t> reversedBytes(std::size_t bytes, std::int64_t frameSize) {
    const std::size_t frames = wholeFrames(bytes, frameSize);
    if (frames == 0)
        return std::nullopt;
    return frames * static_cast<std::size_t>(frameSize);
}

// The length of the repeated head.
std::optional<std::size_t> stutterHeadBytes(std::size_t bytes, std::int64_t frameSize, std::int64_t repeats) {
    const std::size_t frames = wholeFrames(bytes, frameSize);
    if (repeats < 2 || frames < 4)
        return std::nullopt;
    const std::size_t headBytes = std::max<std::size_t>(1, frames / 4) * static_cast<std::size_t>(frameSize);
    // Checked by division: the product itself could wrap.
    if (static_cast<std::uint64_t>(repeats) > Bytes{}.max_size() / headBytes)
        throw std::length_error("stutterSliceByFrames: result too large");
    return headBytes;
}

struct Resampling {
    std::size_t channels;
    std::size_t frames;
    std::size_t outFrames;
    double ratio;
};

std::optional<Resampling> resampling(std::size_t bytes, std::int64_t channels, double semitones) {
    // Comparing against size / 2 rather than forming 2 * channels keeps a
    // huge channel count from overflowing.
    if (channels < 1 || static_cast<std::uint64_t>(channels) > bytes / 2)
        return std::nullopt;
    const auto channelCount = static_cast<std::size_t>(channels);
    const std::size_t frames = bytes / (2 * channelCount);
    if (frames < 2)
        return std::nullopt;
    const double ratio = std::pow(2.0, semitones / 12.0);
    if (!std::isfinite(ratio) || ratio == 0.0)
        return std::nullopt;

    const double outFramesExact = std::trunc(static_cast<double>(frames) / ratio);
    // A tiny ratio asks for more frames than any buffer holds; converting
    // such a value to an integer would be undefined.
    if (!(outFramesExact < static_cast<double>(Bytes{}.max_size() / (2 * channelCount))))
        throw std::length_error("pitchShiftPCM16Interleaved: result too large");
    return Resampling{channelCount, frames, std::max<std::size_t>(1, static_cast<std::size_t>(outFramesExact)),
                      ratio};
}

} // namespace

GlitchTreatment drawGlitchTreatment(std::size_t sliceBytes, const audio::WavData& format, double amount,
                                    SeededGenerator& rng) {
    // Returning before any draw keeps the stream where the next slice expects it.
    GlitchTreatment treatment;
    if (format.blockAlign == 0 || sliceBytes == 0)
        return treatment;
    const double a = clampedAmount(amount);

    treatment.reversed = rng.randomDouble(0.0, 1.0) < 0.3 * a + 0.05;
    if (rng.randomDouble(0.0, 1.0) < 0.45 * a + 0.1) {
        const std::int64_t top = std::llround(4.0 * a) + 2;
        treatment.stutterRepeats = static_cast<std::int32_t>(rng.randomIntClosed(2, top));
    }
    // Resampling is only defined for 16-bit integer samples; other formats
    // make no pitch draws at all.
    if (format.audioFormat != audio::formatPcm || format.bitsPerSample != 16)
        return treatment;
    if (rng.randomDouble(0.0, 1.0) >= 0.55 * a + 0.35)
        return treatment;
    const double coarseRange = 12.0 * a + 3.0;
    const double fineRange = 0.5 * a + 0.1;
    const double coarse = rng.randomDoubleClosed(-coarseRange, coarseRange);
    const double fine = rng.randomDoubleClosed(-fineRange, fineRange);
    treatment.semitones = coarse + fine;
    return treatment;
}

Bytes applyGlitchTreatment(std::span<const std::uint8_t> slice, const GlitchTreatment& treatment,
                           const audio::WavData& format) {
    // `current` views the input until an effect produces its own buffer, so
    // a slice that no effect touches is copied only once, at the end.
    Bytes work;
    bool ownsResult = false;
    std::span<const std::uint8_t> current = slice;
    if (treatment.reversed) {
        work = reverseSliceByFrames(current, format.blockAlign);
        ownsResult = true;
        current = work;
    }
    if (treatment.stutterRepeats != 0) {
        work = stutterSliceByFrames(current, format.blockAlign, treatment.stutterRepeats);
        ownsResult = true;
        current = work;
    }
    if (treatment.semitones)
        return pitchShiftPCM16Interleaved(current, format.channels, *treatment.semitones);
    return ownsResult ? std::move(work) : copyOf(current);
}

std::size_t treatedSize(std::size_t sliceBytes, const GlitchTreatment& treatment, const audio::WavData& format) {
    std::size_t bytes = sliceBytes;
    if (treatment.reversed)
        bytes = reversedBytes(bytes, format.blockAlign).value_or(bytes);
    if (treatment.stutterRepeats != 0) {
        if (const auto head = stutterHeadBytes(bytes, format.blockAlign, treatment.stutterRepeats))
            bytes = *head * static_cast<std::size_t>(treatment.stutterRepeats);
    }
    if (treatment.semitones) {
        if (const auto shift = resampling(bytes, format.channels, *treatment.semitones))
            bytes = shift->outFrames * 2 * shift->channels;
    }
    return bytes;
}

Bytes applyGlitchEffects(std::span<const std::uint8_t> slice, const audio::WavData& wav, double amount,
                         SeededGenerator& rng) {
    return applyGlitchTreatment(slice, drawGlitchTreatment(slice.size(), wav, amount, rng), wav);
}

Bytes reverseSliceByFrames(std::span<const std::uint8_t> slice, std::int64_t frameSize) {
    const auto size = reversedBytes(slice.size(), frameSize);
    if (!size)
        return copyOf(slice);
    const auto bytesPerFrame = static_cast<std::size_t>(frameSize);

    Bytes out;
    out.reserve(*size);
    for (std::size_t f = *size / bytesPerFrame; f-- > 0;) {
        const auto frame = slice.subspan(f * bytesPerFrame, bytesPerFrame);
        out.insert(out.end(), frame.begin(), frame.end());
    }
    return out;
}

Bytes stutterSliceByFrames(std::span<const std::uint8_t> slice, std::int64_t frameSize, std::int64_t repeats) {
    const auto headBytes = stutterHeadBytes(slice.size(), frameSize, repeats);
    if (!headBytes)
        return copyOf(slice);
    const auto repeatCount = static_cast<std::uint64_t>(repeats);

    Bytes out;
    out.reserve(*headBytes * repeatCount);
    const auto head = slice.first(*headBytes);
    for (std::uint64_t r = 0; r < repeatCount; ++r)
        out.insert(out.end(), head.begin(), head.end());
    return out;
}

Bytes pitchShiftPCM16Interleaved(std::span<const std::uint8_t> slice, std::int64_t channels, double semitones) {
    const auto shift = resampling(slice.size(), channels, semitones);
    if (!shift)
        return copyOf(slice);
    const std::size_t bytesPerFrame = 2 * shift->channels;
    const std::size_t lastFrame = shift->frames - 1;

    Bytes out(shift->outFrames * bytesPerFrame);
    std::uint8_t* write = out.data();
    for (std::size_t i = 0; i < shift->outFrames; ++i) {
        const double position = static_cast<double>(i) * shift->ratio;
        // The tail of a lengthened slice reaches past the last frame and holds
        // it; clamping before the conversion also keeps the cast defined.
        const auto i0 = static_cast<std::size_t>(std::floor(std::min(position, static_cast<double>(lastFrame))));
        const std::size_t i1 = std::min(i0 + 1, lastFrame);
        const double frac = position - static_cast<double>(i0);
        const std::uint8_t* frame0 = slice.data() + i0 * bytesPerFrame;
        const std::uint8_t* frame1 = slice.data() + i1 * bytesPerFrame;
        for (std::size_t c = 0; c < shift->channels; ++c) {
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

#pragma once

#include "audio/WavData.hpp"
#include "chop/SeededGenerator.hpp"

#include <cstdint>
#include <optional>
#include <span>

namespace marquetry::chop {

using audio::Bytes;

/// What the glitch effects do to one placed slice: reverse, then stutter,
/// then pitch-shift. (Fields ordered for size: a run of a million slices keeps one per placement.)
struct GlitchTreatment {
    std::optional<double> semitones;  ///< pitch shift; drawn for 16-bit integer PCM only
    std::int32_t stutterRepeats = 0;  ///< repeats of the slice's opening (2 to 6); 0 when not stuttered
    bool reversed = false;

    bool operator==(const GlitchTreatment&) const = default;
};

/// Makes exactly the draws `applyGlitchEffects` makes for a slice of
/// `sliceBytes` bytes in the layout of `format`, without touching a sample.
GlitchTreatment drawGlitchTreatment(std::size_t sliceBytes, const audio::WavData& format, double amount,
                                    SeededGenerator& rng);

/// `slice` with `treatment` applied, in the layout of `format` (whose PCM is
/// not read). Pure: the same slice and treatment give the same bytes.
Bytes applyGlitchTreatment(std::span<const std::uint8_t> slice, const GlitchTreatment& treatment,
                           const audio::WavData& format);

/// The length `applyGlitchTreatment` returns for a slice of `sliceBytes`
/// bytes, computed without processing it. Throws std::length_error where the
/// effect itself would.
std::size_t treatedSize(std::size_t sliceBytes, const GlitchTreatment& treatment, const audio::WavData& format);

/// A placed slice of the Glitch model, possibly reversed, stuttered and (for
/// 16-bit integer PCM only) pitch-shifted, each with a probability that grows
/// with `amount` (clamped to [0, 1]; NaN counts as 1). Only the format fields
/// of `wav` are read. An empty slice or a zero block alignment comes back
/// unchanged without drawing. The treatment drawn, then applied.
Bytes applyGlitchEffects(std::span<const std::uint8_t> slice, const audio::WavData& wav, double amount,
                         SeededGenerator& rng);

/// The whole frames of `slice` in reverse order; a trailing partial frame is
/// dropped. Unchanged when frameSize < 1 or the slice holds no whole frame.
Bytes reverseSliceByFrames(std::span<const std::uint8_t> slice, std::int64_t frameSize);

/// The first quarter of the slice's frames (at least one) repeated `repeats`
/// times. Unchanged when frameSize < 1, repeats < 2 or fewer than 4 frames.
Bytes stutterSliceByFrames(std::span<const std::uint8_t> slice, std::int64_t frameSize, std::int64_t repeats);

/// Interleaved signed 16-bit PCM resampled by 2^(semitones / 12) with linear
/// interpolation: pitch and length change together. Unchanged when channels
/// < 1, fewer than 2 frames, or a ratio that is 0 or not finite.
Bytes pitchShiftPCM16Interleaved(std::span<const std::uint8_t> slice, std::int64_t channels, double semitones);

} // namespace marquetry::chop

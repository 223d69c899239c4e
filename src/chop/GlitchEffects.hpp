#pragma once

#include "audio/WavData.hpp"
#include "chop/SeededGenerator.hpp"

#include <cstdint>
#include <span>

namespace marquetry::chop {

using audio::Bytes;

/// A placed slice of the Glitch model, possibly reversed, stuttered and (for
/// 16-bit integer PCM only) pitch-shifted, each with a probability that grows
/// with `amount` (clamped to [0, 1]; NaN counts as 1). Only the format fields
/// of `wav` are read. An empty slice or a zero block alignment comes back
/// unchanged without drawing.
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

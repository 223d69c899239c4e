#pragma once

#include "audio/WavData.hpp"
#include "chop/FitMode.hpp"
#include "chop/RunProgress.hpp"
#include "chop/VariationPlan.hpp"

#include <cstdint>
#include <span>

namespace marquetry::chop {

/// The shortest fade at the end of a trimmed or padded variation, so that the
/// cut itself never clicks even with join fades off.
inline constexpr std::int64_t minFitFadeMs = 2;

/// Stretching needs this many frames on each side, and lengths no more than
/// maxStretchRatio apart.
inline constexpr audio::FrameCount minStretchFrames = 1024;
inline constexpr double maxStretchRatio = 8.0;

/// The whole frames of `pcm` (in `format`'s layout) time-stretched to exactly
/// `targetFrames` frames with the pitch kept, through Rubber Band's offline
/// stretcher with its own threading off (so equal inputs give equal bytes),
/// converted to floating point and back with audio::fromFloat's rounding and
/// saturation. Throws AppError::io with a sentence for the user when the
/// layout cannot be converted or the lengths are outside the limits above,
/// and RunCancelled between blocks once `progress` is cancelled. Safe on any
/// thread.
Bytes stretchToFrames(const audio::WavData& format, std::span<const std::uint8_t> pcm, audio::FrameCount targetFrames,
                      const RunProgress* progress = nullptr);

/// Brings a rendered variation to exactly `targetFrames` frames by `mode`. A
/// trim that changes the length fades the kept audio out over `endFadeFrames`
/// before the cut or the padding; padding is silence (128 for 8-bit samples).
/// Throws what stretchToFrames throws.
void fitToFrames(Bytes& pcm, const audio::WavData& format, audio::FrameCount targetFrames, FitMode mode,
                 audio::FrameCount endFadeFrames, const RunProgress* progress = nullptr);

/// The placements of a variation whose `plan.byteCount` bytes were fitted to
/// `fittedBytes` by `mode`: a trim drops or shortens what was cut (padding
/// belongs to no placement), a stretch moves every start in proportion, on
/// whole frames of `blockAlign` bytes.
void fitPlacements(VariationPlan& plan, std::int64_t fittedBytes, FitMode mode, std::uint16_t blockAlign);

} // namespace marquetry::chop

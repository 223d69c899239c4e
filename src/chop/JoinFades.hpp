#pragma once

#include "audio/WavData.hpp"
#include "chop/VariationPlan.hpp"

#include <cstdint>

namespace marquetry::chop {

/// The longest join fade a user can ask for, in milliseconds.
inline constexpr std::int64_t maxJoinFadeMs = 50;

/// Frames of a join fade of `ms` milliseconds at `sampleRate`: ms x rate /
/// 1000, rounded half up. 0 when `ms` <= 0 or the rate is 0; `ms` above
/// maxJoinFadeMs counts as maxJoinFadeMs.
audio::FrameCount joinFadeFrames(std::int64_t ms, std::uint32_t sampleRate);

/// Fades every placed slice of `pcm` (rendered from `variation`) in at its
/// first frame and out at its last, in place, so the signal is at silence at
/// each join and at both ends of the loop. Each ramp is `fadeFrames` long,
/// or half the slice's frames when that is shorter; a one-frame slice is
/// silenced. The gain of the frame `d` frames from the nearer end of its
/// slice is d / ramp, applied in single precision to 8- and 16-bit and float
/// samples and in double to 24- and 32-bit ones, each integer rounded half
/// away from zero (no gain exceeds 1, so none leaves its range), so every
/// machine gives the same bytes. Frames are counted in `format`'s layout
/// from the start of `pcm`; a slice that starts inside a frame owns that
/// frame.
///
/// Works on 8-bit unsigned, 16-, 24- and 32-bit integer and 32-bit float
/// samples; any other layout, or one whose channels do not fit in a frame,
/// is left as it is, as is everything when `fadeFrames` < 1. Never reads or
/// writes outside `pcm`. Pure apart from `pcm`: safe on any thread.
void applyJoinFades(Bytes& pcm, const VariationPlan& variation, const audio::WavData& format,
                    audio::FrameCount fadeFrames);

/// Fades the `fadeFrames` frames of `pcm` before frame `end` out to silence
/// (fewer when `end` is nearer the start), with the ramp and rounding of
/// applyJoinFades: the end of a loop that was cut or padded. Layouts that
/// applyJoinFades leaves alone stay as they are. Never touches a byte
/// outside `pcm`.
void applyEndFade(Bytes& pcm, const audio::WavData& format, audio::FrameIndex end, audio::FrameCount fadeFrames);

} // namespace marquetry::chop

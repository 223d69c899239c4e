#pragma once

#include "chop/Slicing.hpp"

namespace marquetry::chop {

/// Loudness of one frame: the loudest of its channels, 0 for sample layouts
/// the engine does not read and for samples lying outside the data.
float frameAmplitude(const audio::WavData& wav, FrameIndex frame);

/// Boundaries at the sharpest rises in loudness, spaced at least half an even
/// slice (and 32 frames) apart, topped up with evenly spaced points. At most
/// sliceCount + 1 entries, fewer when the spacing leaves no room; [0] for an
/// empty source. Draws nothing: depends only on the record and the count.
Boundaries buildTransientBoundaries(const audio::WavData& wav, std::int64_t sliceCount);

} // namespace marquetry::chop

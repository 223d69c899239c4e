#pragma once

#include "audio/WavData.hpp"
#include "chop/ChopModel.hpp"
#include "chop/ChopRecipe.hpp"
#include "chop/SeededGenerator.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace marquetry::chop {

using audio::Bytes;
using audio::FrameCount;
using audio::FrameIndex;

/// Whole frames copied out of a source's PCM, in the source's format.
using Slice = Bytes;

/// Ascending frame indices from 0 to a frame count; each neighbouring pair
/// delimits one slice.
using Boundaries = std::vector<FrameIndex>;

/// A run of whole frames of one source.
struct FrameRange {
    FrameIndex start = 0;
    FrameCount frames = 0;

    bool operator==(const FrameRange&) const = default;
};

/// Where `createSlices` cuts, without copying a byte: the same ranges, in the
/// same order, from the same draws. Throws what `splitSlices` throws.
std::vector<FrameRange> sliceRanges(const audio::WavData& wav, std::int64_t sliceCount, const ChopRecipe& steps,
                                    SeededGenerator& rng);

/// Cuts one source by `chopModel`: an even split for Grid, Glitch, Pivot,
/// Interlock, Drift and Momentum; at the hits for Transient; at drawn
/// boundaries for Dice and Swarm, the only models that advance `rng`.
/// Empty slices are dropped, so only the even split returns exactly
/// `sliceCount` slices. Throws what `splitSlices` throws.
std::vector<Slice> createSlices(const audio::WavData& wav, std::int64_t sliceCount, ChopModel chopModel,
                                SeededGenerator& rng);

/// `sliceCount` slices of equal length, the last taking the remainder; bytes
/// after the last whole frame are left out. Throws AppError::invalidWav
/// "Input loop too short for N slices." when there are fewer frames than
/// slices, and "Calculated zero-length slices." for a non-positive count.
std::vector<Slice> splitSlices(std::span<const std::uint8_t> data, std::int64_t blockAlign, std::int64_t sliceCount);

/// One slice per neighbouring pair of `boundaries`, with indices clamped into
/// the data. Never fails and never reads past `data`: a repeated or
/// descending pair gives a one-frame slice, a pair starting at or past the
/// end an empty one.
std::vector<Slice> splitSlicesByBoundaries(std::span<const std::uint8_t> data, std::int64_t blockAlign,
                                           const Boundaries& boundaries);

/// sliceCount + 1 boundaries from 0 to totalFrames with randomly weighted
/// gaps, weighted as the model's recipe says. Strictly increasing when totalFrames >= sliceCount.
/// Draws two weights' worth per slice; draws nothing for an empty source.
Boundaries buildStochasticBoundaries(FrameCount totalFrames, std::int64_t sliceCount, SeededGenerator& rng,
                                     ChopModel model);
/// The same with the weighting itself.
Boundaries buildStochasticBoundaries(FrameCount totalFrames, std::int64_t sliceCount, SeededGenerator& rng,
                                     Weighting weighting);

} // namespace marquetry::chop

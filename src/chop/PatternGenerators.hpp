#pragma once

#include "chop/ChopModel.hpp"
#include "chop/ChopRecipe.hpp"
#include "chop/SeededGenerator.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace marquetry::chop {

/// The order in which a variation plays the slices of the pool: exactly
/// sliceCount entries, each in [0, sliceCount).
using Pattern = std::vector<std::int64_t>;

/// The slice order of one variation for `model` (sliceCount >= 1): the
/// model's walk, then its replacement pass if its recipe has one. The order
/// of draws is fixed, since every draw advances the run's one stream.
Pattern generatePattern(ChopModel model, std::int64_t sliceCount, SeededGenerator& rng);
/// The same for a recipe: its walk, then its replacement pass.
Pattern generatePattern(const ChopRecipe& steps, std::int64_t sliceCount, SeededGenerator& rng);

/// Grid, Transient and Dice: a walk over four sections with weighted picks.
Pattern generatePatternGridLike(std::int64_t sliceCount, SeededGenerator& rng);
/// Glitch and Pivot: small steps with jumps to four anchors.
Pattern generatePatternPivot(std::int64_t sliceCount, SeededGenerator& rng);
/// Swarm and Interlock: two interleaved strides.
Pattern generatePatternInterlock(std::int64_t sliceCount, SeededGenerator& rng);
/// Drift: a slow walk anchored on every fourth position.
Pattern generatePatternDrift(std::int64_t sliceCount, SeededGenerator& rng);
/// Momentum: straight order with broken section endings and repeats.
Pattern generatePatternMomentum(std::int64_t sliceCount, SeededGenerator& rng);

/// One element of a non-empty list; the values 0, 4, 8 and 12 weigh twice
/// as much as any other.
std::int64_t weightedChoice(std::span<const std::int64_t> options, SeededGenerator& rng);

} // namespace marquetry::chop

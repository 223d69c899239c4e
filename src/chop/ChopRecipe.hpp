#pragma once

#include "chop/ChopModel.hpp"

namespace marquetry::chop {

/// How a source is cut into slices.
enum class Cut {
    even,       ///< equal slices, the last taking the remainder
    transient,  ///< at the sharpest rises in loudness
    stochastic, ///< at randomly weighted boundaries
};

/// Which walk orders the pool's slices into a variation.
enum class Order { gridWalk, pivot, interlock, drift, momentum };

/// Everything that makes one chop model what it is. Models sharing an order
/// differ only in how they cut; the glitch effects and the Dice replacement
/// pass are the only per-model steps after ordering.
struct ChopRecipe {
    Cut cut;
    Order order;
    bool diceReplacements; ///< re-draw about a fifth of the ordered entries
    bool glitchEffects;    ///< reverse, stutter and pitch-shift each placed slice
    bool diceWeights;      ///< stochastic cuts: dice-face weights instead of exponential ones
};

/// The recipe of `model`: the one place to read to know what a model does.
constexpr ChopRecipe recipe(ChopModel model) {
    switch (model) {
    case ChopModel::grid: return {Cut::even, Order::gridWalk, false, false, false};
    case ChopModel::transient: return {Cut::transient, Order::gridWalk, false, false, false};
    case ChopModel::dice: return {Cut::stochastic, Order::gridWalk, true, false, true};
    case ChopModel::swarm: return {Cut::stochastic, Order::interlock, false, false, false};
    case ChopModel::glitch: return {Cut::even, Order::pivot, false, true, false};
    case ChopModel::pivot: return {Cut::even, Order::pivot, false, false, false};
    case ChopModel::interlock: return {Cut::even, Order::interlock, false, false, false};
    case ChopModel::drift: return {Cut::even, Order::drift, false, false, false};
    case ChopModel::momentum: return {Cut::even, Order::momentum, false, false, false};
    }
    return {Cut::even, Order::gridWalk, false, false, false};
}

} // namespace marquetry::chop

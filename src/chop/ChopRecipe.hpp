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

/// How a stochastic cut draws each slice's share of the loop.
enum class Weighting {
    exponential, ///< -ln(u) scaled by 0.6 to 1.6: many short slices, a few long ones
    diceFaces,   ///< one of six dice faces (0.5 to 2), jittered by 0.8 to 1.2
};

/// Everything that makes one chop model what it is. Models sharing an order
/// differ only in how they cut; the glitch effects and the replacement pass
/// are the only per-model steps after ordering.
struct ChopRecipe {
    Cut cut;
    Weighting weighting;    ///< stochastic cuts only
    Order order;
    double replacementRate; ///< the share of ordered entries re-drawn afterwards (a draw below it); 0: none
    bool glitchEffects;     ///< reverse, stutter and pitch-shift each placed slice
};

/// The recipe of `model`: the one place to read to know what a model does.
constexpr ChopRecipe recipe(ChopModel model) {
    constexpr auto even = Cut::even;
    constexpr auto exponential = Weighting::exponential;
    switch (model) {
    case ChopModel::grid: return {even, exponential, Order::gridWalk, 0, false};
    case ChopModel::transient: return {Cut::transient, exponential, Order::gridWalk, 0, false};
    case ChopModel::dice: return {Cut::stochastic, Weighting::diceFaces, Order::gridWalk, 0.22, false};
    case ChopModel::swarm: return {Cut::stochastic, exponential, Order::interlock, 0, false};
    case ChopModel::glitch: return {even, exponential, Order::pivot, 0, true};
    case ChopModel::pivot: return {even, exponential, Order::pivot, 0, false};
    case ChopModel::interlock: return {even, exponential, Order::interlock, 0, false};
    case ChopModel::drift: return {even, exponential, Order::drift, 0, false};
    case ChopModel::momentum: return {even, exponential, Order::momentum, 0, false};
    }
    return {even, exponential, Order::gridWalk, 0, false};
}

} // namespace marquetry::chop

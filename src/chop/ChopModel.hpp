#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace marquetry::chop {

/// How a Generate run cuts its sources and orders the slices. The order of
/// the cases is the order of the picker; the label is the identity.
enum class ChopModel { grid, transient, dice, swarm, glitch, pivot, interlock, drift, momentum };

inline constexpr std::array<ChopModel, 9> allChopModels{
    ChopModel::grid,  ChopModel::transient, ChopModel::dice,  ChopModel::swarm,    ChopModel::glitch,
    ChopModel::pivot, ChopModel::interlock, ChopModel::drift, ChopModel::momentum,
};

/// The display label, which is also what names and status lines show.
constexpr std::string_view label(ChopModel model) {
    switch (model) {
    case ChopModel::grid: return "Grid";
    case ChopModel::transient: return "Transient";
    case ChopModel::dice: return "Dice";
    case ChopModel::swarm: return "Swarm";
    case ChopModel::glitch: return "Glitch";
    case ChopModel::pivot: return "Pivot";
    case ChopModel::interlock: return "Interlock";
    case ChopModel::drift: return "Drift";
    case ChopModel::momentum: return "Momentum";
    }
    return {};
}

/// The model whose label is exactly `text`, or none.
constexpr std::optional<ChopModel> chopModelFromLabel(std::string_view text) {
    for (const ChopModel model : allChopModels)
        if (label(model) == text)
            return model;
    return std::nullopt;
}

} // namespace marquetry::chop

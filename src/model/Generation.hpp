#pragma once

#include "chop/ChopModel.hpp"
#include "model/GeneratedLoop.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace marquetry::model {

/// Everything a Generate run reads, copied from the model when it starts, so
/// the worker never touches the model.
struct GenerationRequest {
    std::string seedText; ///< a blank or unparsable seed: the wall clock second decides
    bool mashupMode = false;
    std::set<std::string> checkedPaths;
    std::string selectedPath;
    std::int64_t sliceCount = 16;
    chop::ChopModel chopModel = chop::ChopModel::grid;
    std::int64_t variationCount = 10;
    double glitchAmount = 0.55;
};

struct GenerationResult {
    audio::WavData reference; ///< the first source, with its own PCM
    std::vector<GeneratedLoop> loops;
    std::size_t sourceCount = 0;
};

/// Decodes the sources, slices them into one pool and builds the variations,
/// all from one seeded generator, so equal requests and seeds give equal
/// bytes. Throws AppError or the reader's file errors; any failure abandons
/// the whole run. Reads only its arguments: safe on a worker thread.
GenerationResult runGeneration(const GenerationRequest& request, const std::function<std::int64_t()>& unixSeconds,
                               const std::function<playback::Uuid()>& randomUuid);

/// The name of variation `number` (from 1) of a run on the selected file
/// `selectedFileName`: its stem cut down to A-Z a-z 0-9 _ - (or "source"),
/// "_mqtry_", the model's tag and the number in at least two digits.
std::string variationName(const std::string& selectedFileName, chop::ChopModel model, std::int64_t number);

} // namespace marquetry::model

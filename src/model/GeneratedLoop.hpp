#pragma once

#include "audio/WavData.hpp"
#include "chop/VariationPlan.hpp"
#include "playback/PlaybackTarget.hpp"

#include <string>
#include <vector>

namespace marquetry::model {

/// One variation, held in memory until exported.
struct GeneratedLoop {
    playback::Uuid id{};      ///< fresh and random; tells runs apart
    std::string name;         ///< display and file name, e.g. AmenBreak170_mqtry_pivot03.wav
    audio::Bytes pcmData;     ///< interleaved PCM in the run's reference format
    std::vector<double> waveform;
    bool isSelected = true;   ///< ticked for export
    /// Where each slice came from and landed, in playing order; they tile pcmData.
    std::vector<chop::Placement> placements;

    bool operator==(const GeneratedLoop&) const = default;
};

} // namespace marquetry::model

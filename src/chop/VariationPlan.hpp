#pragma once

#include "audio/WavData.hpp"
#include "chop/ChopModel.hpp"
#include "chop/FitMode.hpp"
#include "chop/GlitchEffects.hpp"
#include "chop/RunProgress.hpp"
#include "chop/SeededGenerator.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace marquetry::chop {

/// One slice of a run's pool: whole frames of one of its sources, counted in
/// that source's own frames.
struct PoolSlice {
    std::int64_t source = 0; ///< index into the run's sources
    audio::FrameIndex start = 0;
    audio::FrameCount frames = 0;

    bool operator==(const PoolSlice&) const = default;
};

/// One slice placed in a variation: which pool slice, where its bytes land
/// and what was done to it on the way.
struct Placement {
    std::int64_t slice = 0;      ///< index into the pool
    std::int64_t byteOffset = 0; ///< first byte in the variation's PCM
    std::int64_t byteCount = 0;  ///< bytes it adds; a whole number of frames when every source shares one format
    GlitchTreatment treatment;   ///< all false and empty outside the Glitch model

    bool operator==(const Placement&) const = default;
};

/// Every decision of one variation, in playing order. Its placements tile
/// [0, byteCount) without gaps or overlaps.
struct VariationPlan {
    std::vector<Placement> placements;
    std::int64_t byteCount = 0;

    bool operator==(const VariationPlan&) const = default;
};

/// The settings of a run: the first four decide its draws, the rest only
/// finish the rendered bytes.
struct PlanSettings {
    std::int64_t sliceCount = 16;
    ChopModel chopModel = ChopModel::grid;
    std::int64_t variationCount = 10;
    double glitchAmount = 0.55;
    std::int64_t joinFadeMs = 0; ///< 0: slices butt together (see applyJoinFades)
    FitMode fit = FitMode::off;  ///< to sources[0]'s length (see fitToFrames)

    bool operator==(const PlanSettings&) const = default;
};

/// Every decision of a run: the pool and each variation's placements.
struct RunPlan {
    std::vector<PoolSlice> pool;
    std::vector<VariationPlan> variations;

    bool operator==(const RunPlan&) const = default;
};

/// Cuts source number `sourceIndex` by the settings' model and appends its
/// slices to `pool`; draws for the stochastic cuts only. Throws the slicing
/// errors (AppError::invalidWav).
void appendToPool(std::vector<PoolSlice>& pool, std::int64_t sourceIndex, const audio::WavData& source,
                  const PlanSettings& settings, SeededGenerator& rng);

/// The variations' placements over a finished pool: for each variation its
/// slice order, then for the Glitch model each placed slice's treatment, all
/// drawn from `rng` in playing order. `sources` supplies the byte length of
/// each slice and, in sources[0], the format the variations are built in.
/// Throws AppError::io "Could not create slices from selected source audio."
/// for an empty pool. Reads no sample.
std::vector<VariationPlan> planVariations(std::span<const PoolSlice> pool, std::span<const audio::WavData> sources,
                                          const PlanSettings& settings, SeededGenerator& rng);

/// Both steps for sources already decoded, in order: the whole decision of a
/// run that reads nothing from disk.
RunPlan planRun(std::span<const audio::WavData> sources, const PlanSettings& settings, SeededGenerator& rng);

/// The PCM of one planned variation: the planned slices, each treated as
/// planned, back to back, in the format of sources[0]. Pure: draws nothing,
/// so it may run on any thread and in any order.
Bytes renderVariation(const VariationPlan& variation, std::span<const PoolSlice> pool,
                      std::span<const audio::WavData> sources);

/// A rendered variation, its display envelope and its placements as they
/// sit in the finished bytes (after fitting).
struct RenderedVariation {
    Bytes pcm;
    std::vector<double> waveform;
    std::vector<Placement> placements;
};

/// Every planned variation with its envelope of `envelopePoints` points,
/// rendered on up to `threads` threads (0: one per core), each faded at its
/// joins over `settings.joinFadeMs` milliseconds at sources[0]'s rate (0:
/// not at all), then fitted to sources[0]'s frame count by `settings.fit`,
/// its placements following the fit. The bytes are the same whatever the
/// thread count. With `progress`, counts each finished variation there and
/// throws RunCancelled at the next variation or stretch block once it is
/// cancelled. Rethrows the first failure of any thread.
std::vector<RenderedVariation> renderVariations(std::span<const VariationPlan> variations,
                                                std::span<const PoolSlice> pool,
                                                std::span<const audio::WavData> sources, std::int64_t envelopePoints,
                                                const PlanSettings& settings, unsigned threads = 0,
                                                RunProgress* progress = nullptr);

} // namespace marquetry::chop

#include "chop/Slicing.hpp"

#include "audio/AppError.hpp"
#include "chop/ChopRecipe.hpp"
#include "chop/TransientDetection.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

namespace marquetry::chop {
namespace {

std::vector<Slice> copyRanges(std::span<const std::uint8_t> data, std::int64_t blockAlign,
                              const std::vector<FrameRange>& ranges) {
    std::vector<Slice> slices;
    slices.reserve(ranges.size());
    for (const FrameRange& range : ranges) {
        const auto first = data.begin() + range.start * blockAlign;
        slices.emplace_back(first, first + range.frames * blockAlign);
    }
    return slices;
}

std::vector<FrameRange> evenRanges(FrameCount totalFrames, std::int64_t sliceCount) {
    if (totalFrames < sliceCount)
        throw audio::AppError::invalidWav("Input loop too short for " + std::to_string(sliceCount) + " slices.");
    const FrameCount framesPerSlice = sliceCount > 0 ? totalFrames / sliceCount : 0;
    if (framesPerSlice < 1)
        throw audio::AppError::invalidWav("Calculated zero-length slices.");

    std::vector<FrameRange> ranges;
    ranges.reserve(static_cast<std::size_t>(sliceCount));
    for (std::int64_t i = 0; i < sliceCount; ++i) {
        const FrameIndex end = i == sliceCount - 1 ? totalFrames : (i + 1) * framesPerSlice;
        ranges.push_back({i * framesPerSlice, end - i * framesPerSlice});
    }
    return ranges;
}

std::vector<FrameRange> boundaryRanges(FrameCount totalFrames, const Boundaries& boundaries) {
    if (boundaries.size() < 2)
        return {};
    std::vector<FrameRange> ranges;
    ranges.reserve(boundaries.size() - 1);
    for (std::size_t i = 0; i + 1 < boundaries.size(); ++i) {
        const FrameIndex start = std::max<FrameIndex>(0, std::min(boundaries[i], totalFrames));
        // A repeated or descending pair still yields one frame at its start,
        // unless the start is past the data, where there is nothing to copy.
        const FrameIndex end = std::min(std::max(start + 1, std::min(boundaries[i + 1], totalFrames)), totalFrames);
        ranges.push_back({start, std::max<FrameCount>(end - start, 0)});
    }
    return ranges;
}

std::vector<FrameRange> withoutEmptyRanges(std::vector<FrameRange> ranges) {
    std::erase_if(ranges, [](const FrameRange& range) { return range.frames == 0; });
    return ranges;
}

double drawWeight(Weighting weighting, SeededGenerator& rng) {
    if (weighting == Weighting::diceFaces) {
        static constexpr std::array<double, 6> diceFaces{0.5, 0.75, 1.0, 1.25, 1.5, 2.0};
        const double face = rng.randomElement(std::span<const double>(diceFaces));
        return face * rng.randomDoubleClosed(0.8, 1.2);
    }
    const double u = rng.randomDouble(0, 1);
    const double scale = rng.randomDoubleClosed(0.6, 1.6);
    return scale * -std::log(std::max(u, 0.001));
}

} // namespace

std::vector<FrameRange> sliceRanges(const audio::WavData& wav, std::int64_t sliceCount, const ChopRecipe& steps,
                                    SeededGenerator& rng) {
    const FrameCount totalFrames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    switch (steps.cut) {
    case Cut::even: return evenRanges(totalFrames, sliceCount);
    case Cut::transient:
        return withoutEmptyRanges(boundaryRanges(totalFrames, buildTransientBoundaries(wav, sliceCount)));
    case Cut::stochastic:
        return withoutEmptyRanges(
            boundaryRanges(totalFrames, buildStochasticBoundaries(totalFrames, sliceCount, rng, steps.weighting)));
    }
    return {};
}

std::vector<Slice> createSlices(const audio::WavData& wav, std::int64_t sliceCount, ChopModel chopModel,
                                SeededGenerator& rng) {
    return copyRanges(wav.pcmData, wav.blockAlign, sliceRanges(wav, sliceCount, recipe(chopModel), rng));
}

std::vector<Slice> splitSlices(std::span<const std::uint8_t> data, std::int64_t blockAlign, std::int64_t sliceCount) {
    return copyRanges(data, blockAlign, evenRanges(static_cast<FrameCount>(data.size()) / blockAlign, sliceCount));
}

std::vector<Slice> splitSlicesByBoundaries(std::span<const std::uint8_t> data, std::int64_t blockAlign,
                                           const Boundaries& boundaries) {
    return copyRanges(data, blockAlign, boundaryRanges(static_cast<FrameCount>(data.size()) / blockAlign, boundaries));
}

Boundaries buildStochasticBoundaries(FrameCount totalFrames, std::int64_t sliceCount, SeededGenerator& rng,
                                     ChopModel model) {
    return buildStochasticBoundaries(totalFrames, sliceCount, rng, recipe(model).weighting);
}

Boundaries buildStochasticBoundaries(FrameCount totalFrames, std::int64_t sliceCount, SeededGenerator& rng,
                                     Weighting weighting) {
    if (totalFrames < 1 || sliceCount < 1)
        return {0, std::max<FrameCount>(totalFrames, 1)};

    std::vector<double> weights;
    weights.reserve(static_cast<std::size_t>(sliceCount));
    for (std::int64_t i = 0; i < sliceCount; ++i)
        weights.push_back(std::max(drawWeight(weighting, rng), 0.05));
    double total = 0;
    for (const double w : weights)
        total += w;
    total = std::max(total, 0.0001);

    std::vector<FrameCount> sizes;
    sizes.reserve(weights.size());
    FrameCount sum = 0;
    for (const double w : weights) {
        const double share = w / total;
        const auto size = std::max<FrameCount>(1, std::llround(share * static_cast<double>(totalFrames)));
        sizes.push_back(size);
        sum += size;
    }

    // Rounding leaves the sizes a few frames off the total; walk round-robin
    // one frame at a time. When every slice is down to one frame and the sum
    // is still too large (fewer frames than slices) nothing can move, so a
    // full pass without a change ends the walk.
    FrameCount diff = totalFrames - sum;
    std::size_t passedOver = 0;
    for (std::size_t k = 0; diff != 0 && passedOver < sizes.size(); k = (k + 1) % sizes.size()) {
        if (diff > 0) {
            ++sizes[k];
            --diff;
            passedOver = 0;
        } else if (sizes[k] > 1) {
            --sizes[k];
            ++diff;
            passedOver = 0;
        } else {
            ++passedOver;
        }
    }

    Boundaries boundaries;
    boundaries.reserve(sizes.size() + 1);
    boundaries.push_back(0);
    FrameIndex running = 0;
    for (const FrameCount size : sizes) {
        running += size;
        boundaries.push_back(std::min(running, totalFrames));
    }
    boundaries.back() = totalFrames;
    return boundaries;
}

} // namespace marquetry::chop

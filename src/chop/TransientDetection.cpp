#include "chop/TransientDetection.hpp"

#include "audio/SampleMagnitude.hpp"

#include <algorithm>
#include <numeric>

namespace marquetry::chop {
namespace {

struct Candidate {
    FrameIndex frame;
    float score;
};

// Picks kept in ascending order, so the nearest neighbours of a frame are
// found by binary search instead of comparing against every pick.
class Picks {
public:
    explicit Picks(std::size_t capacity) { frames_.reserve(capacity); }

    bool isClear(FrameIndex frame, FrameCount spacing) const {
        const auto after = std::lower_bound(frames_.begin(), frames_.end(), frame);
        if (after != frames_.end() && *after - frame < spacing)
            return false;
        return after == frames_.begin() || frame - *std::prev(after) >= spacing;
    }

    void add(FrameIndex frame) { frames_.insert(std::lower_bound(frames_.begin(), frames_.end(), frame), frame); }
    std::int64_t size() const { return static_cast<std::int64_t>(frames_.size()); }
    Boundaries take() && { return std::move(frames_); }

private:
    Boundaries frames_;
};

} // namespace

float frameAmplitude(const audio::WavData& wav, FrameIndex frame) {
    // Frames past the data read as silence, like any sample outside it.
    if (frame < 0 || frame > audio::frameCount(wav.pcmData.size(), wav.blockAlign))
        return 0.0f;
    return audio::frameMagnitude(wav, audio::sampleKind(wav), wav.pcmData.data(), wav.pcmData.size(), frame);
}

Boundaries buildTransientBoundaries(const audio::WavData& wav, std::int64_t sliceCount) {
    sliceCount = std::max<std::int64_t>(sliceCount, 1); // a divisor below
    const FrameCount totalFrames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    if (totalFrames <= sliceCount) {
        // The even step here is always one frame: every frame is a slice.
        Boundaries every(static_cast<std::size_t>(std::max<FrameCount>(totalFrames, 0) + 1));
        std::iota(every.begin(), every.end(), FrameIndex{0});
        return every;
    }

    // Only rises matter: ranking stops at the first score that is not above
    // zero, so flat and falling frames never need sorting.
    const audio::SampleKind kind = audio::sampleKind(wav);
    std::vector<Candidate> candidates;
    float previous = audio::frameMagnitude(wav, kind, wav.pcmData.data(), wav.pcmData.size(), 0);
    for (FrameIndex f = 1; f < totalFrames; ++f) {
        const float amplitude = audio::frameMagnitude(wav, kind, wav.pcmData.data(), wav.pcmData.size(), f);
        const float rise = amplitude - previous;
        if (rise > 0.0f)
            candidates.push_back({f, rise});
        previous = amplitude;
    }

    const FrameCount minSpacing = std::max<FrameCount>(totalFrames / (2 * sliceCount), 32);
    Picks picks(static_cast<std::size_t>(sliceCount));
    picks.add(0);

    // Highest score first; equal scores keep ascending frame order. Frames are
    // unique, so this total order ranks exactly as a stable sort by score.
    // The picks usually fill long before the ranking runs out, so rank in
    // growing chunks instead of sorting every rise of the loop.
    const auto ranksHigher = [](const Candidate& a, const Candidate& b) {
        return a.score > b.score || (a.score == b.score && a.frame < b.frame);
    };
    auto unranked = candidates.begin();
    for (std::ptrdiff_t chunk = 4 * sliceCount + 256; unranked != candidates.end() && picks.size() < sliceCount;
         chunk *= 4) {
        const auto chunkEnd = unranked + std::min(chunk, candidates.end() - unranked);
        std::nth_element(unranked, chunkEnd - 1, candidates.end(), ranksHigher);
        std::sort(unranked, chunkEnd, ranksHigher);
        for (; unranked != chunkEnd && picks.size() < sliceCount; ++unranked) {
            if (picks.isClear(unranked->frame, minSpacing))
                picks.add(unranked->frame);
        }
    }

    const FrameCount step = std::max<FrameCount>(totalFrames / sliceCount, 1);
    const FrameCount halfSpacing = minSpacing / 2;
    for (FrameIndex c = 0; c < totalFrames && picks.size() < sliceCount; c += step) {
        if (picks.isClear(c, halfSpacing))
            picks.add(c);
    }

    // Picks are unique (spacing is at least 16 frames), sorted and start at 0.
    Boundaries boundaries = std::move(picks).take();
    boundaries.push_back(totalFrames);
    return boundaries;
}

} // namespace marquetry::chop

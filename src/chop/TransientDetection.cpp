#include "chop/TransientDetection.hpp"

#include "audio/SampleMagnitude.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <numeric>

namespace marquetry::chop {
namespace {

struct Candidate {
    FrameIndex frame;
    float score;
};

// Picks as bits over the frames, with a summary level for every 64 bits of
// the level below, so "is any pick within the spacing" touches a few words
// per level however far the spacing reaches. Picks arrive by rank, not by
// frame; a sorted list would shift half its entries on every insertion
// (quadratic for a million slices), and a tree misses the cache on every
// question, of which there is one per ranked rise.
class Picks {
public:
    explicit Picks(std::size_t capacity) : capacity_(capacity) {}

    bool isClear(FrameIndex frame, FrameCount spacing) const {
        if (spacing <= 0)
            return true;
        const FrameIndex first = std::max<FrameIndex>(frame - spacing + 1, 0);
        return !anyIn(0, static_cast<std::uint64_t>(first), static_cast<std::uint64_t>(frame + spacing - 1));
    }

    void add(FrameIndex frame) {
        auto bit = static_cast<std::uint64_t>(frame);
        for (Words& words : levels_) {
            if (words.size() <= bit / 64)
                words.resize(bit / 64 + 1);
            words[bit / 64] |= std::uint64_t{1} << (bit % 64);
            bit /= 64;
        }
        ++count_;
    }

    std::int64_t size() const { return count_; }

    Boundaries take() && {
        Boundaries sorted;
        sorted.reserve(std::max(capacity_, static_cast<std::size_t>(count_)) + 1); // and the end boundary
        const Words& frames = levels_.front();
        for (std::size_t w = 0; w < frames.size(); ++w)
            for (std::uint64_t bits = frames[w]; bits != 0; bits &= bits - 1)
                sorted.push_back(static_cast<FrameIndex>(w * 64 + static_cast<unsigned>(std::countr_zero(bits))));
        return sorted;
    }

private:
    using Words = std::vector<std::uint64_t>;

    // Whether any bit in [first, last] of `level` is set.
    bool anyIn(std::size_t level, std::uint64_t first, std::uint64_t last) const {
        const Words& words = levels_[level];
        if (words.empty() || first > last || first / 64 >= words.size())
            return false;
        last = std::min<std::uint64_t>(last, words.size() * 64 - 1);
        const std::uint64_t firstWord = first / 64;
        const std::uint64_t lastWord = last / 64;
        const std::uint64_t fromFirst = ~std::uint64_t{0} << (first % 64);
        const std::uint64_t toLast = ~std::uint64_t{0} >> (63 - last % 64);
        if (firstWord == lastWord)
            return (words[firstWord] & fromFirst & toLast) != 0;
        if ((words[firstWord] & fromFirst) != 0 || (words[lastWord] & toLast) != 0)
            return true;
        // The top level's first word covers 2^36 frames, more than any WAV
        // file holds, so the search never climbs past it.
        return firstWord + 1 < lastWord && level + 1 < levels_.size()
               && anyIn(level + 1, firstWord + 1, lastWord - 1);
    }

    std::size_t capacity_;
    std::int64_t count_ = 0;
    std::array<Words, 6> levels_;
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

#include "chop/VariationPlan.hpp"

#include "audio/AppError.hpp"
#include "audio/WaveformEnvelope.hpp"
#include "chop/BarGridFit.hpp"
#include "chop/ChopRecipe.hpp"
#include "chop/JoinFades.hpp"
#include "chop/PatternGenerators.hpp"
#include "chop/Slicing.hpp"

#include <algorithm>
#include <atomic>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace marquetry::chop {
namespace {

std::span<const std::uint8_t> sliceBytes(const PoolSlice& slice, std::span<const audio::WavData> sources) {
    const audio::WavData& source = sources[static_cast<std::size_t>(slice.source)];
    return std::span(source.pcmData)
        .subspan(static_cast<std::size_t>(slice.start) * source.blockAlign,
                 static_cast<std::size_t>(slice.frames) * source.blockAlign);
}

// Maps the pages of `buffer`'s reserved storage before it is written, in
// one call rather than one fault per page as the copy reaches each: a run
// writes a few hundred megabytes into fresh memory, and on virtual machines
// a page fault costs microseconds. Only a hint: where the system cannot,
// the pages are mapped as they are written.
void mapBeforeWriting(Bytes& buffer) {
#if defined(__linux__) && defined(MADV_POPULATE_WRITE)
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(buffer.data());
    const std::uintptr_t first = (begin + page - 1) / page * page;
    const std::uintptr_t last = (begin + buffer.capacity()) / page * page;
    if (last > first)
        ::madvise(reinterpret_cast<void*>(first), last - first, MADV_POPULATE_WRITE);
#else
    (void)buffer;
#endif
}

// Runs work(0) ... work(count - 1), each exactly once, on up to `threads`
// threads that take the next index as they come free. The first failure
// stops the hand-out of new indices and is rethrown here.
void forEachIndex(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& work) {
    if (threads == 0)
        threads = std::max(1u, std::thread::hardware_concurrency());
    threads = static_cast<unsigned>(std::min<std::size_t>(threads, count));
    if (threads <= 1) {
        for (std::size_t i = 0; i < count; ++i)
            work(i);
        return;
    }

    std::atomic<std::size_t> next{0};
    std::atomic<bool> failed{false};
    std::exception_ptr failure;
    std::mutex failureMutex;
    const auto worker = [&] {
        for (std::size_t i = next++; i < count && !failed; i = next++) {
            try {
                work(i);
            } catch (...) {
                const std::lock_guard lock(failureMutex);
                if (!failure)
                    failure = std::current_exception();
                failed = true;
            }
        }
    };
    {
        // This thread works too, so `threads` counts it.
        std::vector<std::jthread> helpers;
        helpers.reserve(threads - 1);
        for (unsigned t = 1; t < threads; ++t)
            helpers.emplace_back(worker);
        worker();
    }
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace

void appendToPool(std::vector<PoolSlice>& pool, std::int64_t sourceIndex, const audio::WavData& source,
                  const PlanSettings& settings, SeededGenerator& rng) {
    for (const FrameRange& range : sliceRanges(source, settings.sliceCount, recipe(settings.chopModel), rng))
        pool.push_back({sourceIndex, range.start, range.frames});
}

std::vector<VariationPlan> planVariations(std::span<const PoolSlice> pool, std::span<const audio::WavData> sources,
                                          const PlanSettings& settings, SeededGenerator& rng) {
    if (pool.empty())
        throw audio::AppError::io("Could not create slices from selected source audio.");
    const audio::WavData& format = sources.front();
    const ChopRecipe steps = recipe(settings.chopModel);
    const auto poolSize = static_cast<std::int64_t>(pool.size());

    std::vector<VariationPlan> variations;
    variations.reserve(static_cast<std::size_t>(std::max<std::int64_t>(settings.variationCount, 0)));
    for (std::int64_t k = 0; k < settings.variationCount; ++k) {
        VariationPlan variation;
        variation.placements.reserve(pool.size());
        for (const std::int64_t index : generatePattern(steps, poolSize, rng)) {
            const PoolSlice& slice = pool[static_cast<std::size_t>(index)];
            Placement placement{.slice = index, .byteOffset = variation.byteCount, .byteCount = 0, .treatment = {}};
            const std::size_t bytes = sliceBytes(slice, sources).size();
            if (steps.glitchEffects) {
                placement.treatment = drawGlitchTreatment(bytes, format, settings.glitchAmount, rng);
                placement.byteCount = static_cast<std::int64_t>(treatedSize(bytes, placement.treatment, format));
            } else {
                placement.byteCount = static_cast<std::int64_t>(bytes);
            }
            variation.byteCount += placement.byteCount;
            variation.placements.push_back(placement);
        }
        variations.push_back(std::move(variation));
    }
    return variations;
}

RunPlan planRun(std::span<const audio::WavData> sources, const PlanSettings& settings, SeededGenerator& rng) {
    RunPlan plan;
    for (std::size_t i = 0; i < sources.size(); ++i)
        appendToPool(plan.pool, static_cast<std::int64_t>(i), sources[i], settings, rng);
    plan.variations = planVariations(plan.pool, sources, settings, rng);
    return plan;
}

Bytes renderVariation(const VariationPlan& variation, std::span<const PoolSlice> pool,
                      std::span<const audio::WavData> sources) {
    // Reserved at the planned size, so the buffer is allocated and mapped
    // once before the copies fill it.
    Bytes pcm;
    pcm.reserve(static_cast<std::size_t>(variation.byteCount));
    mapBeforeWriting(pcm);
    for (const Placement& placement : variation.placements) {
        const auto bytes = sliceBytes(pool[static_cast<std::size_t>(placement.slice)], sources);
        if (placement.treatment == GlitchTreatment{}) {
            pcm.insert(pcm.end(), bytes.begin(), bytes.end());
        } else {
            const Bytes treated = applyGlitchTreatment(bytes, placement.treatment, sources.front());
            pcm.insert(pcm.end(), treated.begin(), treated.end());
        }
    }
    return pcm;
}

std::vector<RenderedVariation> renderVariations(std::span<const VariationPlan> variations,
                                                std::span<const PoolSlice> pool,
                                                std::span<const audio::WavData> sources, std::int64_t envelopePoints,
                                                const PlanSettings& settings, unsigned threads,
                                                RunProgress* progress) {
    const audio::WavData& reference = sources.front();
    const audio::FrameCount fadeFrames = joinFadeFrames(settings.joinFadeMs, reference.sampleRate);
    const audio::FrameCount fitFadeFrames = std::max(fadeFrames, joinFadeFrames(minFitFadeMs, reference.sampleRate));
    const audio::FrameCount referenceFrames = audio::frameCount(reference.pcmData.size(), reference.blockAlign);
    std::vector<RenderedVariation> rendered(variations.size());
    forEachIndex(rendered.size(), threads, [&](std::size_t i) {
        throwIfCancelled(progress);
        rendered[i].pcm = renderVariation(variations[i], pool, sources);
        applyJoinFades(rendered[i].pcm, variations[i], reference, fadeFrames);
        fitToFrames(rendered[i].pcm, reference, referenceFrames, settings.fit, fitFadeFrames, progress);
        VariationPlan fitted = variations[i];
        fitPlacements(fitted, static_cast<std::int64_t>(rendered[i].pcm.size()), settings.fit, reference.blockAlign);
        rendered[i].placements = std::move(fitted.placements);
        rendered[i].waveform = audio::waveformEnvelope(sources.front(), rendered[i].pcm, envelopePoints);
        if (progress != nullptr)
            progress->variationsDone.fetch_add(1, std::memory_order_relaxed);
    });
    return rendered;
}

} // namespace marquetry::chop

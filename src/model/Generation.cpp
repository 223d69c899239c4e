#include "model/Generation.hpp"

#include "audio/AppError.hpp"
#include "audio/WaveformEnvelope.hpp"
#include "audio/WavReader.hpp"
#include "chop/GlitchEffects.hpp"
#include "chop/PatternGenerators.hpp"
#include "chop/Slicing.hpp"
#include "model/FileSystem.hpp"
#include "model/UnicodeOrder.hpp"

#include <cstdio>

namespace marquetry::model {
namespace {

constexpr std::int64_t envelopePoints = 1000;

bool isNameCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

std::vector<std::string> sourceList(const GenerationRequest& request) {
    if (request.mashupMode && !request.checkedPaths.empty()) {
        std::vector<std::string> paths(request.checkedPaths.begin(), request.checkedPaths.end());
        sortByPath(paths);
        return paths;
    }
    return {request.selectedPath};
}

} // namespace

GenerationResult runGeneration(const GenerationRequest& request, const std::function<std::int64_t()>& unixSeconds,
                               const std::function<playback::Uuid()>& randomUuid) {
    chop::SeededGenerator rng(chop::resolveSeed(request.seedText, unixSeconds()));

    const std::vector<std::string> sources = sourceList(request);
    if (sources.empty() || sources.front().empty())
        throw audio::AppError::io("No source files available.");

    GenerationResult result;
    result.sourceCount = sources.size();
    result.reference = audio::loadWav(sources.front());

    // Every source is decoded again, the reference too, so the run always
    // cuts what is on disk now and its draws follow the source order.
    std::vector<chop::Slice> pool;
    for (const std::string& path : sources) {
        const audio::WavData wav = audio::loadWav(path);
        auto slices = chop::createSlices(wav, request.sliceCount, request.chopModel, rng);
        pool.insert(pool.end(), std::make_move_iterator(slices.begin()), std::make_move_iterator(slices.end()));
    }
    if (pool.empty())
        throw audio::AppError::io("Could not create slices from selected source audio.");

    const auto poolSize = static_cast<std::int64_t>(pool.size());
    const std::string selectedName = fileName(request.selectedPath);
    const bool glitch = request.chopModel == chop::ChopModel::glitch;
    result.loops.reserve(static_cast<std::size_t>(std::max<std::int64_t>(request.variationCount, 0)));
    for (std::int64_t k = 1; k <= request.variationCount; ++k) {
        GeneratedLoop loop;
        loop.pcmData.reserve(result.reference.pcmData.size());
        for (const std::int64_t index : chop::generatePattern(request.chopModel, poolSize, rng)) {
            const chop::Slice& slice = pool[static_cast<std::size_t>(index)];
            if (glitch) {
                const audio::Bytes processed =
                    chop::applyGlitchEffects(slice, result.reference, request.glitchAmount, rng);
                loop.pcmData.insert(loop.pcmData.end(), processed.begin(), processed.end());
            } else {
                loop.pcmData.insert(loop.pcmData.end(), slice.begin(), slice.end());
            }
        }
        loop.name = variationName(selectedName, request.chopModel, k);
        loop.waveform = audio::waveformEnvelope(result.reference, loop.pcmData, envelopePoints);
        loop.id = randomUuid();
        result.loops.push_back(std::move(loop));
    }
    return result;
}

std::string variationName(const std::string& selectedFileName, chop::ChopModel model, std::int64_t number) {
    const std::size_t dot = selectedFileName.rfind('.');
    const std::string stem = dot == std::string::npos ? selectedFileName : selectedFileName.substr(0, dot);
    std::string name;
    for (const char c : stem)
        if (isNameCharacter(c))
            name += c;
    if (name.empty())
        name = "source";
    name += "_mqtry_";
    for (const char c : chop::label(model)) {
        const char lower = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        if ((lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9'))
            name += lower;
    }
    char digits[24];
    std::snprintf(digits, sizeof digits, "%02lld", static_cast<long long>(number));
    return name + digits + ".wav";
}

} // namespace marquetry::model

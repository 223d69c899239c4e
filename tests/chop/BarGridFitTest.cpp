#include "audio/AppError.hpp"
#include "audio/FormatConversion.hpp"
#include "audio/WavReader.hpp"
#include "chop/BarGridFit.hpp"
#include "chop/JoinFades.hpp"
#include "chop/VariationPlan.hpp"

#include "support/WavImageBuilder.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace marquetry::chop {
namespace {

using audio::FrameCount;
using audio::WavData;

float loudestOfFrame(const WavData& format, const Bytes& pcm, FrameCount frame) {
    const std::size_t start = static_cast<std::size_t>(frame) * format.blockAlign;
    float loudest = 0;
    for (const float x : audio::toFloat(format, std::span(pcm).subspan(start, format.blockAlign)))
        loudest = std::max(loudest, std::fabs(x));
    return loudest;
}

// Every model's variations, trimmed or stretched, come out exactly as long as
// the loop they were cut from, in every layout; the same run on one thread
// and on two, the second watched for progress, gives the same bytes.
TEST(BarGridFit, EveryModelLandsOnTheReferenceLengthOnAnyThreadCount) {
    for (const char* name : {"amen_s16.wav", "amen_u8.wav", "amen_s24.wav", "amen_f32.wav"}) {
        const std::vector<WavData> sources{audio::loadWav(audio::test::testLoopPath(name))};
        const WavData& format = sources[0];
        const FrameCount reference = audio::frameCount(format.pcmData.size(), format.blockAlign);
        const bool everyModel = std::string_view(name) == "amen_s16.wav";
        for (const ChopModel model : allChopModels) {
            if (!everyModel && model != ChopModel::glitch)
                continue;
            for (const FitMode fit : {FitMode::trim, FitMode::stretch}) {
                SCOPED_TRACE(std::string(name) + " " + std::string(label(model)) + " " + std::string(fitModeName(fit)));
                SeededGenerator rng(5);
                const PlanSettings settings{16, model, 2, 0.9, 0, fit};
                const RunPlan plan = planRun(sources, settings, rng);
                const auto one = renderVariations(plan.variations, plan.pool, sources, 10, settings, 1);
                RunProgress progress;
                const auto two = renderVariations(plan.variations, plan.pool, sources, 10, settings, 2, &progress);
                EXPECT_EQ(progress.variationsDone, 2);
                for (std::size_t v = 0; v < one.size(); ++v) {
                    EXPECT_EQ(audio::frameCount(one[v].pcm.size(), format.blockAlign), reference);
                    EXPECT_EQ(one[v].pcm.size() % format.blockAlign, 0u);
                    EXPECT_EQ(one[v].pcm, two[v].pcm);
                }
            }
        }
    }
}

// A cancelled run stops at its first check, in the render and in a stretch
// alike, with nothing counted.
TEST(BarGridFit, ACancelledRunStopsAtItsFirstCheck) {
    const std::vector<WavData> sources{audio::loadWav(audio::test::testLoopPath("amen_s16.wav"))};
    const FrameCount frames = audio::frameCount(sources[0].pcmData.size(), sources[0].blockAlign);
    SeededGenerator rng(5);
    const PlanSettings settings{16, ChopModel::dice, 4, 0.55, 0, FitMode::stretch};
    const RunPlan plan = planRun(sources, settings, rng);
    RunProgress progress;
    progress.cancelled = true;
    EXPECT_THROW(renderVariations(plan.variations, plan.pool, sources, 10, settings, 2, &progress), RunCancelled);
    EXPECT_THROW(stretchToFrames(sources[0], sources[0].pcmData, frames * 2, &progress), RunCancelled);
    EXPECT_EQ(progress.variationsDone, 0);
}

// A trimmed loop ends at silence whether it was cut or padded, and padding
// is silence in the layout's own terms (128 for 8-bit samples).
TEST(BarGridFit, TrimEndsAtSilenceAndPadsWithSilence) {
    for (const char* name : {"amen_s16.wav", "amen_u8.wav"}) {
        const WavData wav = audio::loadWav(audio::test::testLoopPath(name));
        const FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
        const FrameCount fade = joinFadeFrames(minFitFadeMs, wav.sampleRate);
        for (const FrameCount target : {frames / 2, frames + 1000}) {
            SCOPED_TRACE(std::string(name) + " to " + std::to_string(target));
            Bytes pcm = wav.pcmData;
            fitToFrames(pcm, wav, target, FitMode::trim, fade);
            ASSERT_EQ(audio::frameCount(pcm.size(), wav.blockAlign), target);
            const FrameCount kept = std::min(frames, target);
            EXPECT_LE(loudestOfFrame(wav, pcm, kept - 1), 1.0f / 128);
            EXPECT_EQ(std::vector(pcm.begin(), pcm.begin() + (kept - fade) * wav.blockAlign),
                      std::vector(wav.pcmData.begin(), wav.pcmData.begin() + (kept - fade) * wav.blockAlign));
            for (FrameCount f = kept; f < target; ++f)
                EXPECT_EQ(loudestOfFrame(wav, pcm, f), 0.0f);
        }
    }
}

TEST(BarGridFit, StretchKeepsTheLevelAndRefusesWhatItCannotDo) {
    const WavData wav = audio::loadWav(audio::test::testLoopPath("amen_s16.wav"));
    const FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    const auto rms = [&](const Bytes& pcm) {
        double sum = 0;
        const std::vector<float> x = audio::toFloat(wav, pcm);
        for (const float s : x)
            sum += s * s;
        return std::sqrt(sum / static_cast<double>(x.size()));
    };
    const Bytes slower = stretchToFrames(wav, wav.pcmData, frames * 5 / 4);
    EXPECT_EQ(audio::frameCount(slower.size(), wav.blockAlign), frames * 5 / 4);
    EXPECT_NEAR(20 * std::log10(rms(slower) / rms(wav.pcmData)), 0.0, 1.5);
    EXPECT_EQ(stretchToFrames(wav, wav.pcmData, frames * 5 / 4), slower);

    const auto message = [&](std::span<const std::uint8_t> pcm, FrameCount target) {
        try {
            stretchToFrames(wav, pcm, target);
        } catch (const audio::AppError& error) {
            return std::string(error.what());
        }
        return std::string("(stretched)");
    };
    EXPECT_EQ(message(std::span(wav.pcmData).first(400), 2000),
              "Cannot stretch 100 frames of audio to 2000 frames: stretching needs at least 1024 frames on each side "
              "and lengths at most eight times apart.");
    EXPECT_EQ(message(wav.pcmData, frames * 9), "Cannot stretch " + std::to_string(frames) + " frames of audio to "
                                                    + std::to_string(frames * 9)
                                                    + " frames: stretching needs at least 1024 frames on each side "
                                                      "and lengths at most eight times apart.");
}

// The placements follow the audio: a trim drops what it cut, a stretch
// moves every start in proportion; either way they still tile the loop.
TEST(BarGridFit, PlacementsFollowTheFittedAudio) {
    const VariationPlan plan{{{0, 0, 400, {}}, {1, 400, 400, {}}, {2, 800, 400, {}}}, 1200};
    VariationPlan trimmed = plan;
    fitPlacements(trimmed, 600, FitMode::trim, 4);
    EXPECT_EQ(trimmed, (VariationPlan{{{0, 0, 400, {}}, {1, 400, 200, {}}}, 600}));
    VariationPlan stretched = plan;
    fitPlacements(stretched, 2400, FitMode::stretch, 4);
    EXPECT_EQ(stretched, (VariationPlan{{{0, 0, 800, {}}, {1, 800, 800, {}}, {2, 1600, 800, {}}}, 2400}));
    VariationPlan padded = plan;
    fitPlacements(padded, 1600, FitMode::trim, 4);
    EXPECT_EQ(padded.placements, plan.placements);
    EXPECT_EQ(padded.byteCount, 1600);
}

} // namespace
} // namespace marquetry::chop

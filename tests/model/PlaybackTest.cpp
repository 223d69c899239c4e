// Preview playback as the window drives it: the two toggles, the one player,
// the playhead timer, the master volume, and what stops a stream.
#include "Fakes.hpp"

#include "audio/WavWriter.hpp"

#include <gmock/gmock.h>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Optional;
using playback::PlaybackTarget;

class AppModelPlayback : public ModelTest {
protected:
    void SetUp() override {
        a = addLoop("a.wav");
        b = addLoop("b.wav", "amen_mono_s16.wav");
        start();
        generate();
    }
    GeneratedLoop loop(std::size_t i) const { return model->generatedLoops().at(i); }
    void expectPlaying(const std::optional<PlaybackTarget>& target) const {
        EXPECT_EQ(model->playingTarget(), target);
        EXPECT_EQ(std::pair(players.live(), timers.live()), target ? std::pair(1L, 1L) : std::pair(0L, 0L));
        EXPECT_TRUE(target || !model->playbackProgress());
    }

    std::string a, b;
};

// A variation plays under the header of the source loaded now, not the one
// it was cut from.
TEST_F(AppModelPlayback, EachToggleLoopsItsOwnPcmUnderTheCurrentSourceHeaderAndStopsTheOtherStream) {
    AppModel& m = *model;
    const audio::WavData source = *m.sourceWavData();
    m.toggleSourcePlayback();
    expectPlaying(PlaybackTarget::source());
    EXPECT_EQ(m.status(), "Playing source loop (looping). Click again to stop.");
    EXPECT_THAT(m.playbackProgress(), Optional(0.25)) << "drawn before the first tick";
    const auto& first = players.players.at(0);
    EXPECT_EQ(first.image, audio::buildWavFileData(source, source.pcmData));
    EXPECT_THAT(first.volumes, ElementsAre(0.85f));
    EXPECT_THAT(first.calls, ElementsAre("prepare", "play"));
    EXPECT_EQ(timers.timers.at(0).interval, 0.03);

    m.togglePlayback(loop(1));
    expectPlaying(PlaybackTarget::generated(loop(1).id));
    EXPECT_EQ(first.calls.back(), "stop") << "one stream at a time";
    EXPECT_EQ(m.status(), "Playing a_mqtry_grid02.wav (looping). Click again to stop.");
    EXPECT_EQ(players.players.at(1).image, audio::buildWavFileData(source, loop(1).pcmData));

    const GeneratedLoop kept = loop(0);
    m.selectFile(b);
    m.togglePlayback(kept);
    EXPECT_EQ(players.players.at(2).image, audio::buildWavFileData(audio::loadWav(b), kept.pcmData));

    // Pooled from a source of another format, a variation can end in part of
    // a frame: the preview plays the whole frames.
    GeneratedLoop ragged = kept;
    ragged.pcmData.push_back(0x7F);
    ragged.id[0] ^= 0xFF; // another variation, not a second click on the playing one
    m.togglePlayback(ragged);
    EXPECT_EQ(players.players.at(3).image, audio::buildWavFileData(audio::loadWav(b), kept.pcmData));
}

TEST_F(AppModelPlayback, ClickingThePlayingTargetAgainOrClosingTheModelStopsIt) {
    AppModel& m = *model;
    m.toggleSourcePlayback();
    m.toggleSourcePlayback();
    expectPlaying(std::nullopt);
    EXPECT_EQ(m.status(), "Stopped source preview.");
    EXPECT_THAT(players.players.at(0).calls, ElementsAre("prepare", "play", "stop"));

    m.togglePlayback(loop(0));
    m.togglePlayback(loop(0));
    expectPlaying(std::nullopt);
    EXPECT_EQ(m.status(), "Stopped preview.");

    m.toggleSourcePlayback();
    model.reset();
    EXPECT_EQ(std::pair(players.live(), timers.live()), std::pair(0L, 0L));
    EXPECT_EQ(players.players.at(2).calls.back(), "stop");
}

TEST_F(AppModelPlayback, WithoutASourceBothTogglesOnlyAskForOne) {
    AppModel& m = *model;
    const GeneratedLoop kept = loop(0);
    m.selectFile(std::nullopt);
    changes.clear();
    m.toggleSourcePlayback();
    m.togglePlayback(kept);
    EXPECT_EQ(m.status(), "Load a source loop first.");
    EXPECT_THAT(changes, ElementsAre(Field::status, Field::status));
    EXPECT_TRUE(players.players.empty());
}

TEST_F(AppModelPlayback, APlayerThatCannotBeCreatedReportsAndEndsIdle) {
    AppModel& m = *model;
    m.togglePlayback(loop(0));
    players.failWith = "The data is not playable.";
    m.togglePlayback(loop(1));
    EXPECT_EQ(m.status(), "Playback failed: The data is not playable.");
    expectPlaying(std::nullopt);
    EXPECT_EQ(players.players.at(0).calls.back(), "stop");

    m.toggleSourcePlayback();
    EXPECT_EQ(m.status(), "Playback failed: The data is not playable.");
    expectPlaying(std::nullopt);
}

TEST_F(AppModelPlayback, TheTimerMovesThePlayheadAsCurrentTimeOverDuration) {
    AppModel& m = *model;
    m.toggleSourcePlayback();
    const struct {
        double currentTime, duration;
        std::optional<double> progress;
    } ticks[] = {{1.5, 2, 0.75}, {3, 2, 1.5}, {1, 0, std::nullopt}, {1, -1, std::nullopt}};
    for (const auto& tick : ticks) {
        players.currentTime = tick.currentTime;
        players.duration = tick.duration;
        changes.clear();
        timers.fire();
        EXPECT_EQ(m.playbackProgress(), tick.progress) << tick.currentTime << "/" << tick.duration;
        EXPECT_THAT(changes, ElementsAre(Field::playbackProgress));
    }
    m.stopPlayback();
    m.toggleSourcePlayback();
    EXPECT_FALSE(m.playbackProgress()) << "a zero duration draws no playhead from the start";
}

TEST_F(AppModelPlayback, VolumeReachesTheLivePlayerAtOnceAndIsOnlyStoredWhileIdle) {
    AppModel& m = *model;
    m.setMasterVolume(0.3);
    m.togglePlayback(loop(0));
    m.setMasterVolume(0.6);
    m.setMasterVolume(1.5);
    m.stopPlayback();
    m.setMasterVolume(0.1);
    EXPECT_EQ(m.masterVolume(), 0.1);
    EXPECT_THAT(players.players.at(0).volumes, ElementsAre(0.3f, 0.6f, 1.5f));
}

TEST_F(AppModelPlayback, EveryChangeOfMaterialStopsThePreviewWithoutAMessage) {
    AppModel& m = *model;
    const std::pair<const char*, std::function<void()>> changesOfMaterial[] = {
        {"reselect", [&] { m.selectFile(a); }},
        {"choose folder", [&] { chooser.answer = sourceFolder(); m.chooseSourceFolder(); }},
        {"generate", [&] { m.generate(); }},
    };
    for (const auto& [what, change] : changesOfMaterial) {
        m.selectFile(a);
        generate();
        m.togglePlayback(loop(0));
        change();
        expectPlaying(std::nullopt);
        EXPECT_EQ(m.status().find("Stopped"), std::string::npos) << what;
        tasks.drain();
    }
}

} // namespace
} // namespace marquetry::model::test

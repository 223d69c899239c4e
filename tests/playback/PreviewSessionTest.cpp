// The session on its own: what holds between any two calls, and its end.
// The messages and the model's use of it are tested with the model.
#include "support/FakeAudioOutput.hpp"
#include "playback/PreviewSession.hpp"

#include <gtest/gtest.h>

namespace marquetry::playback::test {
namespace {

class PreviewSessionTest : public ::testing::Test {
protected:
    FakeAudioPlayerFactory players;
    FakeTimerFactory timers;
    std::vector<PreviewSession::Change> changes;
    std::optional<PreviewSession> session{std::in_place, players, timers,
                                          [this](PreviewSession::Change change) { changes.push_back(change); }};
    const audio::Bytes image = audio::Bytes(64, 1);
};

TEST_F(PreviewSessionTest, PlayerTimerAndTargetAreAllPresentOrAllAbsent) {
    const std::pair<const char*, std::function<void()>> steps[] = {
        {"play source", [&] { EXPECT_FALSE(session->play(PlaybackTarget::source(), image, 1.0)); }},
        {"tick", [&] { timers.fire(); }},
        {"play loop", [&] { session->play(PlaybackTarget::generated(Uuid{1}), image, 1.0); }},
        {"fail",
         [&] {
             players.failWith = "no";
             EXPECT_EQ(session->play(PlaybackTarget::source(), image, 1.0), "no");
         }},
        {"tick while idle", [&] { timers.fire(); }},
        {"play again", [&] { players.failWith.reset(); session->play(PlaybackTarget::source(), image, 1.0); }},
        {"stop", [&] { session->stop(); }},
        {"stop idle", [&] { session->stop(); }},
    };
    for (const auto& [what, step] : steps) {
        step();
        const long playing = session->playingTarget() ? 1 : 0;
        EXPECT_EQ(std::pair(players.live(), timers.live()), std::pair(playing, playing)) << what;
        EXPECT_TRUE(playing || !session->playbackProgress()) << what;
    }
    EXPECT_EQ(players.players.size(), 3u);
}

TEST_F(PreviewSessionTest, EndingTheSessionSilencesThePlayerWithoutReporting) {
    session->play(PlaybackTarget::source(), image, 0.5);
    changes.clear();
    session.reset();
    EXPECT_EQ(std::pair(players.live(), timers.live()), std::pair(0L, 0L));
    EXPECT_EQ(players.players.at(0).calls.back(), "stop");
    EXPECT_TRUE(changes.empty()) << "whoever listened may be gone already";
}

} // namespace
} // namespace marquetry::playback::test

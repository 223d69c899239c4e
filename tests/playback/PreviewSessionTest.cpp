// What the model does not show of the session: its state after a failure,
// which the model clears anyway, and its end, when whoever listened may be
// gone. Playing, stopping and their messages are tested with the model.
#include "support/FakeAudioOutput.hpp"
#include "playback/PreviewSession.hpp"

#include <gtest/gtest.h>

namespace marquetry::playback::test {
namespace {

TEST(PreviewSession, AFailedPlayLeavesItIdleAndItsEndSilencesThePlayerWithoutReporting) {
    FakeAudioPlayerFactory players;
    FakeTimerFactory timers;
    int changes = 0;
    std::optional<PreviewSession> session{std::in_place, players, timers, [&](PreviewSession::Change) { ++changes; }};
    players.failWith = "no";
    EXPECT_EQ(session->play(PlaybackTarget::source(), audio::Bytes(64, 1), 0.5), "no");
    EXPECT_FALSE(session->playingTarget());
    players.failWith.reset();
    session->play(PlaybackTarget::source(), audio::Bytes(64, 1), 0.5);
    changes = 0;
    session.reset();
    EXPECT_EQ(std::pair(players.live(), timers.live()), std::pair(0L, 0L));
    EXPECT_EQ(players.players.at(0).calls.back(), "stop");
    EXPECT_EQ(changes, 0);
}

} // namespace
} // namespace marquetry::playback::test

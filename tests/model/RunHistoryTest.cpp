// The history of runs: Back and Forward regenerate an earlier run to the same
// bytes with its ticks, also after a change of source emptied the list, and
// refuse, saying which file, when a source has changed since.
#include "Fakes.hpp"

#include <gmock/gmock.h>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;

// What Back must bring back: every variation's name, bytes and tick.
using Shown = std::vector<std::tuple<std::string, audio::Bytes, bool>>;
Shown shown(const AppModel& m) {
    Shown result;
    for (const GeneratedLoop& loop : m.generatedLoops())
        result.emplace_back(loop.name, loop.pcmData, loop.isSelected);
    return result;
}

class AppModelHistory : public ModelTest {
protected:
    void step(void (AppModel::*move)()) {
        (model.get()->*move)();
        tasks.drain();
    }
};

TEST_F(AppModelHistory, BackAndForwardBringBackTheSameVariationsAndTicks) {
    const std::string a = addLoop("a.wav");
    addLoop("b.wav", "breakbeat_s16.wav");
    AppModel& m = start();
    m.changeSettings([&](model::RunSettings& s) { s.plan.variationCount = 4; });
    generate(); // blank seed: the clock decides
    m.toggleSelection(m.generatedLoops()[1].id, false);
    const Shown first = shown(m);
    m.changeSettings([&](model::RunSettings& s) { s.plan.chopModel = chop::ChopModel::pivot; });
    m.changeSettings([&](model::RunSettings& s) { s.seedText = "7"; });
    generate();
    const Shown second = shown(m);
    ASSERT_NE(std::get<1>(first[0]), std::get<1>(second[0]));

    step(&AppModel::goBack);
    EXPECT_EQ(shown(m), first);
    EXPECT_EQ(m.status(), "Run 1 of 2: Generated 4 preview loop(s) from 1 source file using Grid chop model.");
    // The seed the run used, not the blank it was asked with.
    EXPECT_EQ(m.lastRun()->settings.seedText, std::to_string(now));
    step(&AppModel::goBack); // nothing before the first run
    EXPECT_EQ(shown(m), first);
    EXPECT_TRUE(tasks.background.empty());

    step(&AppModel::goForward);
    EXPECT_EQ(shown(m), second);
    EXPECT_FALSE(m.runHistory().forwardTarget());

    // Another source empties the list; Back brings the same run back, on its own loop.
    m.selectFile(sourceFolder() + "/b.wav");
    ASSERT_TRUE(m.generatedLoops().empty());
    step(&AppModel::goBack);
    EXPECT_EQ(shown(m), second);
    EXPECT_EQ(m.selectedFile(), a);
    EXPECT_EQ(m.runHistory().size(), 2u) << "bringing a run back adds none";
}

TEST_F(AppModelHistory, ASourceChangedOnDiskIsNamedAndNothingElseChanges) {
    addLoop("a.wav");
    AppModel& m = start();
    m.changeSettings([&](model::RunSettings& s) { s.plan.variationCount = 2; });
    generate();
    m.changeSettings([&](model::RunSettings& s) { s.seedText = "5"; });
    generate();
    const Shown second = shown(m);
    addLoop("a.wav", "breakbeat_s16.wav"); // same name, other bytes
    m.toggleSourcePlayback();

    changes.clear();
    m.goBack();
    EXPECT_THAT(changes, ElementsAre(Field::status));
    EXPECT_EQ(m.status(), "Cannot bring back that run: a.wav has changed since.");
    EXPECT_TRUE(tasks.background.empty());
    EXPECT_EQ(players.live(), 1) << "the preview plays on";
    EXPECT_EQ(shown(m), second);

    fs::remove(sourceFolder() + "/a.wav");
    m.goBack();
    EXPECT_EQ(m.status(), "Cannot bring back that run: a.wav has changed since.");
}

TEST(RunHistory, KeepsTheLatestRunsAndKnowsWhereBackAndForwardGo) {
    RunHistory history;
    EXPECT_FALSE(history.backTarget() || history.forwardTarget());
    RunRecord run;
    run.settings.seedText = "any text";
    for (std::uint64_t seed = 0; seed < RunHistory::capacity + 5; ++seed) {
        run.seed = seed;
        history.add(run, 3);
    }
    ASSERT_EQ(history.size(), RunHistory::capacity);
    EXPECT_EQ(history.at(0).seed, 5u) << "the oldest runs go first";
    EXPECT_EQ(history.at(0).replaySettings().seedText, "5");
    EXPECT_EQ(history.backTarget(), RunHistory::capacity - 2);
    EXPECT_FALSE(history.forwardTarget());
    history.leave();
    EXPECT_EQ(history.backTarget(), RunHistory::capacity - 1) << "the current run, once off screen";

    history.show(0);
    EXPECT_FALSE(history.backTarget());
    EXPECT_EQ(history.forwardTarget(), 1u);
    history.setTick(2, false);
    history.setTick(7, false); // beyond the run: ignored
    history.leave();
    history.setTick(0, false); // no run on screen: ignored
    EXPECT_EQ(history.at(0).ticks, (std::vector<bool>{true, true, false}));
}

} // namespace
} // namespace marquetry::model::test

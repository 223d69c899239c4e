// What the source list learns in the background: headers first, tempo
// after, refusals with the reader's own message, nothing from a stale scan.
#include "Fakes.hpp"

#include "chop/TempoEstimate.hpp"
#include "model/SourceFacts.hpp"

#include <gmock/gmock.h>

namespace marquetry::model::test {
namespace {

using AppModelFacts = ModelTest;

const audio::Bytes notAWav(64, 'x');

TEST_F(AppModelFacts, ArriveAfterTheScanHeadersFirstThenTempo) {
    const std::string a = addLoop("a.wav");
    const std::string b = addLoop("b.wav", "breakbeat_s16.wav");
    const std::string c = addFile("c.wav", notAWav);
    AppModel& m = start();
    EXPECT_TRUE(tasks.background.empty()) << "nothing read until asked";
    m.readSourceFactsInBackground();
    EXPECT_EQ(m.factsFor(b), SourceFacts{}) << "the scan waits for nothing";

    tasks.runBackground();
    changes.clear();
    tasks.runMain();
    EXPECT_THAT(changes, ::testing::ElementsAre(Field::sourceFacts));
    EXPECT_THAT(changedPaths, ::testing::ElementsAre(a, b, c));
    EXPECT_EQ(factsText(m.factsFor(a)), "1.8 s \u00b7 16-bit stereo 44100 Hz");
    EXPECT_EQ(factsText(m.factsFor(b)), "1.9 s \u00b7 16-bit stereo 44100 Hz");
    EXPECT_EQ(m.factsFor(c).refusal, "Invalid WAV header.");
    EXPECT_EQ(m.tempoFor(b), std::nullopt) << "tempo comes after every header";

    tasks.drain();
    EXPECT_THAT(changedPaths, ::testing::ElementsAre(a, b)) << "the tempo of the loops a decode reads";
    EXPECT_EQ(m.tempoFor(b), chop::estimateTempo(audio::loadWav(b)));
    EXPECT_TRUE(m.tempoFor(b).has_value());
    EXPECT_EQ(m.factsFor(c).refusal, "Invalid WAV header.");
    // A refused file is no loop for the mashup pool.
    m.setMashupMode(true);
    m.toggleMashupMembership(c, true);
    m.toggleMashupMembership(b, true);
    EXPECT_THAT(m.mashupSourcePaths(), ::testing::ElementsAre(b));

    // A file that changes after its header was read is marked when loading it fails.
    addFile("b.wav", notAWav);
    m.selectFile(b);
    EXPECT_EQ(m.status(), "Error loading source: Invalid WAV header.");
    EXPECT_EQ(m.factsFor(b).refusal, "Invalid WAV header.");
    EXPECT_EQ(m.factsFor(b).header, std::nullopt);
    EXPECT_THAT(changedPaths, ::testing::ElementsAre(b));
    EXPECT_THAT(m.mashupSourcePaths(), ::testing::IsEmpty()) << "ticked before it was refused";
}

TEST_F(AppModelFacts, AScanDropsTheLastScansFactsAndIgnoresItsLateResults) {
    const std::string a = addLoop("a.wav");
    const std::string other = home + "/Other";
    const std::string b = addLoop("b.wav", "breakbeat_s16.wav", other);
    AppModel& m = start();
    m.readSourceFactsInBackground();
    tasks.drain();
    ASSERT_TRUE(m.factsFor(a).header && m.tempoFor(a));

    m.readSourceFactsInBackground();
    tasks.runBackground(); // its findings wait on the main queue while the folder changes
    m.setSourceDir(other);
    m.refreshFiles();
    EXPECT_EQ(m.factsFor(a), SourceFacts{});
    EXPECT_EQ(m.tempoFor(a), std::nullopt);
    tasks.drain();
    EXPECT_EQ(m.factsFor(a), SourceFacts{}) << "a late result of the old folder";
    EXPECT_EQ(m.tempoFor(a), std::nullopt);
    EXPECT_TRUE(m.factsFor(b).header && m.tempoFor(b));

    // Gone with the model: the pass hands back to nobody.
    m.refreshFiles();
    tasks.runBackground();
    model.reset();
    tasks.drain();
}

TEST(SourceFacts, TextShowsLengthAndFormatOrNothing) {
    const auto facts = [](std::uint64_t bytes, std::uint32_t rate) {
        return SourceFacts{audio::WavHeader{{1, 2, rate, rate * 4, 4, 16, {}}, bytes}, std::nullopt};
    };
    const std::pair<SourceFacts, std::string> cases[] = {
        {facts(4 * 44100 * 4.25, 44100), "4.3 s \u00b7 16-bit stereo 44100 Hz"},
        {facts(4 * 48000 * 59.96, 48000), "1:00 \u00b7 16-bit stereo 48000 Hz"},
        {facts(4 * 1000 * 3725, 1000), "62:05 \u00b7 16-bit stereo 1000 Hz"},
        {facts(400, 0), "16-bit stereo 0 Hz"},
        {SourceFacts{std::nullopt, "Invalid WAV header."}, ""},
        {SourceFacts{}, ""},
    };
    for (const auto& [given, text] : cases)
        EXPECT_EQ(factsText(given), text);
}

} // namespace
} // namespace marquetry::model::test

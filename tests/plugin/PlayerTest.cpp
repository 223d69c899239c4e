// The real-time logic driven directly, block by block, as a host would.
#include "plugin/Player.hpp"

#include <gtest/gtest.h>

#include <string>

namespace marquetry::plugin {
namespace {

std::unique_ptr<const PreparedRun> amenRun() {
    PluginSettings settings;
    settings.loopPath = std::string(MARQUETRY_TEST_LOOPS_DIR) + "/amen_s16.wav";
    settings.seedText = std::to_string(11);
    settings.variations = 3;
    return prepareRun(settings, 44100);
}

TEST(Player, TakesANewVariationAtTheNextPassNotAtOnce) {
    const auto run = amenRun();
    ASSERT_EQ(run->status, Status::ready) << run->message;
    const PlayableVariation& first = run->variations[0];
    const PlayableVariation& second = run->variations[1];
    Player player;
    constexpr std::uint32_t block = 64;
    std::vector<float> left(block), right(block), played;
    const auto frames = static_cast<std::int64_t>(first.frames + second.frames);
    for (std::int64_t at = 0; at < frames; at += block) {
        // Changed a third of the way into the first pass.
        const PlayControls controls{true, at < first.frames / 3 ? 1 : 2};
        player.process(run.get(), {true, at, run->loopBpm}, controls, {}, left.data(), right.data(), block);
        played.insert(played.end(), left.begin(), left.end());
    }
    std::size_t wrong = 0;
    for (std::int64_t f = 0; f < frames; ++f) {
        const bool inFirst = f < first.frames;
        const float expected = inFirst ? first.sample(f, 0) : second.sample(f - first.frames, 0);
        wrong += played[static_cast<std::size_t>(f)] != expected;
    }
    EXPECT_EQ(wrong, 0u);
}

TEST(Player, PlaysTheSamePassAgainAfterTheTransportJumpsBack) {
    const auto run = amenRun();
    Player player;
    std::vector<float> left(256), right(256), again(256);
    player.process(run.get(), {true, 1000, run->loopBpm}, {}, {}, left.data(), right.data(), 256);
    player.process(run.get(), {true, 90000, run->loopBpm}, {}, {}, again.data(), right.data(), 256);
    player.process(run.get(), {true, 1000, run->loopBpm}, {}, {}, again.data(), right.data(), 256);
    EXPECT_EQ(again, left);
    EXPECT_EQ(left[0], run->variations[0].sample(1000, 0));
}

} // namespace
} // namespace marquetry::plugin

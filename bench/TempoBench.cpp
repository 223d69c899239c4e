// The tempo estimate of a ten-second loop beside the peer library's tempo
// tracker on the same loop, in the same run. With --accuracy, instead prints
// how many real breaks and rendered patterns, then how many rendered grooves
// (in 3/4, 6/8 and 4/4, swung, half-time, ...) each gets within 0.5 BPM, the
// estimate's meter counted too (the peer has none).
#include "audio/WavReader.hpp"
#include "chop/TempoEstimate.hpp"

#include "support/DrumPatterns.hpp"

#include <aubio/aubio.h>
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace marquetry;

// The loop as one channel of floats, which is what the peer library reads.
std::vector<float> monoFloats(const audio::WavData& wav) {
    const std::size_t width = wav.bitsPerSample / 8u;
    std::vector<float> mono;
    for (std::size_t at = 0; at + wav.blockAlign <= wav.pcmData.size(); at += wav.blockAlign) {
        float sum = 0;
        for (std::size_t c = 0; c < wav.channels; ++c) {
            const std::uint8_t* p = wav.pcmData.data() + at + c * width;
            std::uint32_t bits = 0;
            for (std::size_t b = 0; b < width; ++b)
                bits |= static_cast<std::uint32_t>(p[b]) << (8 * b);
            float value;
            if (wav.audioFormat == audio::formatFloat)
                std::memcpy(&value, &bits, sizeof value);
            else if (width == 1)
                value = (static_cast<float>(bits) - 128) / 128;
            else
                value = static_cast<float>(static_cast<std::int32_t>(bits << (32 - 8 * width))) * 0x1p-31f;
            sum += value;
        }
        mono.push_back(sum / static_cast<float>(wav.channels));
    }
    return mono;
}

// The peer's tempo of the whole loop, as its command line tool reads a file
// once through (window 1024, hop 512); 0 when it finds none.
double peerTempo(const std::vector<float>& mono, std::uint32_t sampleRate) {
    constexpr uint_t window = 1024;
    constexpr uint_t hop = 512;
    aubio_tempo_t* tempo = new_aubio_tempo("default", window, hop, sampleRate);
    fvec_t* input = new_fvec(hop);
    fvec_t* output = new_fvec(1);
    for (std::size_t start = 0; start < mono.size(); start += hop) {
        for (uint_t i = 0; i < hop; ++i)
            input->data[i] = start + i < mono.size() ? mono[start + i] : 0.0f;
        aubio_tempo_do(tempo, input, output);
    }
    const double bpm = aubio_tempo_get_bpm(tempo);
    del_fvec(output);
    del_fvec(input);
    del_aubio_tempo(tempo);
    return bpm;
}

int accuracy() {
    struct Case {
        std::string name;
        double bpm;
        audio::WavData wav;
        std::int64_t beatsPerBar = 4;
        double otherReading = 0; // a half-time feel's other tempo, as right
    };
    std::vector<Case> table, grooves;
    for (const auto& [file, bpm] : {std::pair{"amen_s16.wav", 136.9}, {"amen_full_s16.wav", 140.0},
                                    {"breakbeat_s16.wav", 126.0}})
        table.push_back({file, bpm, audio::loadWav(audio::test::testLoopPath(file))});
    for (const auto& c : audio::test::patternCases())
        table.push_back({describe(c), c.bpm, audio::test::renderPattern(c)});
    std::uint32_t seed = 0;
    for (const auto& g : audio::test::grooves())
        grooves.push_back({describe(g), g.bpm, audio::test::renderGroove(g, ++seed), g.beatsPerBar, g.otherReading});
    const auto count = [](const char* title, const std::vector<Case>& cases) {
        int ours = 0, peer = 0;
        std::printf("%s\n", title);
        for (const Case& c : cases) {
            const auto estimate = chop::estimateTempo(c.wav);
            const double theirs = peerTempo(monoFloats(c.wav), c.wav.sampleRate);
            const auto near = [&](double bpm) {
                return std::fabs(bpm - c.bpm) <= 0.5 || (c.otherReading > 0 && std::fabs(bpm - c.otherReading) <= 0.5);
            };
            const bool oursRight = estimate && near(estimate->bpm) && estimate->beatsPerBar == c.beatsPerBar;
            const bool peerRight = near(theirs);
            ours += oursRight;
            peer += peerRight;
            std::printf("  %-54s %6.1f %lld/4  ours %6.1f %lld/4 %s  peer %6.1f %s\n", c.name.c_str(), c.bpm,
                        static_cast<long long>(c.beatsPerBar), estimate ? estimate->bpm : 0.0,
                        static_cast<long long>(estimate ? estimate->beatsPerBar : 0), oursRight ? "ok" : "--", theirs,
                        peerRight ? "ok" : "--");
        }
        std::printf("  right: ours %d of %zu, peer %d of %zu\n", ours, cases.size(), peer, cases.size());
    };
    count("Real breaks and rendered patterns (4/4):", table);
    count("Rendered grooves (ours: tempo and meter; peer: tempo):", grooves);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        if (argc > 1 && std::string(argv[1]) == "--accuracy")
            return accuracy();
        benchmark::Initialize(&argc, argv);
        static const audio::WavData loop = audio::loadWav(audio::test::testLoopPath("amen_10s_s16.wav"));
        benchmark::RegisterBenchmark("BM_TempoEstimate/10s", [](benchmark::State& state) {
            for (auto _ : state)
                benchmark::DoNotOptimize(chop::estimateTempo(loop));
        })->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_PeerTempo/10s", [](benchmark::State& state) {
            // The peer reads floats: the conversion counts against it too.
            for (auto _ : state)
                benchmark::DoNotOptimize(peerTempo(monoFloats(loop), loop.sampleRate));
        })->Unit(benchmark::kMillisecond);
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::cerr << "marquetry_tempo_bench: " << error.what() << '\n';
        return 1;
    }
    return 0;
}

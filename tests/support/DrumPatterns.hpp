#pragma once

// Drum loops of known tempo, rendered from real one-shots (kick, snare,
// closed hat) on a sixteenth-note grid, in every sample layout the reader
// accepts. Shared by the tempo tests and the accuracy comparison.

#include "audio/WavData.hpp"
#include "audio/WavReader.hpp"

#include "support/WavImageBuilder.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace marquetry::audio::test {

enum class DrumPattern { backbeat, fourOnTheFloor, broken };

/// One rendered loop: its tempo and bar count, and how it was rendered.
struct PatternCase {
    double bpm;
    int bars;
    DrumPattern pattern;
    std::uint16_t bits;   // 8 (unsigned), 16, 24, 32 integer, or 32 float when isFloat
    bool isFloat;
    std::uint16_t channels;
};

/// 13 tempos from 85 to 175 BPM x 1, 2 and 4 bars, cycling through the three
/// patterns and five sample layouts.
inline std::vector<PatternCase> patternCases() {
    struct Layout {
        std::uint16_t bits;
        bool isFloat;
        std::uint16_t channels;
    };
    const Layout layouts[] = {{8, false, 1}, {16, false, 2}, {24, false, 1}, {32, false, 2}, {32, true, 1}};
    std::vector<PatternCase> cases;
    for (int t = 0; t < 13; ++t)
        for (const int b : {0, 1, 2}) {
            const Layout& layout = layouts[cases.size() % 5];
            cases.push_back({85 + 7.5 * t, 1 << b, static_cast<DrumPattern>((t + b) % 3), layout.bits,
                             layout.isFloat, layout.channels});
        }
    return cases;
}

inline std::string describe(const PatternCase& c) {
    const char* names[] = {"backbeat", "four-on-the-floor", "broken"};
    return std::string(names[static_cast<int>(c.pattern)]) + " " + std::to_string(c.bpm) + " BPM x "
           + std::to_string(c.bars) + " bars, " + (c.isFloat ? "float" : "int") + std::to_string(c.bits) + " x"
           + std::to_string(c.channels);
}

inline std::vector<float> monoSamples16(const WavData& wav) {
    std::vector<float> samples;
    for (std::size_t i = 0; i + 1 < wav.pcmData.size(); i += wav.blockAlign)
        samples.push_back(static_cast<float>(static_cast<std::int16_t>(wav.pcmData[i] | (wav.pcmData[i + 1] << 8)))
                          / 32768.0f);
    return samples;
}

/// The loop of `c` at 44.1 kHz, its hits wrapping round the end as a loop
/// plays on.
inline WavData renderPattern(const PatternCase& c) {
    static const std::vector<float> kick = monoSamples16(loadWav(testLoopPath("kick_mono_s16.wav")));
    static const std::vector<float> snare = monoSamples16(loadWav(testLoopPath("snare_mono_s16.wav")));
    static const std::vector<float> hat = monoSamples16(loadWav(testLoopPath("hat_mono_s16.wav")));
    constexpr std::uint32_t rate = 44100;
    const double stepFrames = 60.0 / c.bpm / 4 * rate;
    const auto frames = static_cast<std::size_t>(std::llround(stepFrames * 16 * c.bars));
    std::vector<float> mix(frames, 0.0f);
    const auto place = [&](const std::vector<float>& hit, int step, float gain) {
        const auto start = static_cast<std::size_t>(std::llround(step * stepFrames));
        for (std::size_t i = 0; i < hit.size(); ++i)
            mix[(start + i) % frames] += gain * hit[i];
    };
    for (int bar = 0; bar < c.bars; ++bar)
        for (int s = 0; s < 16; ++s) {
            const int step = 16 * bar + s;
            switch (c.pattern) {
            case DrumPattern::backbeat:
                if (s % 8 == 0) place(kick, step, 0.9f);
                if (s % 8 == 4) place(snare, step, 0.7f);
                if (s % 2 == 0) place(hat, step, 0.35f);
                break;
            case DrumPattern::fourOnTheFloor:
                if (s % 4 == 0) place(kick, step, 0.9f);
                if (s == 4 || s == 12) place(snare, step, 0.5f);
                if (s % 4 == 2) place(hat, step, 0.4f);
                break;
            case DrumPattern::broken:
                if (s == 0 || s == 6 || s == 10) place(kick, step, 0.9f);
                if (s == 4 || s == 12) place(snare, step, 0.7f);
                place(hat, step, s % 2 == 0 ? 0.3f : 0.15f);
                break;
            }
        }

    const std::uint16_t width = c.bits / 8;
    WavData wav{c.isFloat ? formatFloat : formatPcm, c.channels, rate, 0, static_cast<std::uint16_t>(width * c.channels),
                c.bits, {}};
    wav.byteRate = rate * wav.blockAlign;
    wav.pcmData.reserve(frames * wav.blockAlign);
    for (const float sample : mix) {
        const double x = std::clamp(static_cast<double>(sample), -1.0, 1.0);
        for (std::uint16_t ch = 0; ch < c.channels; ++ch) {
            if (c.isFloat) {
                const auto value = static_cast<float>(x);
                std::uint32_t bits;
                std::memcpy(&bits, &value, sizeof bits);
                putLE(wav.pcmData, bits, 4);
            } else if (c.bits == 8) {
                wav.pcmData.push_back(static_cast<std::uint8_t>(std::lround(x * 127) + 128));
            } else {
                const double full = std::ldexp(1.0, c.bits - 1) - 1;
                putLE(wav.pcmData, static_cast<std::uint64_t>(std::llround(x * full)), width);
            }
        }
    }
    return wav;
}

} // namespace marquetry::audio::test

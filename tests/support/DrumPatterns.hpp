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
#include <cstdio>
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

/// `mix` as a WAV image of `bits` (8 unsigned, 16, 24, 32 integer, or 32
/// float when isFloat), every channel alike.
inline WavData encodeMix(const std::vector<float>& mix, std::uint32_t rate, std::uint16_t bits, bool isFloat,
                         std::uint16_t channels) {
    const std::uint16_t width = bits / 8;
    WavData wav{isFloat ? formatFloat : formatPcm, channels, rate, 0, static_cast<std::uint16_t>(width * channels),
                bits, {}};
    wav.byteRate = rate * wav.blockAlign;
    wav.pcmData.reserve(mix.size() * wav.blockAlign);
    for (const float sample : mix) {
        const double x = std::clamp(static_cast<double>(sample), -1.0, 1.0);
        for (std::uint16_t ch = 0; ch < channels; ++ch) {
            if (isFloat) {
                const auto value = static_cast<float>(x);
                std::uint32_t word;
                std::memcpy(&word, &value, sizeof word);
                putLE(wav.pcmData, word, 4);
            } else if (bits == 8) {
                wav.pcmData.push_back(static_cast<std::uint8_t>(std::lround(x * 127) + 128));
            } else {
                const double full = std::ldexp(1.0, bits - 1) - 1;
                putLE(wav.pcmData, static_cast<std::uint64_t>(std::llround(x * full)), width);
            }
        }
    }
    return wav;
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

    return encodeMix(mix, rate, c.bits, c.isFloat, c.channels);
}


/// A groove of the kind sample packs hold: one bar of hits per drum on a
/// sixteenth-note grid ('X' accent, 'x' hit, 'o' soft, 'g' ghost note, '.'
/// rest), played `bars` times with the treatments below.
struct Groove {
    const char* style;
    double bpm;           // quarter notes a minute
    int bars;
    int beatsPerBar;      // quarter notes a bar: 3 for 3/4 and for 6/8
    const char* kick;
    const char* snare;
    const char* hat;
    double swing = 0;     // off-beat eighths late by this many sixteenths, off sixteenths by half of it
    double humanMs = 0;   // every hit early or late by up to this, its loudness off by up to a fifth
    bool fill = false;    // the last beat a tom run
    bool bass = false;    // a bass note from every kick and before the bar line, held to the next
    bool hiss = false;    // vinyl hiss underneath
    double endMs = 0;     // a tail (> 0) or a missing end (< 0): the file is not the loop's length
    // A half-time feel also reads right at the other tempo: half for a snare
    // on beat 3, twice for a backbeat with sixteenth hats (the same sound).
    double otherReading = 0;
};

inline std::string describe(const Groove& g) {
    char text[160];
    std::snprintf(text, sizeof text, "%s %g BPM %d/%d x %d bars%s%s%s%s%s%s", g.style, g.bpm,
                  g.beatsPerBar == 3 && g.style[0] == '6' ? 6 : g.beatsPerBar, g.style[0] == '6' ? 8 : 4, g.bars,
                  g.swing > 0 ? " swing" : "", g.humanMs > 0 ? " human" : "", g.fill ? " fill" : "",
                  g.bass ? " bass" : "", g.hiss ? " hiss" : "", g.endMs > 0 ? " tail" : g.endMs < 0 ? " cut" : "");
    return text;
}

/// 38 grooves from 70 to 190 BPM over 1 to 8 bars: rock, funk with ghost
/// notes, swung boom bap, house, drum and bass, half-time, waltzes and
/// other bars of three, 6/8.
inline std::vector<Groove> grooves() {
    const char* const rock[] = {"X.......X.x.....", "....X.......X...", "x.x.x.x.x.x.x.x."};
    const char* const funk[] = {"X.x.......x..x..", "....X..g.g..X..g", "xoxoxoxoxoxoxoxo"};
    const char* const boomBap[] = {"X......x..X.....", "....X.......X...", "x.x.x.x.x.x.x.x."};
    const char* const house[] = {"X...X...X...X...", "....x.......x...", "..x...x...x...x."};
    const char* const dnb[] = {"X.........X.....", "....X.......X...", "x.x.x.x.x.x.x.x."};
    const char* const jungle[] = {"X.X.......XX....", "....X..g.X..X..g", "x.x.x.x.x.x.x.x."};
    const char* const half[] = {"X.........x.....", "........X.......", "x.x.x.x.x.x.x.x."};
    const char* const trap[] = {"X......x..x.....", "........X.......", "xxxxxxxxxxxxxxxx"};
    const char* const waltz[] = {"X...........", "....x...x...", "x.x.x.x.x.x."};
    const char* const rock3[] = {"X.....x.....", "........X...", "x.x.x.x.x.x."};
    const char* const jazz3[] = {"X...........", "......g...g.", "x...x.x.x.x."};
    const char* const ballad68[] = {"X...........", "......X.....", "X.x.x.x.x.x."};
    const char* const shuffle68[] = {"X...x.......", "......X.....", "x.x.x.x.x.x."};
    using P = const char* const*;
    const auto g = [](const char* style, P p, double bpm, int bars, int beatsPerBar) {
        return Groove{style, bpm, bars, beatsPerBar, p[0], p[1], p[2]};
    };
    const auto with = [](Groove groove, auto change) {
        change(groove);
        return groove;
    };
    return {
        with(g("rock", rock, 120, 4, 4), [](Groove& x) { x.hiss = true; }),
        with(g("rock", rock, 96, 2, 4), [](Groove& x) { x.humanMs = 8, x.bass = true; }),
        with(g("rock", rock, 136, 4, 4), [](Groove& x) { x.fill = true, x.endMs = 80; }),
        with(g("rock", rock, 190, 4, 4), [](Groove& x) { x.humanMs = 4; }),
        with(g("rock", rock, 150, 1, 4), [](Groove& x) { x.bass = true, x.hiss = true; }),
        with(g("funk", funk, 100, 2, 4), [](Groove& x) { x.swing = 0.3, x.humanMs = 5; }),
        with(g("funk", funk, 112, 4, 4), [](Groove& x) { x.bass = true; }),
        with(g("funk", funk, 76, 2, 4), [](Groove& x) { x.humanMs = 6, x.hiss = true, x.otherReading = 152; }),
        with(g("funk", funk, 70, 1, 4), [](Groove& x) { x.otherReading = 140; }),
        with(g("boom bap", boomBap, 90, 2, 4), [](Groove& x) { x.swing = 0.5, x.humanMs = 6, x.hiss = true; }),
        with(g("boom bap", boomBap, 84, 2, 4), [](Groove& x) { x.swing = 0.6, x.bass = true, x.hiss = true; }),
        with(g("boom bap", boomBap, 105, 2, 4), [](Groove& x) { x.swing = 0.67, x.fill = true; }),
        with(g("house", house, 124, 4, 4), [](Groove& x) { x.bass = true; }),
        with(g("house", house, 128, 8, 4), [](Groove& x) { x.endMs = 120; }),
        with(g("house", house, 122, 1, 4), [](Groove& x) { x.humanMs = 4; }),
        with(g("drum and bass", dnb, 174, 2, 4), [](Groove& x) { x.bass = true; }),
        with(g("drum and bass", dnb, 188, 4, 4), [](Groove& x) { x.hiss = true, x.humanMs = 3; }),
        with(g("drum and bass", dnb, 172, 1, 4), [](Groove&) {}),
        with(g("jungle", jungle, 165, 2, 4), [](Groove& x) { x.fill = true; }),
        with(g("jungle", jungle, 110, 2, 4), [](Groove& x) { x.fill = true, x.endMs = -40; }),
        with(g("half-time", half, 140, 2, 4), [](Groove& x) { x.otherReading = 70; }),
        with(g("half-time", half, 150, 4, 4), [](Groove& x) { x.otherReading = 75, x.fill = true; }),
        with(g("half-time", half, 80, 2, 4), [](Groove& x) { x.otherReading = 40, x.hiss = true; }),
        with(g("trap", trap, 140, 4, 4), [](Groove& x) { x.otherReading = 70, x.bass = true; }),
        with(g("waltz", waltz, 150, 4, 3), [](Groove&) {}),
        with(g("waltz", waltz, 90, 2, 3), [](Groove& x) { x.humanMs = 6, x.hiss = true; }),
        with(g("waltz", waltz, 180, 8, 3), [](Groove&) {}),
        with(g("waltz", waltz, 132, 2, 3), [](Groove& x) { x.endMs = 60; }),
        with(g("rock in three", rock3, 105, 2, 3), [](Groove&) {}),
        with(g("rock in three", rock3, 120, 4, 3), [](Groove& x) { x.bass = true; }),
        with(g("rock in three", rock3, 75, 1, 3), [](Groove& x) { x.humanMs = 5; }),
        with(g("jazz waltz", jazz3, 140, 4, 3), [](Groove& x) { x.swing = 0.67, x.humanMs = 5; }),
        with(g("6/8 ballad", ballad68, 120, 2, 3), [](Groove&) {}),
        with(g("6/8 ballad", ballad68, 72, 2, 3), [](Groove& x) { x.hiss = true; }),
        with(g("6/8 ballad", ballad68, 105, 1, 3), [](Groove& x) { x.humanMs = 4; }),
        with(g("6/8 shuffle", shuffle68, 90, 4, 3), [](Groove& x) { x.humanMs = 6; }),
        with(g("6/8 shuffle", shuffle68, 150, 4, 3), [](Groove& x) { x.fill = true, x.bass = true; }),
        with(g("6/8 shuffle", shuffle68, 186, 8, 3), [](Groove& x) { x.hiss = true; }),
    };
}

/// `g` rendered at 44.1 kHz, 16-bit mono, the same on every machine (its
/// timing and loudness vary by a fixed sequence seeded with `seed`). Hits
/// wrap round the end as a loop plays on unless the file has a tail or a
/// missing end.
inline WavData renderGroove(const Groove& g, std::uint32_t seed) {
    static const std::vector<float> kick = monoSamples16(loadWav(testLoopPath("kick_mono_s16.wav")));
    static const std::vector<float> snare = monoSamples16(loadWav(testLoopPath("snare_mono_s16.wav")));
    static const std::vector<float> hat = monoSamples16(loadWav(testLoopPath("hat_mono_s16.wav")));
    static const std::vector<float> tom = monoSamples16(loadWav(testLoopPath("tom_mono_s16.wav")));
    static const std::vector<float> bass = monoSamples16(loadWav(testLoopPath("bass_mono_s16.wav")));
    static const std::vector<float> hiss = monoSamples16(loadWav(testLoopPath("hiss_mono_s16.wav")));
    constexpr std::uint32_t rate = 44100;
    std::uint32_t state = seed * 2654435761u + 1;
    const auto random = [&state] { // -1 to 1
        state = state * 1664525u + 1013904223u;
        return static_cast<double>(state >> 8) / (1 << 23) - 1;
    };
    const int steps = 4 * g.beatsPerBar;
    const double stepFrames = 60.0 / g.bpm / 4 * rate;
    const auto loopFrames = static_cast<std::int64_t>(std::llround(stepFrames * steps * g.bars));
    const std::int64_t frames = loopFrames + std::llround(g.endMs / 1000 * rate);
    const bool wraps = g.endMs == 0;
    std::vector<float> mix(static_cast<std::size_t>(frames), 0.0f);
    const auto startOf = [&](int step) {
        const int s = step % steps;
        const double late = s % 4 == 2 ? g.swing : s % 2 == 1 ? g.swing / 2 : 0;
        return std::llround((step + late) * stepFrames + random() * g.humanMs / 1000 * rate);
    };
    // `length` frames of `hit` read `pitch` times as fast, from `start`.
    const auto place = [&](const std::vector<float>& hit, std::int64_t start, float gain, double pitch = 1,
                           std::int64_t length = -1) {
        const auto count = std::min(static_cast<std::int64_t>((static_cast<double>(hit.size()) - 1) / pitch),
                                    length < 0 ? frames : length);
        for (std::int64_t i = 0; i < count; ++i) {
            const std::int64_t at = wraps ? ((start + i) % frames + frames) % frames : start + i;
            if (at < 0 || at >= frames)
                continue;
            const double x = static_cast<double>(i) * pitch;
            const auto k = static_cast<std::size_t>(x);
            const double fade = std::min(1.0, static_cast<double>(count - i) / 200);
            mix[static_cast<std::size_t>(at)] +=
                static_cast<float>(gain * fade * (hit[k] + (x - static_cast<double>(k)) * (hit[k + 1] - hit[k])));
        }
    };
    const auto velocity = [&](char mark) {
        const double level = mark == 'X' ? 1.0 : mark == 'x' ? 0.75 : mark == 'o' ? 0.45 : mark == 'g' ? 0.18 : 0.0;
        return static_cast<float>(level * (1 + 0.2 * random() * (g.humanMs > 0 ? 1 : 0)));
    };
    const double notes[] = {1.0, 1.0, 0.749, 1.335, 1.122};
    std::vector<int> bassSteps;
    for (int bar = 0; bar < g.bars; ++bar)
        for (int s = 0; s < steps; ++s) {
            const int step = bar * steps + s;
            const bool filling = g.fill && bar == g.bars - 1 && s >= steps - 4;
            if (filling) {
                place(tom, startOf(step), 0.5f + 0.1f * static_cast<float>(s - steps + 4));
                continue;
            }
            if (g.kick[s] != '.')
                place(kick, startOf(step), 0.9f * velocity(g.kick[s]));
            if (g.snare[s] != '.')
                place(snare, startOf(step), 0.7f * velocity(g.snare[s]));
            if (g.hat[s] != '.')
                place(hat, startOf(step), 0.35f * velocity(g.hat[s]));
            if (g.kick[s] != '.' || s == steps - 2)
                bassSteps.push_back(step);
        }
    if (g.bass)
        for (std::size_t i = 0; i < bassSteps.size(); ++i) {
            const int next = i + 1 < bassSteps.size() ? bassSteps[i + 1] : g.bars * steps;
            place(bass, startOf(bassSteps[i]), 0.35f, notes[i % 5],
                  std::llround((next - bassSteps[i]) * stepFrames) - 100);
        }
    if (g.hiss)
        for (std::int64_t i = 0; i < frames; ++i)
            mix[static_cast<std::size_t>(i)] += 1.5f * hiss[static_cast<std::size_t>(i) % hiss.size()];
    return encodeMix(mix, rate, 16, false, 1);
}

} // namespace marquetry::audio::test

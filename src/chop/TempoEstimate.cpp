#include "chop/TempoEstimate.hpp"

#include "audio/FormatConversion.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <numbers>
#include <vector>

namespace marquetry::chop {
namespace {

constexpr double lowestBpm = 55;
constexpr double highestBpm = 215;
// Onsets are read every 5 ms, a step finer than any beat's timing matters.
constexpr double hopSeconds = 0.005;
// Kicks and snare bodies live below this; hi-hats hardly reach it.
constexpr double lowBandHz = 200;
// How far a hit may lie from its grid point and still count (swing, hands).
constexpr int toleranceHops = 3;
// Loudness is measured over this many hops (20 ms).
constexpr std::size_t smoothingHops = 4;
// Bars that share this much of their onset strength with the next count as
// repeating: real breaks vary from bar to bar (the amen's fourth bar shares
// about 0.7 with its third), while a beat read twice too fast leaves its
// half-bars sharing about a quarter.
constexpr double repeatingShare = 2.0 / 3;
// How much the bar level and the subdivision count beside the beat.
constexpr double barWeight = 0.25;
constexpr double subdivisionWeight = 2;
// The felt beat of 6/8 is the dotted quarter, so its usual tempos are slower
// in quarter notes: the preference for tempos near 120 BPM takes 6/8 near 100.
constexpr double compoundTempoFactor = 1.2;
// Where swung off-beat eighths may fall, as a share of the beat (2/3 is a
// triplet feel); 1/2 is straight.
constexpr double swungOffbeats[] = {0.55, 0.6, 0.65, 0.7};
// The loop may end up to 200 ms before the file does (a tail rings on) or
// 40 ms after it (its end was cut), by at most 3 % of its length. Lengths are
// tried 40 ms apart, which keeps the grid of the right one within its
// tolerance of every hit, then to the hop around the best. Files longer than
// 32 s are taken whole: they are seldom cut that way, and their search costs
// the most.
constexpr std::int64_t longestTailHops = 40;
constexpr std::int64_t longestCutHops = 8;
constexpr std::int64_t lengthStepHops = 8;
constexpr double longestChangeShare = 0.03;
constexpr double longestTrimmedSeconds = 32;
// A length other than the file's must read this much better to be believed.
constexpr double fileLengthPreference = 1.03;

// Rises in loudness per hop: in `envelope` the low band counted twice over,
// since the beat is carried by kicks and snares; in `high` of the sound's
// edges alone (its second difference), where the hats that subdivide the
// beat are as loud as the drums.
struct Onsets {
    std::vector<float> envelope;
    std::vector<float> high;
};

Onsets onsetEnvelope(const audio::WavData& wav, std::int64_t hop) {
    // Float samples past full scale (or not numbers) must not swamp the rest.
    std::vector<float> samples = audio::toFloat(wav, wav.pcmData);
    for (float& x : samples)
        x = std::isfinite(x) ? std::clamp(x, -1.0f, 1.0f) : 0.0f;
    const audio::FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    const std::int64_t hops = frames / hop;

    // Second-order low-pass (Butterworth, bilinear transform).
    const double k = std::tan(std::numbers::pi * std::min(lowBandHz / wav.sampleRate, 0.45));
    const double norm = 1 / (1 + std::numbers::sqrt2 * k + k * k);
    const auto b0 = static_cast<float>(k * k * norm);
    const auto a1 = static_cast<float>(2 * (k * k - 1) * norm);
    const auto a2 = static_cast<float>((1 - std::numbers::sqrt2 * k + k * k) * norm);
    float x1 = 0, x2 = 0, y1 = 0, y2 = 0;

    // Energy per hop, then loudness over the last few hops: a window shorter
    // than a bass note's cycle would ripple and read as onsets.
    const float channelScale = 1.0f / static_cast<float>(wav.channels);
    std::vector<float> fullEnergy(static_cast<std::size_t>(hops)), lowEnergy(static_cast<std::size_t>(hops)),
        highEnergy(static_cast<std::size_t>(hops));
    const float* frame = samples.data();
    for (std::size_t h = 0; h < fullEnergy.size(); ++h) {
        float full = 0, low = 0, high = 0;
        for (std::int64_t i = 0; i < hop; ++i, frame += wav.channels) {
            float x = 0;
            for (std::size_t c = 0; c < wav.channels; ++c)
                x += frame[c];
            x *= channelScale;
            const float y = b0 * (x + 2 * x1 + x2) - a1 * y1 - a2 * y2;
            const float edge = x - 2 * x1 + x2;
            high += edge * edge;
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = y;
            full += x * x;
            low += y * y;
        }
        fullEnergy[h] = full;
        lowEnergy[h] = low;
        highEnergy[h] = high;
    }
    const auto loudness = [&](const std::vector<float>& energy, std::size_t h) {
        float sum = 0;
        for (std::size_t i = h + 1 - std::min<std::size_t>(h + 1, smoothingHops); i <= h; ++i)
            sum += energy[i];
        return std::sqrt(sum / static_cast<float>(smoothingHops * static_cast<std::size_t>(hop)));
    };
    Onsets onsets{std::vector<float>(static_cast<std::size_t>(hops)),
                  std::vector<float>(static_cast<std::size_t>(hops))};
    float previousFull = 0, previousLow = 0, previousHigh = 0;
    for (std::size_t h = 0; h < onsets.envelope.size(); ++h) {
        const float full = loudness(fullEnergy, h);
        const float low = loudness(lowEnergy, h);
        const float high = loudness(highEnergy, h);
        onsets.envelope[h] = std::max(full - previousFull, 0.0f) + 2 * std::max(low - previousLow, 0.0f);
        onsets.high[h] = std::max(high - previousHigh, 0.0f);
        previousFull = full;
        previousLow = low;
        previousHigh = high;
    }
    return onsets;
}

// The onset strength within the grid's tolerance of each hop of a loop of
// `values.size()` hops, round the seam as the loop plays on, laid out three
// times over so that a grid point up to a loop before or after it needs no
// wrapping: windows[size + h] is the window centred on hop h.
struct Windows {
    std::vector<double> windows;
    double total = 0;
    std::int64_t size = 0;
};

Windows windowsOf(const std::vector<double>& values) {
    Windows w;
    w.size = static_cast<std::int64_t>(values.size());
    w.windows.resize(values.size() * 3);
    const auto at = [&](std::int64_t h) { return values[static_cast<std::size_t>((h % w.size + w.size) % w.size)]; };
    double sum = 0;
    for (std::int64_t d = -toleranceHops; d <= toleranceHops; ++d)
        sum += at(d);
    for (std::int64_t h = 0; h < w.size; ++h) {
        for (std::size_t copy = 0; copy < 3; ++copy)
            w.windows[copy * values.size() + static_cast<std::size_t>(h)] = sum;
        sum += at(h + toleranceHops + 1) - at(h - toleranceHops);
        w.total += values[static_cast<std::size_t>(h)];
    }
    return w;
}

// The onset strength near a grid of `beats` beats at each phase (hops after
// the loop's start), each beat's point `offset` of a beat after it.
std::vector<double> phaseSums(const Windows& w, double loopHops, std::int64_t beats, double offset = 0) {
    const double period = loopHops / static_cast<double>(beats);
    std::vector<std::int64_t> centres(static_cast<std::size_t>(beats));
    for (std::int64_t b = 0; b < beats; ++b)
        centres[static_cast<std::size_t>(b)] =
            w.size + static_cast<std::int64_t>(std::floor((static_cast<double>(b) + offset) * period + 0.5));
    std::vector<double> sums(static_cast<std::size_t>(std::min(static_cast<std::int64_t>(std::ceil(period)), w.size)));
    for (std::size_t phase = 0; phase < sums.size(); ++phase)
        for (const std::int64_t centre : centres)
            sums[phase] += w.windows[static_cast<std::size_t>(centre) + phase];
    return sums;
}

// How much more of the loop's onset strength falls near `points` grid
// points, `captured` of it at their best phase, than would by chance: the
// share inside the grid's windows less the share of the loop the windows
// cover. A grid twice too slow misses the snares between its beats; one
// twice too fast doubles its windows but catches only the weak hits between
// the beats.
double beyondChance(const Windows& w, double captured, std::int64_t points) {
    constexpr std::int64_t width = 2 * toleranceHops + 1;
    return w.total > 0 ? captured / w.total - static_cast<double>(points * width) / static_cast<double>(w.size) : 0.0;
}

double gridScore(const Windows& w, double loopHops, std::int64_t beats) {
    const std::vector<double> sums = phaseSums(w, loopHops, beats);
    return beyondChance(w, *std::max_element(sums.begin(), sums.end()), beats);
}

// The grid score of beats with swung off-beats between them, at the swing
// that catches the most.
double swungGridScore(const Windows& w, double loopHops, std::int64_t beats) {
    const std::vector<double> onBeats = phaseSums(w, loopHops, beats);
    double captured = 0;
    for (const double late : swungOffbeats) {
        const std::vector<double> offBeats = phaseSums(w, loopHops, beats, late);
        for (std::size_t phase = 0; phase < onBeats.size(); ++phase)
            captured = std::max(captured, onBeats[phase] + offBeats[phase]);
    }
    return beyondChance(w, captured, 2 * beats);
}

// For each hop, the strongest onset within the grid's tolerance of it,
// round the seam as the loop plays on.
std::vector<double> nearbyPeak(const std::vector<double>& strength) {
    const auto size = static_cast<std::int64_t>(strength.size());
    std::vector<double> peak(strength.size(), 0.0);
    for (std::int64_t d = -toleranceHops; d <= toleranceHops; ++d) {
        // peak[h] against strength[h + d], round the seam.
        const std::int64_t shift = ((d % size) + size) % size;
        for (std::int64_t h = 0; h < size; ++h) {
            const std::int64_t from = h + shift < size ? h + shift : h + shift - size;
            peak[static_cast<std::size_t>(h)] =
                std::max(peak[static_cast<std::size_t>(h)], strength[static_cast<std::size_t>(from)]);
        }
    }
    return peak;
}

// How well the loop's bars repeat when it holds `beats` beats in bars of
// `beatsPerBar`, as a factor of 1 down to 0: the share of onset strength that
// comes again one bar later, counted full from `repeatingShare` up. Drum loops are built
// of repeating bars, so a grid whose bars do not repeat has taken the
// subdivision for the beat: a broken beat, its kicks on the half-beats, read
// twice too fast catches every hit on its grid, but its half-bars differ.
double barRepetition(const std::vector<double>& strength, const std::vector<double>& peak, double loopHops,
                     std::int64_t beats, std::int64_t beatsPerBar) {
    const auto size = static_cast<std::int64_t>(strength.size());
    const double barHops = static_cast<double>(beatsPerBar) * loopHops / static_cast<double>(beats);
    const auto lag = static_cast<std::int64_t>(std::floor(std::fmod(barHops, loopHops) + 0.5)) % size;
    double total = 0, again = 0;
    for (std::int64_t h = 0; h < size; ++h) {
        const double now = strength[static_cast<std::size_t>(h)];
        total += now;
        again += std::min(now, peak[static_cast<std::size_t>((h + lag) % size)]);
    }
    return std::min(1.0, again / total / repeatingShare);
}

// A mild preference for the tempos drum loops are made at, even over an
// octave either side of 120 BPM, to settle near ties.
double tempoWeight(double bpm) {
    const double octaves = std::log2(bpm / 120);
    return std::exp(-0.5 * octaves * octaves);
}

enum class Meter { four, three, sixEight };

std::int64_t beatsPerBar(Meter meter) {
    return meter == Meter::four ? 4 : 3;
}

// A reading of the loop: its beats (quarter notes) and meter, and how well
// they fit.
struct Reading {
    double score = 0;
    std::int64_t beats = 0;
    Meter meter = Meter::four;
};

// Scores readings of the loop taken to be `loopHops` hops long: the file's
// onsets folded round that length (a tail onto the start, a cut end left
// silent). Each grid is measured once, however many readings ask for it.
class Scorer {
public:
    Scorer(const std::vector<double>& strength, const std::vector<double>& hats, double loopHops)
        : loopHops_(loopHops), strength_(std::max<std::size_t>(1, static_cast<std::size_t>(loopHops)), 0.0),
          hats_(strength_.size(), 0.0) {
        for (std::size_t h = 0; h < strength.size(); ++h) {
            strength_[h % strength_.size()] += strength[h];
            hats_[h % hats_.size()] += hats[h];
        }
        peak_ = nearbyPeak(strength_);
        windows_ = windowsOf(strength_);
        hatWindows_ = windowsOf(hats_);
    }

    // How well `beats` quarter notes in bars of `meter` fit a loop of
    // `minutes`: the beat (or the dotted quarter of 6/8) catching the strong
    // hits, the hats filling the eighths between (straight or swung), a
    // little for the downbeats, all weighed by how the bars repeat and by
    // how usual the tempo is.
    double score(std::int64_t beats, Meter meter, double minutes) {
        const std::int64_t perBar = beatsPerBar(meter);
        const bool wholeBars = beats % perBar == 0;
        if (!wholeBars && meter != Meter::four)
            return 0;
        const std::int64_t bars = beats / perBar;
        const std::int64_t pulses = meter == Meter::sixEight ? 2 * bars : beats;
        double subdivision = hatGrid(2 * beats) - hatGrid(pulses);
        if (meter != Meter::sixEight)
            subdivision = std::max(subdivision, swungEighths(beats) - hatGrid(beats));
        const double levels = (wholeBars ? barWeight * grid(bars) : 0) + grid(pulses) + subdivisionWeight * subdivision;
        const double bpm = static_cast<double>(beats) / minutes * (meter == Meter::sixEight ? compoundTempoFactor : 1.0);
        return levels * repetition(beats, perBar) * tempoWeight(bpm);
    }

    // The best reading of 55 to 215 BPM over the loop's `minutes`.
    Reading best(double minutes) {
        Reading best;
        const auto fewest = std::max<std::int64_t>(1, static_cast<std::int64_t>(std::ceil(minutes * lowestBpm)));
        const auto most = static_cast<std::int64_t>(std::floor(minutes * highestBpm));
        for (std::int64_t beats = fewest; beats <= most; ++beats)
            for (const Meter meter : {Meter::four, Meter::three, Meter::sixEight})
                if (const double s = score(beats, meter, minutes); s > best.score)
                    best = {s, beats, meter};
        return best;
    }

private:
    static double& memo(std::map<std::int64_t, double>& scores, std::int64_t key) {
        return scores.try_emplace(key, std::numeric_limits<double>::quiet_NaN()).first->second;
    }
    double grid(std::int64_t count) {
        double& score = memo(grids_, count);
        if (std::isnan(score))
            score = gridScore(windows_, loopHops_, count);
        return score;
    }
    double hatGrid(std::int64_t count) {
        double& score = memo(hatGrids_, count);
        if (std::isnan(score))
            score = gridScore(hatWindows_, loopHops_, count);
        return score;
    }
    double swungEighths(std::int64_t beats) {
        double& score = memo(swung_, beats);
        if (std::isnan(score))
            score = swungGridScore(hatWindows_, loopHops_, beats);
        return score;
    }
    double repetition(std::int64_t beats, std::int64_t perBar) {
        double& score = memo(repetitions_, beats * 8 + perBar);
        if (std::isnan(score))
            score = barRepetition(strength_, peak_, loopHops_, beats, perBar);
        return score;
    }

    double loopHops_;
    std::vector<double> strength_, hats_, peak_;
    Windows windows_, hatWindows_;
    std::map<std::int64_t, double> grids_, hatGrids_, swung_, repetitions_;
};

} // namespace

std::optional<TempoEstimate> tempoAt(double bpm, audio::FrameCount frames, std::uint32_t sampleRate,
                                     std::int64_t beatsPerBar) {
    if (!(bpm > 0) || !std::isfinite(bpm) || frames <= 0 || sampleRate == 0 || (beatsPerBar != 3 && beatsPerBar != 4))
        return std::nullopt;
    const double seconds = static_cast<double>(frames) / sampleRate;
    const auto beats = std::max<std::int64_t>(1, std::llround(bpm * seconds / 60));
    return TempoEstimate{std::round(bpm * 10) / 10, beats,
                         static_cast<double>(beats) / static_cast<double>(beatsPerBar), beatsPerBar};
}

std::optional<TempoEstimate> estimateTempo(const audio::WavData& wav) {
    if (!audio::isConvertible(wav))
        return std::nullopt;
    const audio::FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    const double seconds = static_cast<double>(frames) / wav.sampleRate;
    if (seconds > maxLoopSeconds)
        return std::nullopt;
    const auto mostBeats = static_cast<std::int64_t>(std::floor(seconds * highestBpm / 60));
    const std::int64_t hop = std::max<std::int64_t>(1, std::llround(wav.sampleRate * hopSeconds));
    // Half a beat at the fastest tempo must span a few hops to be told apart.
    // (At least one beat at 215 BPM is 55 hops, more than a grid window.)
    if (mostBeats < 1 || frames / hop < 4 * mostBeats)
        return std::nullopt;

    const Onsets onsets = onsetEnvelope(wav, hop);
    double total = 0, highTotal = 0;
    for (std::size_t h = 0; h < onsets.envelope.size(); ++h) {
        total += onsets.envelope[h];
        highTotal += onsets.high[h];
    }
    // Below a rise of about -100 dB per hop on average there is nothing to hear.
    if (total < 1e-5 * static_cast<double>(onsets.envelope.size()))
        return std::nullopt;
    // Squared, so that loud hits outweigh many quiet ones; the hats' rises
    // under a square root, so that soft ones count nearly as loud ones.
    std::vector<double> strength(onsets.envelope.size()), hats(onsets.envelope.size());
    for (std::size_t h = 0; h < strength.size(); ++h) {
        strength[h] = static_cast<double>(onsets.envelope[h]) * onsets.envelope[h];
        hats[h] = highTotal > 0 ? std::sqrt(onsets.high[h] / highTotal) : 0.0;
    }

    const double fileHops = static_cast<double>(frames) / static_cast<double>(hop);
    const double hopsPerMinute = 60.0 * wav.sampleRate / static_cast<double>(hop);
    const auto lengthBonus = [&](double hops) { return hops == fileHops ? fileLengthPreference : 1.0; };
    Reading best;
    double bestHops = fileHops;
    const bool trimmable = seconds <= longestTrimmedSeconds;
    for (std::int64_t change = -longestTailHops; change <= longestCutHops; change += lengthStepHops) {
        const double hops = fileHops + static_cast<double>(change);
        if (change != 0 && (!trimmable || std::abs(static_cast<double>(change)) > longestChangeShare * fileHops))
            continue;
        Reading reading = Scorer(strength, hats, hops).best(hops / hopsPerMinute);
        reading.score *= lengthBonus(hops);
        if (reading.score > best.score) {
            best = reading;
            bestHops = hops;
        }
    }
    if (best.beats == 0)
        return std::nullopt;
    // Two hops at a time across the step, then one either side.
    if (bestHops != fileHops)
        for (const auto& [step, reach] : {std::pair<std::int64_t, std::int64_t>{2, lengthStepHops / 2 - 1}, {1, 1}}) {
            const double around = bestHops;
            for (std::int64_t change = -reach * step; change <= reach * step; change += step) {
                const double hops = around + static_cast<double>(change);
                const double score = change == 0 ? 0.0
                                                 : Scorer(strength, hats, hops).score(best.beats, best.meter,
                                                                                      hops / hopsPerMinute)
                                                       * lengthBonus(hops);
                if (score > best.score) {
                    best.score = score;
                    bestHops = hops;
                }
            }
        }
    return tempoAt(static_cast<double>(best.beats) * hopsPerMinute / bestHops, frames, wav.sampleRate,
                   beatsPerBar(best.meter));
}

std::string tempoText(const TempoEstimate& tempo) {
    char text[80];
    std::snprintf(text, sizeof text, "%.1f BPM \u00b7 %lld/4 \u00b7 %g bar%s", tempo.bpm,
                  static_cast<long long>(tempo.beatsPerBar), tempo.bars, tempo.bars == 1 ? "" : "s");
    return text;
}

std::string tempoRangeText() {
    return std::to_string(static_cast<int>(minTempoBpm)) + " to " + std::to_string(static_cast<int>(maxTempoBpm));
}

} // namespace marquetry::chop

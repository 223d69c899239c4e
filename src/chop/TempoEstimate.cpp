#include "chop/TempoEstimate.hpp"

#include "audio/FormatConversion.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
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

// Rises in loudness per hop, the low band counted twice over: the beat is
// carried by kicks and snares, not by the hats that subdivide it.
std::vector<float> onsetEnvelope(const audio::WavData& wav, std::int64_t hop) {
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
    std::vector<float> fullEnergy(static_cast<std::size_t>(hops)), lowEnergy(static_cast<std::size_t>(hops));
    const float* frame = samples.data();
    for (std::size_t h = 0; h < fullEnergy.size(); ++h) {
        float full = 0, low = 0;
        for (std::int64_t i = 0; i < hop; ++i, frame += wav.channels) {
            float x = 0;
            for (std::size_t c = 0; c < wav.channels; ++c)
                x += frame[c];
            x *= channelScale;
            const float y = b0 * (x + 2 * x1 + x2) - a1 * y1 - a2 * y2;
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = y;
            full += x * x;
            low += y * y;
        }
        fullEnergy[h] = full;
        lowEnergy[h] = low;
    }
    const auto loudness = [&](const std::vector<float>& energy, std::size_t h) {
        float sum = 0;
        for (std::size_t i = h + 1 - std::min<std::size_t>(h + 1, smoothingHops); i <= h; ++i)
            sum += energy[i];
        return std::sqrt(sum / static_cast<float>(smoothingHops * static_cast<std::size_t>(hop)));
    };
    std::vector<float> envelope(static_cast<std::size_t>(hops));
    float previousFull = 0, previousLow = 0;
    for (std::size_t h = 0; h < envelope.size(); ++h) {
        const float full = loudness(fullEnergy, h);
        const float low = loudness(lowEnergy, h);
        envelope[h] = std::max(full - previousFull, 0.0f) + 2 * std::max(low - previousLow, 0.0f);
        previousFull = full;
        previousLow = low;
    }
    return envelope;
}

// How much more of the loop's onset strength falls near a grid of `beats`
// beats (at its best phase) than would by chance: the share inside the
// grid's windows less the share of the loop the windows cover. A grid twice
// too slow misses the snares between its beats; one twice too fast doubles
// its windows but catches only the weak hits between the beats.
double gridScore(const std::vector<double>& cumulative, double loopHops, std::int64_t beats) {
    const auto size = static_cast<std::int64_t>(cumulative.size()) - 1;
    const double total = cumulative.back();
    // Strength in hops [first, first + width), around the seam too.
    const auto window = [&](std::int64_t first, std::int64_t width) {
        first = (first % size + size) % size;
        const std::int64_t end = first + width;
        if (end <= size)
            return cumulative[static_cast<std::size_t>(end)] - cumulative[static_cast<std::size_t>(first)];
        return total - cumulative[static_cast<std::size_t>(first)] + cumulative[static_cast<std::size_t>(end - size)];
    };
    const double period = loopHops / static_cast<double>(beats);
    constexpr std::int64_t width = 2 * toleranceHops + 1;
    const auto centre = [&](std::int64_t phase, std::int64_t b) {
        return static_cast<std::int64_t>(std::floor(static_cast<double>(phase) + static_cast<double>(b) * period + 0.5));
    };
    double captured = 0;
    const auto phases = static_cast<std::int64_t>(std::ceil(period));
    for (std::int64_t phase = 0; phase < phases; ++phase) {
        double sum = 0;
        for (std::int64_t b = 0; b < beats; ++b)
            sum += window(centre(phase, b) - toleranceHops, width);
        captured = std::max(captured, sum);
    }
    return captured / total - static_cast<double>(beats * width) / static_cast<double>(size);
}

// For each hop, the strongest onset within the grid's tolerance of it,
// round the seam as the loop plays on.
std::vector<double> nearbyPeak(const std::vector<double>& strength) {
    const auto size = static_cast<std::int64_t>(strength.size());
    std::vector<double> peak(strength.size(), 0.0);
    for (std::int64_t h = 0; h < size; ++h)
        for (std::int64_t d = -toleranceHops; d <= toleranceHops; ++d)
            peak[static_cast<std::size_t>(h)] =
                std::max(peak[static_cast<std::size_t>(h)], strength[static_cast<std::size_t>(((h + d) % size + size) % size)]);
    return peak;
}

// How well the loop's bars repeat when it holds `beats` beats, as a factor
// of 1 down to 0: the share of onset strength that comes again one bar (four
// beats) later, counted full from `repeatingShare` up. Drum loops are built
// of repeating bars, so a grid whose bars do not repeat has taken the
// subdivision for the beat: a broken beat, its kicks on the half-beats, read
// twice too fast catches every hit on its grid, but its half-bars differ.
double barRepetition(const std::vector<double>& strength, const std::vector<double>& peak, double loopHops,
                     std::int64_t beats) {
    const auto size = static_cast<std::int64_t>(strength.size());
    const double barHops = 4 * loopHops / static_cast<double>(beats);
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

} // namespace

std::optional<TempoEstimate> tempoAt(double bpm, audio::FrameCount frames, std::uint32_t sampleRate) {
    if (!(bpm > 0) || !std::isfinite(bpm) || frames <= 0 || sampleRate == 0)
        return std::nullopt;
    const double seconds = static_cast<double>(frames) / sampleRate;
    const auto beats = std::max<std::int64_t>(1, std::llround(bpm * seconds / 60));
    return TempoEstimate{std::round(bpm * 10) / 10, beats, static_cast<double>(beats) / 4};
}

std::optional<TempoEstimate> estimateTempo(const audio::WavData& wav) {
    if (!audio::isConvertible(wav))
        return std::nullopt;
    const audio::FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
    const double seconds = static_cast<double>(frames) / wav.sampleRate;
    if (seconds > maxLoopSeconds)
        return std::nullopt;
    const auto fewestBeats = static_cast<std::int64_t>(std::ceil(seconds * lowestBpm / 60));
    const auto mostBeats = static_cast<std::int64_t>(std::floor(seconds * highestBpm / 60));
    const std::int64_t hop = std::max<std::int64_t>(1, std::llround(wav.sampleRate * hopSeconds));
    // Half a beat at the fastest tempo must span a few hops to be told apart.
    // (At least one beat at 215 BPM is 55 hops, more than a grid window.)
    if (mostBeats < 1 || std::max<std::int64_t>(fewestBeats, 1) > mostBeats || frames / hop < 4 * mostBeats)
        return std::nullopt;

    const std::vector<float> envelope = onsetEnvelope(wav, hop);
    double total = 0;
    for (const float value : envelope)
        total += value;
    // Below a rise of about -100 dB per hop on average there is nothing to hear.
    if (total < 1e-5 * static_cast<double>(envelope.size()))
        return std::nullopt;
    // Squared, so that loud hits outweigh many quiet ones.
    std::vector<double> strength(envelope.size());
    std::vector<double> cumulative(envelope.size() + 1, 0.0);
    for (std::size_t h = 0; h < envelope.size(); ++h) {
        strength[h] = static_cast<double>(envelope[h]) * envelope[h];
        cumulative[h + 1] = cumulative[h] + strength[h];
    }
    const std::vector<double> peak = nearbyPeak(strength);

    const double loopHops = static_cast<double>(frames) / static_cast<double>(hop);
    std::int64_t bestBeats = 0;
    double bestScore = 0;
    for (std::int64_t beats = std::max<std::int64_t>(fewestBeats, 1); beats <= mostBeats; ++beats) {
        const double bpm = static_cast<double>(beats) * 60 / seconds;
        const double score = gridScore(cumulative, loopHops, beats) * barRepetition(strength, peak, loopHops, beats)
                             * tempoWeight(bpm);
        if (score > bestScore) {
            bestScore = score;
            bestBeats = beats;
        }
    }
    if (bestBeats == 0)
        return std::nullopt;
    return tempoAt(static_cast<double>(bestBeats) * 60 / seconds, frames, wav.sampleRate);
}

std::string tempoText(const TempoEstimate& tempo) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f BPM \u00b7 %g bar%s", tempo.bpm, tempo.bars, tempo.bars == 1 ? "" : "s");
    return text;
}

} // namespace marquetry::chop

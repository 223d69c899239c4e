#pragma once

#include "audio/WavData.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace marquetry::chop {

/// A loop's tempo, read as a whole number of beats over its length.
struct TempoEstimate {
    double bpm = 0;          ///< beats per minute, rounded to one decimal
    std::int64_t beats = 0;  ///< beats the whole loop holds
    double bars = 0;         ///< beats / 4
    bool operator==(const TempoEstimate&) const = default;
};

/// The tempos a loop may be given: slower or faster ones are refused.
inline constexpr double minTempoBpm = 20;
inline constexpr double maxTempoBpm = 999;
/// The longest sound estimateTempo reads as a loop: 32 bars at 64 BPM. A
/// longer one is a song or a take, whose length says nothing of its beat,
/// and the search grows with the square of the length.
inline constexpr double maxLoopSeconds = 120;

/// The tempo of `wav`, taken to be a loop of a whole number of beats: of the
/// beat counts giving 55 to 215 BPM over its length, the one whose beat grid
/// catches the most onset strength beyond what as many windows would catch
/// by chance (onsets weighted to loud, low hits), discounted when its bars of
/// four beats do not repeat, with a mild preference for tempos near 120 BPM.
/// Reads 8-bit unsigned, 16-, 24- and 32-bit integer and 32-bit float samples
/// of any channel count. nullopt when the loop is too short, too long (see
/// maxLoopSeconds) or silent to tell, or its samples are in another layout.
/// Pure and deterministic; safe on any thread.
std::optional<TempoEstimate> estimateTempo(const audio::WavData& wav);

/// The estimate for a tempo of `bpm` over `frames` frames at `sampleRate`:
/// bpm rounded to one decimal, beats to the nearest whole beat (at least
/// one). nullopt when the rate or length is 0 or bpm is not positive.
std::optional<TempoEstimate> tempoAt(double bpm, audio::FrameCount frames, std::uint32_t sampleRate);

/// "126.0 BPM · 1 bar", "70.0 BPM · 2.5 bars": as the window and the command
/// line show an estimate.
std::string tempoText(const TempoEstimate& tempo);

} // namespace marquetry::chop

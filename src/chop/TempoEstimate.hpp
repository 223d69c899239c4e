#pragma once

#include "audio/WavData.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace marquetry::chop {

/// A loop's tempo and meter, read as a whole number of beats over its length.
struct TempoEstimate {
    double bpm = 0;                ///< quarter notes per minute, rounded to one decimal
    std::int64_t beats = 0;        ///< quarter notes the whole loop holds
    double bars = 0;               ///< beats / beatsPerBar
    std::int64_t beatsPerBar = 4;  ///< 4, or 3 for 3/4 and for 6/8 (three quarter notes a bar)
    bool operator==(const TempoEstimate&) const = default;
};

/// The tempos a loop may be given: slower or faster ones are refused.
inline constexpr double minTempoBpm = 20;
inline constexpr double maxTempoBpm = 999;
/// "20 to 999": that range as messages write it.
std::string tempoRangeText();
/// The longest sound estimateTempo reads as a loop: 32 bars at 64 BPM. A
/// longer one is a song or a take, whose length says nothing of its beat,
/// and the search grows with the square of the length.
inline constexpr double maxLoopSeconds = 120;

/// The tempo and meter of `wav`, taken to be a loop of a whole number of
/// beats (and, in 3/4 or 6/8, of whole bars): of the beat counts giving 55 to
/// 215 BPM over its length and the meters 4/4, 3/4 and 6/8, the reading
/// whose beat (the dotted quarter in 6/8) catches the most onset strength
/// beyond what as many windows would catch by chance, whose eighths the hats
/// fill (straight or swung), whose downbeats are strong and whose bars
/// repeat, with a mild preference for tempos near 120 BPM (100 in 6/8). So a
/// fast loop whose hats fill the eighths between its snares reads at its
/// real tempo up to 215 BPM, and a bar of three reads as 3/4 however its
/// beat is cut. A half-time groove (snare on beat 3, hats in eighths) sounds
/// the same as a backbeat (snare on 2 and 4) at half its tempo with hats in
/// sixteenths: both readings fit, and the one nearer 120 BPM is chosen. For
/// half-time loops as they are made (130 to 170 BPM) that is the full tempo,
/// the one producers set for them; a slow backbeat with sixteenth hats,
/// below about 85 BPM, reads at twice its tempo. The loop may be up to 200 ms shorter than the file (a
/// tail) or 40 ms longer (a cut end) when the file is at most 32 s long.
/// Reads 8-bit unsigned, 16-, 24- and 32-bit integer and 32-bit float samples
/// of any channel count. nullopt when the loop is too short, too long (see
/// maxLoopSeconds) or silent to tell, or its samples are in another layout.
/// Pure and deterministic; safe on any thread.
std::optional<TempoEstimate> estimateTempo(const audio::WavData& wav);

/// The estimate for a tempo of `bpm` in bars of `beatsPerBar` quarter notes
/// over `frames` frames at `sampleRate`: bpm rounded to one decimal, beats
/// to the nearest whole beat (at least one). nullopt when the rate or length
/// is 0, bpm is not positive or beatsPerBar is not 3 or 4.
std::optional<TempoEstimate> tempoAt(double bpm, audio::FrameCount frames, std::uint32_t sampleRate,
                                     std::int64_t beatsPerBar = 4);

/// "136.9 BPM · 4/4 · 1 bar", "120.0 BPM · 3/4 · 2.5 bars": as the window
/// and the command line show an estimate (a 6/8 loop shows as 3/4).
std::string tempoText(const TempoEstimate& tempo);

} // namespace marquetry::chop

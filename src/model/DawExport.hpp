#pragma once

#include "audio/LoopTags.hpp"
#include "audio/WavData.hpp"
#include "chop/TempoEstimate.hpp"
#include "model/GeneratedLoop.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace marquetry::model {

/// The lowest note a slice kit maps, and how many slices fit above it.
inline constexpr int firstKitNote = 36;
inline constexpr std::int64_t maxKitSlices = 127 - firstKitNote + 1;

/// Whether `tempo` can go into tags and MIDI files: known and from
/// chop::minTempoBpm to chop::maxTempoBpm.
bool usableTempo(const std::optional<chop::TempoEstimate>& tempo);

/// The tags of `pcmBytes` of audio in `format` at the tempo and meter of
/// `tempo`: its beats counted over its own length (at least one), and a cue
/// at every placement named after the pool slice and what the Glitch model
/// did to it (a source loop has none). Pure.
audio::LoopTags loopTagsFor(std::size_t pcmBytes, std::span<const chop::Placement> placements,
                            const audio::WavData& format, const chop::TempoEstimate& tempo);

/// One file of a slice kit, still in memory.
struct KitFile {
    std::string name;
    audio::Bytes bytes;
};

/// One slice of a kit: the placement that first placed it and its variation.
struct KitSlice {
    const GeneratedLoop* loop;
    const chop::Placement* placement;
};

/// The slices of a kit for `loops`, in note order: every distinct placed
/// slice (pool slice, Glitch treatment and length) where it was first
/// placed, then in pool order; slice k sounds on note firstKitNote + k. The
/// pointers point into `loops`. Pure; never throws for too many slices.
std::vector<KitSlice> kitSlices(const std::vector<const GeneratedLoop*>& loops);

/// A slice kit for `loops` (the exported variations, in order) in `format`
/// at the tempo and meter of `tempo`, named after `stem` (see
/// variationStem): one plain WAV per distinct placed slice (pool slice,
/// Glitch treatment and length) numbered in pool order as STEM_sliceNN.wav,
/// STEM.sfz mapping slice k (from 0) to note firstKitNote + k as a one-shot,
/// and for each variation a format 0 MIDI file named as it with ".mid", 480
/// ticks per quarter note, in tempo.beatsPerBar/4, one note per placement
/// from its start for its length. Each slice's bytes are taken from the
/// first variation that places it, so with join fades and fitting off,
/// laying the notes' WAVs end to end gives back every variation. Throws
/// std::runtime_error when more than maxKitSlices slices would be needed.
/// `number` ("-2", ...) goes before the extension of every name, references
/// included, for a kit kept beside an earlier one. Pure.
std::vector<KitFile> buildSliceKit(const std::vector<const GeneratedLoop*>& loops, const audio::WavData& format,
                                   const std::string& stem, const chop::TempoEstimate& tempo,
                                   const std::string& number = "");

/// The MIDI ticks (480 to the quarter note) at frame `frame` of a loop at
/// `bpm` and `sampleRate`, rounded to the nearest tick.
std::int64_t ticksAt(audio::FrameIndex frame, double bpm, std::uint32_t sampleRate);

} // namespace marquetry::model

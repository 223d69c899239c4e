#pragma once

#include "audio/WavData.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace marquetry::audio {

/// A marker at the start of a slice, for a sampler or an arranger to snap to.
struct CuePoint {
    FrameIndex frame = 0;
    std::string label; ///< shown by the host; plain ASCII keeps every host happy

    bool operator==(const CuePoint&) const = default;
};

/// What a host needs to play a file as a loop in time: its tempo, how many
/// beats (quarter notes) it holds, where its slices start, and how many
/// beats make a bar (4, or 3 for 3/4 and 6/8).
struct LoopTags {
    double bpm = 0;
    std::int64_t beats = 0;
    std::vector<CuePoint> cues;
    std::int64_t beatsPerBar = 4;

    bool operator==(const LoopTags&) const = default;
};

/// The loop chunks for a file of `frames` frames in the layout of `format`:
/// "acid" (a loop, not a one-shot, root note 60, a meter of
/// `tags.beatsPerBar`/4, `tags.bpm` and `tags.beats`), "smpl" (MIDI unity note 60, one forward loop over the whole
/// file), and when there are cues, "cue " with one point per cue and a
/// "LIST"/"adtl" chunk with their labels. Every chunk has an even length, so
/// the result goes straight between fmt and data (buildWavFileData). Pure.
Bytes loopTagChunks(const LoopTags& tags, const WavData& format, FrameCount frames);

} // namespace marquetry::audio

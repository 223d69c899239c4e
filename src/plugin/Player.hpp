#pragma once

#include "plugin/PreparedRun.hpp"

#include <array>
#include <cstdint>
#include <span>

namespace marquetry::plugin {

/// The host's transport at the first frame of a block.
struct Transport {
    bool rolling = false;
    audio::FrameIndex frame = 0; ///< frames since the host's bar 1, beat 1
    double bpm = 0;              ///< the host's tempo; 0: unknown
};

/// A MIDI note-on at a frame of the block.
struct NoteOn {
    std::uint32_t frame = 0;
    std::uint8_t note = 0;
    std::uint8_t velocity = 0;
};

/// The controls that change what plays without a new run.
struct PlayControls {
    bool follow = true;
    std::int64_t variation = 1; ///< from 1; held to the run's count
};

/// What sounds at which frame, given a published run: the chosen variation
/// in time with the host while it rolls, and kit slices on notes. Each
/// placement starts at its beat at the host's tempo; at the loop's own tempo
/// that is its own frame, so the output is the variation itself. One
/// instance per audio thread; every call is real-time safe (no allocation,
/// lock or wait).
class Player {
public:
    /// The note of slice 1 of the kit (C1).
    static constexpr int firstNote = 36;

    /// Writes `frames` frames of `run` (null: silence) into `left` and
    /// `right`. `notes` are in frame order, each frame below `frames`. A new
    /// `run` stops every voice of the previous one, which may be freed once
    /// this returns.
    void process(const PreparedRun* run, const Transport& transport, const PlayControls& controls,
                 std::span<const NoteOn> notes, float* left, float* right, std::uint32_t frames) noexcept;

private:
    struct Voice {
        const PlayableVariation* source = nullptr;
        audio::FrameIndex start = 0; // the voice's first frame in `source`
        audio::FrameCount length = 0;
        audio::FrameCount played = 0;
        audio::FrameCount fadeFrom = 0; // a fade to silence at the cut from here to `length`
        float gain = 1;
    };

    void startPass(audio::FrameIndex at, const PlayControls& controls) noexcept;
    audio::FrameIndex placementStart(std::size_t index) const noexcept;
    void startPlacement(audio::FrameIndex at) noexcept;
    void startNote(const NoteOn& note) noexcept;
    static void render(Voice& voice, float* left, float* right, std::uint32_t frames) noexcept;

    const PreparedRun* run_ = nullptr;
    Voice follow_;
    bool following_ = false;
    audio::FrameIndex expectedFrame_ = 0; // where the host should be at the next block
    double scale_ = 1;                    // host frames per frame of the variation
    const PlayableVariation* variation_ = nullptr;
    audio::FrameIndex passStart_ = 0;
    audio::FrameCount passFrames_ = 0;
    std::size_t nextPlacement_ = 0;
    std::array<Voice, 32> notes_{};
};

} // namespace marquetry::plugin

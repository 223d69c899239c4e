#include "plugin/Player.hpp"

#include <algorithm>
#include <cmath>

namespace marquetry::plugin {
namespace {

// A slice cut short by the next one fades out over this long, so the cut
// does not click.
constexpr double cutFadeSeconds = 0.002;
// Within this of the loop's tempo the host plays it at its own: the output
// is then the variation, sample for sample.
constexpr double sameTempoBpm = 0.01;

} // namespace

void Player::process(const PreparedRun* run, const Transport& transport, const PlayControls& controls,
                     std::span<const NoteOn> notes, float* left, float* right, std::uint32_t frames) noexcept {
    std::fill_n(left, frames, 0.0f);
    std::fill_n(right, frames, 0.0f);
    if (run != run_) {
        run_ = run;
        following_ = false;
        follow_ = {};
        notes_.fill({});
    }
    const bool canFollow = run && controls.follow && transport.rolling && run->loopBpm > 0 && transport.bpm > 0
                           && !run->variations.empty();
    if (!canFollow) {
        following_ = false;
        follow_ = {};
    } else {
        const double scale =
            std::fabs(transport.bpm - run->loopBpm) < sameTempoBpm ? 1.0 : run->loopBpm / transport.bpm;
        // A jump of the transport, a new tempo or a start: the pass the host
        // is in is found again from its frame, as if the variation had always
        // been playing.
        if (!following_ || transport.frame != expectedFrame_ || scale != scale_) {
            scale_ = scale;
            following_ = true;
            startPass(0, controls);
            passStart_ = transport.frame - transport.frame % passFrames_;
        }
        expectedFrame_ = transport.frame + frames;
    }

    std::uint32_t done = 0;
    std::size_t nextNote = 0;
    while (done < frames) {
        while (nextNote < notes.size() && notes[nextNote].frame <= done)
            startNote(notes[nextNote++]);
        std::uint32_t until = frames;
        if (nextNote < notes.size())
            until = std::min(until, notes[nextNote].frame);
        if (following_) {
            const audio::FrameIndex now = transport.frame + done;
            if (now >= passStart_ + passFrames_)
                startPass(now, controls);
            while (nextPlacement_ < variation_->placements.size()
                   && passStart_ + placementStart(nextPlacement_) <= now)
                startPlacement(now);
            audio::FrameIndex next = passStart_ + passFrames_;
            if (nextPlacement_ < variation_->placements.size())
                next = std::min(next, passStart_ + placementStart(nextPlacement_));
            until = static_cast<std::uint32_t>(std::min<audio::FrameIndex>(until, done + (next - now)));
            render(follow_, left + done, right + done, until - done);
        }
        for (Voice& voice : notes_)
            render(voice, left + done, right + done, until - done);
        done = until;
    }
}

void Player::startPass(audio::FrameIndex at, const PlayControls& controls) noexcept {
    const auto count = static_cast<std::int64_t>(run_->variations.size());
    variation_ = &run_->variations[static_cast<std::size_t>(std::clamp<std::int64_t>(controls.variation, 1, count) - 1)];
    passStart_ = at;
    passFrames_ = std::max<audio::FrameCount>(1, std::llround(static_cast<double>(variation_->frames) * scale_));
    nextPlacement_ = 0;
    follow_ = {};
}

audio::FrameIndex Player::placementStart(std::size_t index) const noexcept {
    const audio::FrameIndex start = variation_->placements[index].start;
    return scale_ == 1.0 ? start : std::llround(static_cast<double>(start) * scale_);
}

void Player::startPlacement(audio::FrameIndex now) noexcept {
    const std::size_t index = nextPlacement_++;
    const SampleSpan& span = variation_->placements[index];
    const audio::FrameIndex start = placementStart(index);
    const audio::FrameIndex end =
        index + 1 < variation_->placements.size() ? placementStart(index + 1) : passFrames_;
    const audio::FrameCount room = std::max<audio::FrameCount>(0, end - start);
    follow_.source = variation_;
    follow_.start = span.start;
    follow_.gain = 1;
    follow_.played = now - (passStart_ + start);
    if (span.frames <= room) {
        follow_.length = span.frames;
        follow_.fadeFrom = span.frames;
    } else {
        const auto fade = std::min<audio::FrameCount>(room, std::llround(cutFadeSeconds * run_->sampleRate));
        follow_.length = room;
        follow_.fadeFrom = room - fade;
    }
}

void Player::startNote(const NoteOn& note) noexcept {
    if (!run_ || note.velocity == 0 || note.note < firstNote)
        return;
    const auto slice = static_cast<std::size_t>(note.note - firstNote);
    if (slice >= run_->kit.size())
        return;
    // A free voice, else the one that has played longest.
    Voice* voice = &notes_.front();
    for (Voice& candidate : notes_) {
        if (candidate.played >= candidate.length) {
            voice = &candidate;
            break;
        }
        if (candidate.played > voice->played)
            voice = &candidate;
    }
    const SampleSpan& span = run_->kit[slice];
    *voice = {&run_->variations[span.variation], span.start, span.frames, 0, span.frames,
              static_cast<float>(note.velocity) / 127.0f};
}

void Player::render(Voice& voice, float* left, float* right, std::uint32_t frames) noexcept {
    const auto count = std::min<audio::FrameCount>(frames, voice.length - voice.played);
    if (count <= 0)
        return;
    const PlayableVariation& source = *voice.source;
    const audio::FrameIndex from = voice.start + voice.played;
    const auto plain = std::clamp<audio::FrameCount>(voice.fadeFrom - voice.played, 0, count);
    for (audio::FrameCount i = 0; i < plain; ++i) {
        left[i] += source.sample(from + i, 0) * voice.gain;
        right[i] += source.sample(from + i, 1) * voice.gain;
    }
    const auto fadeFrames = static_cast<float>(voice.length - voice.fadeFrom);
    for (audio::FrameCount i = plain; i < count; ++i) {
        const float gain = voice.gain * static_cast<float>(voice.length - voice.played - i) / fadeFrames;
        left[i] += source.sample(from + i, 0) * gain;
        right[i] += source.sample(from + i, 1) * gain;
    }
    voice.played += count;
}

} // namespace marquetry::plugin

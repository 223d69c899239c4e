#include "model/DawExport.hpp"

#include "audio/WavWriter.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <tuple>

namespace marquetry::model {
namespace {

constexpr std::int64_t ticksPerQuarter = 480;

std::string twoDigits(std::int64_t number) {
    char digits[24];
    std::snprintf(digits, sizeof digits, "%02lld", static_cast<long long>(number));
    return digits;
}

std::string sliceLabel(const chop::Placement& placement) {
    std::string label = "slice " + twoDigits(placement.slice + 1);
    if (placement.treatment.reversed)
        label += " reversed";
    if (placement.treatment.stutterRepeats > 0)
        label += " stutter x" + std::to_string(placement.treatment.stutterRepeats);
    if (placement.treatment.semitones) {
        char shift[32];
        std::snprintf(shift, sizeof shift, " %+.2f st", *placement.treatment.semitones);
        label += shift;
    }
    return label;
}

// Slices the kit tells apart: the same pool slice treated alike and of the
// same length sounds the same wherever it is placed.
auto identity(const chop::Placement& placement) {
    return std::tie(placement.slice, placement.treatment.reversed, placement.treatment.stutterRepeats,
                    placement.treatment.semitones, placement.byteCount);
}

void appendU16BE(audio::Bytes& out, std::uint32_t value) {
    out.push_back(static_cast<std::uint8_t>((value >> 8) & 0xFF));
    out.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

void appendU32BE(audio::Bytes& out, std::uint32_t value) {
    appendU16BE(out, value >> 16);
    appendU16BE(out, value & 0xFFFF);
}

void appendVarLen(audio::Bytes& out, std::uint64_t value) {
    std::uint8_t groups[10];
    int count = 0;
    do {
        groups[count++] = static_cast<std::uint8_t>(value & 0x7F);
        value >>= 7;
    } while (value != 0);
    while (count > 1)
        out.push_back(static_cast<std::uint8_t>(groups[--count] | 0x80));
    out.push_back(groups[0]);
}

struct NoteEvent {
    std::int64_t tick;
    bool on;
    int note;
};

audio::Bytes midiFile(const std::vector<NoteEvent>& unordered, const chop::TempoEstimate& tempo,
                      const std::string& trackName) {
    std::vector<NoteEvent> events = unordered;
    // A note ends before the next begins on the same tick.
    std::stable_sort(events.begin(), events.end(), [](const NoteEvent& a, const NoteEvent& b) {
        return a.tick != b.tick ? a.tick < b.tick : (!a.on && b.on);
    });
    audio::Bytes track;
    const auto meta = [&](std::uint8_t type, std::string_view body) {
        track.push_back(0);
        track.push_back(0xFF);
        track.push_back(type);
        appendVarLen(track, body.size());
        track.insert(track.end(), body.begin(), body.end());
    };
    meta(0x03, trackName);
    const auto microsPerQuarter = static_cast<std::uint32_t>(std::llround(60'000'000.0 / tempo.bpm));
    const char quarter[3] = {static_cast<char>(microsPerQuarter >> 16), static_cast<char>(microsPerQuarter >> 8),
                             static_cast<char>(microsPerQuarter)};
    meta(0x51, std::string_view(quarter, 3));
    // beatsPerBar/4, a click every quarter note (24 clocks), 8 32nd notes to the quarter.
    const char signature[4] = {static_cast<char>(std::clamp<std::int64_t>(tempo.beatsPerBar, 1, 127)), 2, 24, 8};
    meta(0x58, std::string_view(signature, 4));
    std::int64_t now = 0;
    for (const NoteEvent& event : events) {
        appendVarLen(track, static_cast<std::uint64_t>(event.tick - now));
        now = event.tick;
        track.push_back(event.on ? 0x90 : 0x80);
        track.push_back(static_cast<std::uint8_t>(event.note));
        track.push_back(event.on ? 100 : 0);
    }
    meta(0x2F, {});

    audio::Bytes file = {'M', 'T', 'h', 'd'};
    appendU32BE(file, 6);
    appendU16BE(file, 0); // one track
    appendU16BE(file, 1);
    appendU16BE(file, ticksPerQuarter);
    file.insert(file.end(), {'M', 'T', 'r', 'k'});
    appendU32BE(file, static_cast<std::uint32_t>(track.size()));
    file.insert(file.end(), track.begin(), track.end());
    return file;
}

std::string withoutExtension(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

} // namespace

bool usableTempo(const std::optional<chop::TempoEstimate>& tempo) {
    return tempo && tempo->bpm >= chop::minTempoBpm && tempo->bpm <= chop::maxTempoBpm;
}

std::int64_t ticksAt(audio::FrameIndex frame, double bpm, std::uint32_t sampleRate) {
    return std::llround(static_cast<double>(frame) * bpm * ticksPerQuarter / (60.0 * sampleRate));
}

audio::LoopTags loopTagsFor(std::size_t pcmBytes, std::span<const chop::Placement> placements,
                            const audio::WavData& format, const chop::TempoEstimate& tempo) {
    audio::LoopTags tags;
    tags.bpm = tempo.bpm;
    tags.beatsPerBar = tempo.beatsPerBar;
    const audio::FrameCount frames = audio::frameCount(pcmBytes, format.blockAlign);
    const double seconds = format.sampleRate == 0 ? 0.0 : static_cast<double>(frames) / format.sampleRate;
    tags.beats = std::max<std::int64_t>(1, std::llround(seconds * tempo.bpm / 60.0));
    for (const chop::Placement& placement : placements)
        if (placement.byteCount > 0)
            tags.cues.push_back({placement.byteOffset / std::max<std::int64_t>(1, format.blockAlign),
                                 sliceLabel(placement)});
    return tags;
}

std::vector<KitSlice> kitSlices(const std::vector<const GeneratedLoop*>& loops) {
    // Every distinct slice, where it was first placed, then in pool order.
    std::vector<KitSlice> found;
    for (const GeneratedLoop* loop : loops)
        for (const chop::Placement& placement : loop->placements) {
            if (placement.byteCount <= 0)
                continue;
            const bool known = std::any_of(found.begin(), found.end(), [&](const KitSlice& other) {
                return identity(*other.placement) == identity(placement);
            });
            if (!known)
                found.push_back({loop, &placement});
        }
    std::stable_sort(found.begin(), found.end(),
                     [](const KitSlice& a, const KitSlice& b) { return a.placement->slice < b.placement->slice; });
    return found;
}

std::vector<KitFile> buildSliceKit(const std::vector<const GeneratedLoop*>& loops, const audio::WavData& format,
                                   const std::string& stem, const chop::TempoEstimate& tempo,
                                   const std::string& number) {
    const double bpm = tempo.bpm;
    const std::vector<KitSlice> found = kitSlices(loops);
    if (static_cast<std::int64_t>(found.size()) > maxKitSlices)
        throw std::runtime_error("the slice kit would need " + std::to_string(found.size())
                                 + " slices, more than the " + std::to_string(maxKitSlices)
                                 + " notes from C1 to the top of the MIDI range.");

    std::vector<KitFile> files;
    std::string sfz = "// " + stem + ": slice k on note " + std::to_string(firstKitNote)
                      + " + k, each played once through\n<group>\nloop_mode=one_shot\n";
    for (std::size_t k = 0; k < found.size(); ++k) {
        const GeneratedLoop& loop = *found[k].loop;
        const chop::Placement& placement = *found[k].placement;
        const std::string name = stem + "_slice" + twoDigits(static_cast<std::int64_t>(k + 1)) + number + ".wav";
        const auto bytes = std::span(loop.pcmData)
                               .subspan(static_cast<std::size_t>(placement.byteOffset),
                                        static_cast<std::size_t>(placement.byteCount));
        files.push_back({name, audio::buildWavFileData(format, bytes)});
        sfz += "<region> sample=" + name + " key=" + std::to_string(firstKitNote + static_cast<int>(k)) + "\n";
    }
    files.push_back({stem + number + ".sfz", audio::Bytes(sfz.begin(), sfz.end())});

    const auto noteOf = [&](const chop::Placement& placement) {
        for (std::size_t k = 0; k < found.size(); ++k)
            if (identity(*found[k].placement) == identity(placement))
                return firstKitNote + static_cast<int>(k);
        return firstKitNote; // unreachable: every placement was found above
    };
    const std::int64_t blockAlign = std::max<std::int64_t>(1, format.blockAlign);
    for (const GeneratedLoop* loop : loops) {
        std::vector<NoteEvent> events;
        for (const chop::Placement& placement : loop->placements) {
            if (placement.byteCount <= 0)
                continue;
            const int note = noteOf(placement);
            const std::int64_t start = ticksAt(placement.byteOffset / blockAlign, bpm, format.sampleRate);
            const std::int64_t end = ticksAt((placement.byteOffset + placement.byteCount) / blockAlign, bpm,
                                             format.sampleRate);
            events.push_back({start, true, note});
            events.push_back({std::max(end, start + 1), false, note});
        }
        files.push_back({withoutExtension(loop->name) + number + ".mid", midiFile(events, tempo, withoutExtension(loop->name))});
    }
    return files;
}

} // namespace marquetry::model

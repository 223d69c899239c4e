#pragma once

#include "audio/WavReader.hpp"

#include <optional>
#include <string>

namespace marquetry::model {

/// What the source list tells of a loop before it is selected.
struct SourceFacts {
    std::optional<audio::WavHeader> header; ///< none until read, and for a file the reader refuses
    std::optional<std::string> refusal;     ///< the message loading the file gives, when it fails
    bool operator==(const SourceFacts&) const = default;
};

/// The facts of the loop at `path` from its header alone, never its payload.
/// A file the reader refuses gets the same message that loading it would
/// report. Never throws; safe on any thread.
SourceFacts readSourceFacts(const std::string& path);

/// "4.2 s · 16-bit stereo 44100 Hz" (a loop of a minute or more "1:05"): the
/// length and format as the list shows them; empty without a header.
std::string factsText(const SourceFacts& facts);

} // namespace marquetry::model

#pragma once

#include <stdexcept>
#include <string>

namespace marquetry::model {

/// Why a file was not imported: what() is one sentence for the user, the
/// source path as given, a colon and the reason, for example
/// "kick.txt: Not an audio file libsndfile can read (Format not recognised)."
/// It never carries a library's own text such as std::bad_alloc.
class ImportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Converts the audio file at `source` (any format libsndfile reads; see
/// audio/AudioImport.hpp for what becomes of its samples) into a plain WAV
/// file in `folder`, named after the source's stem: "loop.aif" becomes
/// "loop.wav", or "loop-2.wav", "loop-3.wav", ... when that name is taken.
/// An existing file is never replaced, and the new file appears whole or not
/// at all. Returns the new file's path (`folder` joined with its name).
/// Throws ImportError, with nothing left on disk, when the source cannot be
/// read or converted or the file cannot be written; the folder is not
/// created. Blocks while it decodes and writes; call from one thread at a
/// time.
std::string importAudioFile(const std::string& source, const std::string& folder);

} // namespace marquetry::model

#pragma once

#include "audio/WavData.hpp"

#include <span>
#include <string>

namespace marquetry::audio {

/// Reads the whole file at `path` and decodes it with `parseWav`.
/// Throws std::system_error carrying the operating system's description and
/// the path when the file cannot be read, and AppError::invalidWav for a file
/// that is not a usable WAV. Keeps no state; safe on any thread.
WavData loadWav(const std::string& path);

/// Decodes a WAV file image held in memory: integer PCM (format 1) or IEEE
/// float (format 3), fmt and data chunks anywhere, every other chunk skipped.
/// Throws AppError::invalidWav with one of the reader's fixed messages. The
/// record owns a copy of the payload, never a view into `image`.
WavData parseWav(std::span<const std::uint8_t> image);

/// The whole file at `path`, read in one go. Throws std::system_error with
/// the operating system's description of the failure, prefixed by the path.
Bytes readWholeFile(const std::string& path);

} // namespace marquetry::audio

#pragma once

#include "audio/WavData.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace marquetry::audio {

/// Reads the whole file at `path` (see readWholeFile) and decodes it as
/// `parseWav` does. The record's payload stays in the buffer the file was
/// read into, so a source costs about its own size in memory, once.
/// Throws std::system_error when the file cannot be read, and
/// AppError::invalidWav for a file that is not a usable WAV. Keeps no state;
/// safe on any thread.
WavData loadWav(const std::string& path);

/// What a WAV file's chunk headers tell without its payload.
struct WavHeader {
    WavData format;                 ///< the format fields; pcmData stays empty
    std::uint64_t payloadBytes = 0; ///< the data chunk's length, a whole number of frames
    bool operator==(const WavHeader&) const = default;
};

/// The header of the WAV file at `path`, found by reading only the RIFF
/// header, the chunk headers and the fmt fields, never the payload. Refuses
/// exactly what loadWav refuses, with the same exception and message; only a
/// file that changes between the two reads can get different answers.
/// Keeps no state; safe on any thread.
WavHeader readWavHeader(const std::string& path);

/// Decodes a WAV file image held in memory: integer PCM (format 1) or IEEE
/// float (format 3), fmt and data chunks anywhere, every other chunk skipped.
/// Throws AppError::invalidWav with one of the reader's fixed messages. The
/// record owns a copy of the payload, never a view into `image`.
WavData parseWav(std::span<const std::uint8_t> image);

/// `parseWav` of a file image the record may keep: the payload stays in the
/// image's own buffer instead of being copied out of it.
WavData parseWavInPlace(Bytes image);

/// The whole file at `path`, read in one go. Never blocks: anything that is
/// not a regular file (a named pipe, a device, a socket) is refused before
/// it is opened for reading, and so is a file larger than a WAV file can be
/// (8 bytes of header and a 32-bit RIFF size), before a byte is read.
/// Throws std::system_error whose text is "<path>: <description>", the
/// description being the operating system's own for failures it reports
/// ("Too many levels of symbolic links", "Is a directory", ...) or one that
/// names what the path is ("is a named pipe (FIFO), not a file").
Bytes readWholeFile(const std::string& path);

} // namespace marquetry::audio

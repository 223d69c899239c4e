#pragma once

#include "audio/WavData.hpp"
#include "audio/WavWriter.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace marquetry::audio {

/// Import turns any audio file libsndfile reads (WAV with the plain or the
/// extensible header, RF64, W64, AIFF, CAF, FLAC, Ogg Vorbis, Opus, MP3, ...)
/// into a record that the WAV writer stores and the reader accepts: format
/// code 1 or 3, the source's channels and sample rate, byteRate and
/// blockAlign consistent with them. The sample layout follows the source's
/// encoding as libsndfile reports it:
///
/// - Integers stored losslessly (PCM, FLAC, ALAC, DWVW, DPCM) keep their
///   width, rounded up to 8, 16, 24 or 32 bits (20-bit ALAC becomes 24-bit,
///   12-bit DWVW 16-bit), every sample bit-exact. 8-bit comes out unsigned,
///   as WAV stores it.
/// - 32- and 64-bit floats become 32-bit float (format code 3); 32-bit
///   samples keep their bits, 64-bit ones are rounded to nearest.
/// - Everything else is lossy or companded (MP3, Vorbis, Opus, mu-law, A-law,
///   ADPCM, GSM, G.72x) and has no native width: it becomes 16-bit PCM. The
///   decoder's samples, normalised to [-1, 1), are scaled by 32768, rounded to
///   nearest (ties to even) and clipped to the 16-bit range, NaN to 0; no
///   dither, so codecs that decode to 16-bit integers (mu-law, ADPCM, ...)
///   come out exactly as decoded.
///
/// The same bytes always give the same record. Lossless sources give the
/// same record on every machine; lossy decoders are libsndfile's, and may
/// round differently on another processor or library version.

/// Decodes the file at `path`. Anything but a regular file (a folder, FIFO,
/// device or socket) is refused before it is opened, so nothing blocks; a
/// file is never read whole, and one whose audio would not fit a WAV file
/// (more than 4 GB) is refused before its samples are read when its header
/// says so, and as soon as the limit is passed otherwise.
/// Throws std::system_error with the path and the operating system's
/// description when the file cannot be examined or opened, and
/// AppError::invalidWav with one sentence otherwise (see the messages in
/// AudioImport.cpp). Call from one thread at a time: libsndfile reports a
/// failed open through a global.
WavData importAudio(const std::string& path);

/// The same conversion of a file image held in memory. The decoded payload
/// may not exceed `maxPayloadBytes` (a WAV file's limit by default; a fuzzer
/// sets less to keep decompression bombs small). Throws AppError::invalidWav.
WavData importAudio(std::span<const std::uint8_t> fileImage, std::uint64_t maxPayloadBytes = maxWavPayloadBytes);

} // namespace marquetry::audio

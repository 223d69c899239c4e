#pragma once

#include "audio/WavData.hpp"

#include <cstdint>
#include <span>

namespace marquetry::audio {

/// Appends `value` to `buffer`, low byte first.
void appendU16LE(Bytes& buffer, std::uint16_t value);
void appendU32LE(Bytes& buffer, std::uint32_t value);

/// The largest payload a WAV header can describe: its RIFF size is
/// payload + 36 in 32 bits.
inline constexpr std::uint64_t maxWavPayloadBytes = 0xFFFF'FFFFull - 36;

/// Why a payload above maxWavPayloadBytes cannot be written.
inline constexpr const char* payloadTooLongMessage = "Audio data too long for a WAV file (more than 4 GB).";

/// A complete WAV file image: the plain 44-byte header with the six format
/// fields of `wav` copied unchanged, then `pcmData` (wav.pcmData is ignored).
/// No extension, no fact chunk, no pad byte. Throws AppError::invalidWav for a
/// payload longer than maxWavPayloadBytes rather than wrapping the sizes.
/// Pure; safe on any thread.
Bytes buildWavFileData(const WavData& wav, std::span<const std::uint8_t> pcmData);

/// The same image with `chunks` (whole RIFF chunks, each of even length)
/// between the fmt and data chunks; with no chunks, exactly the image above.
/// Throws AppError::invalidWav when the whole no longer fits the 32-bit RIFF
/// size. Pure; safe on any thread.
Bytes buildWavFileData(const WavData& wav, std::span<const std::uint8_t> pcmData,
                       std::span<const std::uint8_t> chunks);

} // namespace marquetry::audio

#pragma once

#include "audio/WavData.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace marquetry::audio {

/// Peak levels in [0, 1] of consecutive buckets of frames, in time order, for
/// drawing a waveform. About `points` values for long streams (at least 32
/// buckets are aimed for), one per frame for short ones, none for an empty
/// stream or a sample width below 8 bits; widths the engine does not read
/// give zeros. Pure; safe on any thread.
std::vector<double> waveformEnvelope(const WavData& wav, std::int64_t points);

/// The same for `pcm` laid out in the format of `format` (format.pcmData is
/// ignored), so a variation's bytes need no record of their own.
std::vector<double> waveformEnvelope(const WavData& format, std::span<const std::uint8_t> pcm, std::int64_t points);

} // namespace marquetry::audio

#pragma once

#include "audio/WavData.hpp"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace marquetry::audio {

/// True for the layouts the engine converts to and from floating point:
/// 8-bit unsigned, 16-, 24- and 32-bit integer and 32-bit float samples, at
/// least one channel, the channels fitting in a frame, a sample rate above 0.
bool isConvertible(const WavData& format);

/// The whole frames of `pcm`, in `format`'s layout, as interleaved floats:
/// integers of n bits over 2^(n-1) (8-bit about 128), so -1 <= x < 1; floats
/// as stored. Empty when the layout is not convertible.
std::vector<float> toFloat(const WavData& format, std::span<const std::uint8_t> pcm);

/// A 16-bit PCM sample as toFloat reads it: k / 32768, exactly. Allocates
/// nothing: safe on an audio thread.
constexpr float pcm16ToFloat(std::int16_t k) {
    return static_cast<float>(k / 32768.0);
}

/// Interleaved floats (`format.channels` per frame, a trailing partial frame
/// dropped) as PCM in `format`'s layout: integers times 2^(n-1), rounded half
/// away from zero and clamped, so a loud sample saturates and never wraps;
/// NaN becomes 0. Padding bytes of a frame are 0. A round trip through
/// toFloat is lossless for 8- to 24-bit and float data.
Bytes fromFloat(const WavData& format, std::span<const float> samples);

/// `source` in the layout, channel count and sample rate of `target` (its six
/// format fields; its PCM is ignored). Channels: one channel is copied to
/// every target channel; many mixed to one are averaged; otherwise target
/// channel c is source channel c mod S when there are more target channels,
/// and the average of source channels c, c + T, c + 2T, ... when there are
/// fewer. The rate is changed by libsamplerate's medium sinc converter to
/// round(frames x target rate / source rate) frames. A source already in the
/// target's format comes back unchanged. Throws AppError::io naming the two
/// formats when either layout is not convertible or the rates are more than
/// 256 times apart. Pure: safe on any thread.
WavData convertFormat(const WavData& source, const WavData& target);

/// "24-bit stereo 48000 Hz", "32-bit float mono 44100 Hz", "6 channels"...:
/// the layout a user recognises, for messages.
std::string describeFormat(const WavData& format);

} // namespace marquetry::audio

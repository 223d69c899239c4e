#include "audio/FormatConversion.hpp"

#include "audio/AppError.hpp"

#include <samplerate.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace marquetry::audio {
namespace {

std::size_t sampleWidth(const WavData& format) { return format.bitsPerSample / 8u; }

// 2^(bits - 1): the full scale of an integer sample (a shift, not a call to
// ldexp, which once per sample took half of a tempo estimate).
double fullScale(const WavData& format) {
    return static_cast<double>(std::uint64_t{1} << (format.bitsPerSample - 1));
}

// `inverseScale` is 1 / fullScale(format), worked out once per buffer rather
// than per sample.
float readSample(const WavData& format, double inverseScale, const std::uint8_t* p) {
    if (format.audioFormat == formatFloat) {
        float value;
        const std::uint32_t bits = static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8)
                                   | (static_cast<std::uint32_t>(p[2]) << 16)
                                   | (static_cast<std::uint32_t>(p[3]) << 24);
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    if (format.bitsPerSample == 8)
        return static_cast<float>((p[0] - 128) / 128.0);
    std::uint32_t bits = 0;
    const std::size_t width = sampleWidth(format);
    for (std::size_t i = 0; i < width; ++i)
        bits |= static_cast<std::uint32_t>(p[i]) << (8 * i);
    const unsigned unused = 32u - format.bitsPerSample;
    // Shifted up to the sign bit and back to sign-extend.
    const auto value = static_cast<std::int32_t>(bits << unused) >> unused;
    return static_cast<float>(value * inverseScale); // exact: the scale is a power of two
}

void writeSample(const WavData& format, float x, std::uint8_t* p) {
    if (format.audioFormat == formatFloat) {
        std::uint32_t bits;
        std::memcpy(&bits, &x, sizeof bits);
        for (int i = 0; i < 4; ++i)
            p[i] = static_cast<std::uint8_t>(bits >> (8 * i));
        return;
    }
    const double scale = fullScale(format);
    const double scaled = std::isnan(x) ? 0.0 : std::round(static_cast<double>(x) * scale);
    const auto value = static_cast<std::int64_t>(std::clamp(scaled, -scale, scale - 1.0));
    if (format.bitsPerSample == 8) {
        p[0] = static_cast<std::uint8_t>(value + 128);
        return;
    }
    const auto bits = static_cast<std::uint32_t>(value);
    for (std::size_t i = 0; i < sampleWidth(format); ++i)
        p[i] = static_cast<std::uint8_t>(bits >> (8 * i));
}

std::vector<float> mixChannels(std::span<const float> samples, std::size_t from, std::size_t to) {
    const std::size_t frames = samples.size() / from;
    std::vector<float> mixed(frames * to);
    for (std::size_t f = 0; f < frames; ++f) {
        const float* in = samples.data() + f * from;
        float* out = mixed.data() + f * to;
        for (std::size_t c = 0; c < to; ++c) {
            if (from == 1) {
                out[c] = in[0];
            } else if (to > from) {
                out[c] = in[c % from];
            } else {
                double sum = 0;
                std::size_t count = 0;
                for (std::size_t s = c; s < from; s += to, ++count)
                    sum += in[s];
                out[c] = static_cast<float>(sum / static_cast<double>(count));
            }
        }
    }
    return mixed;
}

std::vector<float> resample(std::span<const float> samples, std::size_t channels, std::uint32_t fromRate,
                            std::uint32_t toRate) {
    const auto frames = static_cast<long>(samples.size() / channels);
    const long target = std::lround(static_cast<double>(frames) * toRate / fromRate);
    std::vector<float> out(static_cast<std::size_t>(target) * channels, 0.0f);
    if (frames == 0 || target == 0)
        return out;
    SRC_DATA data{};
    data.data_in = samples.data();
    data.input_frames = frames;
    data.data_out = out.data();
    data.output_frames = target;
    data.src_ratio = static_cast<double>(toRate) / fromRate;
    const int error = src_simple(&data, SRC_SINC_MEDIUM_QUALITY, static_cast<int>(channels));
    if (error != 0)
        throw AppError::io(std::string("Could not change the sample rate: ") + src_strerror(error));
    // The converter may stop a few frames short of the exact length; those
    // stay silent so every conversion of N frames has the same length.
    return out;
}

} // namespace

bool isConvertible(const WavData& format) {
    if (format.channels == 0 || format.sampleRate == 0 || format.bitsPerSample % 8 != 0
        || static_cast<std::size_t>(format.channels) * sampleWidth(format) > format.blockAlign)
        return false;
    if (format.audioFormat == formatFloat)
        return format.bitsPerSample == 32;
    return format.audioFormat == formatPcm && format.bitsPerSample >= 8 && format.bitsPerSample <= 32;
}

std::vector<float> toFloat(const WavData& format, std::span<const std::uint8_t> pcm) {
    if (!isConvertible(format))
        return {};
    const std::size_t frames = pcm.size() / format.blockAlign;
    const std::size_t width = sampleWidth(format);
    const double inverseScale = 1 / fullScale(format);
    std::vector<float> samples(frames * format.channels);
    if (format.audioFormat == formatPcm && format.bitsPerSample == 16 && format.blockAlign == 2 * format.channels) {
        // The common layout, without the per-sample dispatch: the same values,
        // since dividing by a power of two is exact either way.
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = pcm16ToFloat(static_cast<std::int16_t>(pcm[2 * i] | (pcm[2 * i + 1] << 8)));
        return samples;
    }
    for (std::size_t f = 0; f < frames; ++f)
        for (std::size_t c = 0; c < format.channels; ++c)
            samples[f * format.channels + c] =
                readSample(format, inverseScale, pcm.data() + f * format.blockAlign + c * width);
    return samples;
}

Bytes fromFloat(const WavData& format, std::span<const float> samples) {
    if (!isConvertible(format))
        return {};
    const std::size_t frames = samples.size() / format.channels;
    const std::size_t width = sampleWidth(format);
    Bytes pcm(frames * format.blockAlign, 0);
    for (std::size_t f = 0; f < frames; ++f)
        for (std::size_t c = 0; c < format.channels; ++c)
            writeSample(format, samples[f * format.channels + c], pcm.data() + f * format.blockAlign + c * width);
    return pcm;
}

WavData convertFormat(const WavData& source, const WavData& target) {
    WavData converted{target.audioFormat, target.channels, target.sampleRate, target.byteRate,
                      target.blockAlign,  target.bitsPerSample, {}};
    WavData sourceFormat = source;
    sourceFormat.pcmData.clear();
    if (sourceFormat == converted) {
        converted.pcmData = source.pcmData;
        return converted;
    }
    const double rateRatio = source.sampleRate == 0 ? 0.0 : static_cast<double>(target.sampleRate) / source.sampleRate;
    if (!isConvertible(source) || !isConvertible(target) || rateRatio > 256.0 || rateRatio < 1.0 / 256.0)
        throw AppError::io("Cannot convert " + describeFormat(source) + " audio to " + describeFormat(target) + ".");
    std::vector<float> samples = toFloat(source, source.pcmData);
    if (source.channels != target.channels)
        samples = mixChannels(samples, source.channels, target.channels);
    if (source.sampleRate != target.sampleRate)
        samples = resample(samples, target.channels, source.sampleRate, target.sampleRate);
    converted.pcmData = fromFloat(target, samples);
    return converted;
}

std::string describeFormat(const WavData& format) {
    std::string text = std::to_string(format.bitsPerSample);
    text.append(format.audioFormat == formatFloat ? "-bit float" : "-bit");
    if (format.channels == 1) {
        text.append(" mono ");
    } else if (format.channels == 2) {
        text.append(" stereo ");
    } else {
        text.append(" ").append(std::to_string(format.channels)).append(" channels ");
    }
    return text.append(std::to_string(format.sampleRate)).append(" Hz");
}

} // namespace marquetry::audio

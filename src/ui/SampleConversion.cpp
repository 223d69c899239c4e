#include "ui/SampleConversion.hpp"

#include <QtEndian>

#include <algorithm>
#include <bit>
#include <cfloat>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>

namespace marquetry::ui {
namespace {

template <typename T>
void storeNative(char* out, T value) {
    std::memcpy(out, &value, sizeof value);
}

void convertUInt8(const std::uint8_t* in, char* out) {
    storeNative(out, in[0]);
}
void convertInt16(const std::uint8_t* in, char* out) {
    storeNative(out, qFromLittleEndian<qint16>(in));
}
// The 24 bits become the top of 32, so full scale stays full scale.
void convertInt24(const std::uint8_t* in, char* out) {
    const auto bits = (std::uint32_t{in[0]} << 8) | (std::uint32_t{in[1]} << 16) | (std::uint32_t{in[2]} << 24);
    storeNative(out, static_cast<qint32>(bits));
}
void convertInt32(const std::uint8_t* in, char* out) {
    storeNative(out, qFromLittleEndian<qint32>(in));
}
void convertFloat32(const std::uint8_t* in, char* out) {
    storeNative(out, std::bit_cast<float>(qFromLittleEndian<quint32>(in)));
}
void convertFloat64(const std::uint8_t* in, char* out) {
    // Narrowing a double beyond float's range is undefined; such a sample
    // clips anyway. NaN passes through std::clamp unchanged.
    const double wide = std::clamp(std::bit_cast<double>(qFromLittleEndian<quint64>(in)), -double{FLT_MAX},
                                   double{FLT_MAX});
    storeNative(out, static_cast<float>(wide));
}

struct SampleLayout {
    int inBytes;
    int outBytes;
    QAudioFormat::SampleFormat format;
    void (*convert)(const std::uint8_t* in, char* out);
};

SampleLayout sampleLayout(const audio::WavData& wav) {
    if (wav.audioFormat == audio::formatPcm) {
        switch (wav.bitsPerSample) {
        case 8: return {1, 1, QAudioFormat::UInt8, convertUInt8};
        case 16: return {2, 2, QAudioFormat::Int16, convertInt16};
        case 24: return {3, 4, QAudioFormat::Int32, convertInt24};
        case 32: return {4, 4, QAudioFormat::Int32, convertInt32};
        default: break;
        }
    } else if (wav.audioFormat == audio::formatFloat) {
        switch (wav.bitsPerSample) {
        case 32: return {4, 4, QAudioFormat::Float, convertFloat32};
        case 64: return {8, 4, QAudioFormat::Float, convertFloat64};
        default: break;
        }
    }
    const char* kind = wav.audioFormat == audio::formatFloat ? "floating-point" : "integer";
    throw std::runtime_error(std::to_string(wav.bitsPerSample) + "-bit " + kind + " samples cannot be played.");
}

} // namespace

PlayableAudio makePlayableAudio(const audio::WavData& wav) {
    if (wav.channels == 0)
        throw std::runtime_error("The audio has no channels.");
    if (wav.sampleRate == 0)
        throw std::runtime_error("The audio has a sample rate of 0 Hz.");
    if (wav.sampleRate > INT_MAX)
        throw std::runtime_error("A sample rate of " + std::to_string(wav.sampleRate) + " Hz cannot be played.");
    const SampleLayout layout = sampleLayout(wav);
    const std::size_t samplesPerFrame = wav.channels;
    if (wav.blockAlign < samplesPerFrame * static_cast<std::size_t>(layout.inBytes))
        throw std::runtime_error("Frames of " + std::to_string(wav.blockAlign) + " bytes cannot hold "
                                 + std::to_string(wav.channels) + " channels of "
                                 + std::to_string(wav.bitsPerSample) + "-bit samples.");

    PlayableAudio playable;
    playable.format.setSampleRate(static_cast<int>(wav.sampleRate));
    playable.format.setChannelCount(wav.channels);
    playable.format.setSampleFormat(layout.format);

    const auto frames = static_cast<std::size_t>(audio::frameCount(wav.pcmData.size(), wav.blockAlign));
    const bool storedAsPlayed = layout.inBytes == layout.outBytes
                                && wav.blockAlign == samplesPerFrame * static_cast<std::size_t>(layout.inBytes)
                                && std::endian::native == std::endian::little;
    if (storedAsPlayed) {
        playable.pcm = QByteArray(reinterpret_cast<const char*>(wav.pcmData.data()),
                                  static_cast<qsizetype>(frames * wav.blockAlign));
        return playable;
    }

    playable.pcm.resize(static_cast<qsizetype>(frames * samplesPerFrame * static_cast<std::size_t>(layout.outBytes)));
    char* out = playable.pcm.data();
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const std::uint8_t* in = wav.pcmData.data() + frame * wav.blockAlign;
        for (std::size_t channel = 0; channel < samplesPerFrame; ++channel) {
            layout.convert(in, out);
            in += layout.inBytes;
            out += layout.outBytes;
        }
    }
    return playable;
}

} // namespace marquetry::ui

#include "audio/WavWriter.hpp"

#include "audio/AppError.hpp"

#include <string_view>

namespace marquetry::audio {
namespace {

constexpr std::size_t headerBytes = 44;

void appendTag(Bytes& buffer, std::string_view tag) {
    buffer.insert(buffer.end(), tag.begin(), tag.end());
}

} // namespace

void appendU16LE(Bytes& buffer, std::uint16_t value) {
    buffer.push_back(static_cast<std::uint8_t>(value & 0xFF));
    buffer.push_back(static_cast<std::uint8_t>(value >> 8));
}

void appendU32LE(Bytes& buffer, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8)
        buffer.push_back(static_cast<std::uint8_t>((value >> shift) & 0xFF));
}

Bytes buildWavFileData(const WavData& wav, std::span<const std::uint8_t> pcmData) {
    return buildWavFileData(wav, pcmData, {});
}

Bytes buildWavFileData(const WavData& wav, std::span<const std::uint8_t> pcmData,
                       std::span<const std::uint8_t> chunks) {
    if (pcmData.size() > maxWavPayloadBytes || chunks.size() > maxWavPayloadBytes - pcmData.size())
        throw AppError::invalidWav(payloadTooLongMessage);
    const auto payloadSize = static_cast<std::uint32_t>(pcmData.size());

    Bytes image;
    image.reserve(headerBytes + chunks.size() + pcmData.size());
    appendTag(image, "RIFF");
    appendU32LE(image, static_cast<std::uint32_t>(payloadSize + chunks.size() + 36));
    appendTag(image, "WAVE");
    appendTag(image, "fmt ");
    appendU32LE(image, 16);
    appendU16LE(image, wav.audioFormat);
    appendU16LE(image, wav.channels);
    appendU32LE(image, wav.sampleRate);
    appendU32LE(image, wav.byteRate);
    appendU16LE(image, wav.blockAlign);
    appendU16LE(image, wav.bitsPerSample);
    image.insert(image.end(), chunks.begin(), chunks.end());
    appendTag(image, "data");
    appendU32LE(image, payloadSize);
    image.insert(image.end(), pcmData.begin(), pcmData.end());
    return image;
}

} // namespace marquetry::audio

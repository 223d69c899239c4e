// Any byte string through import's conversion, read by libsndfile from memory
// as the product reads a file. Import must either refuse the bytes with one of
// its sentences, or return a record that keeps its promises (format code 1
// with 8, 16, 24 or 32 bits or code 3 with 32, fields consistent with one
// another, whole frames of audio), that the writer stores and the reader reads
// back unchanged, that importing the written file gives again, and that the
// same bytes always give.

#include "FuzzCheck.hpp"

#include "audio/AppError.hpp"
#include "audio/AudioImport.hpp"
#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace {

using namespace marquetry;
using fuzz::require;

// Small enough that a few kilobytes decoding to gigabytes stay quick.
constexpr std::uint64_t maxPayloadBytes = 4 << 20;

// Every sentence import refuses with, less libsndfile's reason in brackets.
constexpr std::array<std::string_view, 5> refusalOpenings{
    "Not an audio file libsndfile can read (", "Decoding failed (", "It has an unusable format (",
    "It holds no audio.", "Audio data longer than the limit of 4194304 bytes.",
};

bool isImportRefusal(std::string_view message) {
    return message.ends_with('.') && std::any_of(refusalOpenings.begin(), refusalOpenings.end(), [&](auto opening) {
               return message.starts_with(opening);
           });
}

bool isImportLayout(const audio::WavData& wav) {
    if (wav.audioFormat == audio::formatPcm)
        return wav.bitsPerSample == 8 || wav.bitsPerSample == 16 || wav.bitsPerSample == 24
               || wav.bitsPerSample == 32;
    return wav.audioFormat == audio::formatFloat && wav.bitsPerSample == 32;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> image(data, size);
    std::optional<audio::WavData> imported;
    try {
        imported = audio::importAudio(image, maxPayloadBytes);
    } catch (const audio::AppError& error) {
        require(error.kind() == audio::AppError::Kind::invalidWav, "refusals are invalidWav");
        require(isImportRefusal(error.what()), "a refusal is one of import's sentences:", error.what());
        return 0;
    }
    const audio::WavData& wav = *imported;
    require(isImportLayout(wav), "format code 1 with 8/16/24/32 bits or code 3 with 32");
    require(wav.channels >= 1 && wav.sampleRate >= 1, "channels and sample rate as the source's, never 0");
    require(wav.blockAlign == wav.channels * (wav.bitsPerSample / 8), "blockAlign is channels x sample bytes");
    require(wav.byteRate == std::uint64_t{wav.sampleRate} * wav.blockAlign, "byteRate is rate x blockAlign");
    require(!wav.pcmData.empty() && wav.pcmData.size() % wav.blockAlign == 0, "whole frames of audio");
    require(wav.pcmData.size() <= maxPayloadBytes, "the payload limit holds");

    const audio::Bytes written = audio::buildWavFileData(wav, wav.pcmData);
    require(audio::parseWav(written) == wav, "the reader reads back what import gave");
    require(audio::importAudio(written, maxPayloadBytes) == wav, "importing the written file changes nothing");
    require(audio::importAudio(image, maxPayloadBytes) == wav, "the same bytes give the same record");
    return 0;
}

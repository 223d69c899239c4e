#include "audio/WavReader.hpp"

#include "audio/AppError.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

namespace marquetry::audio {
namespace {

constexpr std::size_t minimumFileSize = 44;
constexpr std::uint32_t fmtFieldBytes = 16;

std::uint16_t readU16LE(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

std::uint32_t readU32LE(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8)
           | (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// Byte-for-byte: "FMT " or "Data" are other chunks.
bool hasTag(std::span<const std::uint8_t> image, std::int64_t at, const char (&tag)[5]) {
    return std::memcmp(image.data() + at, tag, 4) == 0;
}

[[noreturn]] void throwFileError(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

} // namespace

Bytes readWholeFile(const std::string& path) {
    struct Closer {
        void operator()(std::FILE* f) const { std::fclose(f); }
    };
    errno = 0;
    std::unique_ptr<std::FILE, Closer> file(std::fopen(path.c_str(), "rb"));
    if (!file)
        throwFileError(path);

    // The size is only a hint: the file may be a pipe, or change while we
    // read it, so the buffer still grows if more arrives. One spare byte lets
    // the read that finds the end happen without growing.
    std::error_code sizeError;
    const auto sizeHint = std::filesystem::file_size(path, sizeError);
    Bytes bytes(sizeError ? 0 : static_cast<std::size_t>(sizeHint) + 1);
    std::size_t used = 0;
    for (;;) {
        if (used == bytes.size())
            bytes.resize(std::max<std::size_t>(bytes.size() * 2, 64 * 1024));
        errno = 0;
        const std::size_t got = std::fread(bytes.data() + used, 1, bytes.size() - used, file.get());
        used += got;
        if (got == 0) {
            if (std::ferror(file.get()))
                throwFileError(path);
            break;
        }
    }
    bytes.resize(used);
    return bytes;
}

WavData loadWav(const std::string& path) {
    return parseWav(readWholeFile(path));
}

WavData parseWav(std::span<const std::uint8_t> image) {
    const auto fileLength = static_cast<std::int64_t>(image.size());
    if (image.size() < minimumFileSize)
        throw AppError::invalidWav("WAV file is too small.");
    if (!hasTag(image, 0, "RIFF") || !hasTag(image, 8, "WAVE"))
        throw AppError::invalidWav("Invalid WAV header.");

    const std::uint8_t* fmtFields = nullptr;
    std::optional<std::span<const std::uint8_t>> payload;

    // Signed 64-bit positions: a body size near 2^32 cannot wrap.
    std::int64_t position = 12;
    while (position + 8 <= fileLength) {
        const std::int64_t bodySize = readU32LE(image.data() + position + 4);
        const std::int64_t bodyStart = position + 8;
        const std::int64_t bodyEnd = bodyStart + bodySize;
        if (bodyEnd > fileLength)
            throw AppError::invalidWav("Corrupt chunk data.");

        if (hasTag(image, position, "fmt ")) {
            if (bodySize < fmtFieldBytes)
                throw AppError::invalidWav("Invalid fmt chunk.");
            fmtFields = image.data() + bodyStart;
        } else if (hasTag(image, position, "data")) {
            payload = image.subspan(static_cast<std::size_t>(bodyStart), static_cast<std::size_t>(bodySize));
        }
        position = bodyEnd + (bodySize % 2);
    }

    if (fmtFields == nullptr || !payload)
        throw AppError::invalidWav("Missing fmt or data chunks.");

    WavData wav;
    wav.audioFormat = readU16LE(fmtFields);
    wav.channels = readU16LE(fmtFields + 2);
    wav.sampleRate = readU32LE(fmtFields + 4);
    wav.byteRate = readU32LE(fmtFields + 8);
    wav.blockAlign = readU16LE(fmtFields + 12);
    wav.bitsPerSample = readU16LE(fmtFields + 14);

    if (wav.audioFormat != formatPcm && wav.audioFormat != formatFloat)
        throw AppError::invalidWav("Only PCM/float WAV files are supported.");
    if (wav.blockAlign == 0 || payload->size() % wav.blockAlign != 0)
        throw AppError::invalidWav("Invalid block alignment.");

    wav.pcmData.assign(payload->begin(), payload->end());
    return wav;
}

} // namespace marquetry::audio

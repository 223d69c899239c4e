#include "audio/WavReader.hpp"

#include "audio/AppError.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
bool hasTag(const std::uint8_t* at, const char (&tag)[5]) {
    return std::memcmp(at, tag, 4) == 0;
}

[[noreturn]] void throwFileError(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

// Entries a source folder may hold that must never be read as a file.
enum class Refusal { namedPipe = 1, characterDevice, blockDevice, socket, otherKind, tooLarge };

class RefusalCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "marquetry.source"; }
    std::string message(int code) const override {
        switch (static_cast<Refusal>(code)) {
        case Refusal::namedPipe: return "is a named pipe (FIFO), not a file";
        case Refusal::characterDevice: return "is a character device, not a file";
        case Refusal::blockDevice: return "is a block device, not a file";
        case Refusal::socket: return "is a socket, not a file";
        case Refusal::otherKind: return "is not a regular file";
        case Refusal::tooLarge: return "is larger than a WAV file can be (4 GiB)";
        }
        return "cannot be read as a file";
    }
};

// Same form as an operating system error: "<path>: <description>".
[[noreturn]] void refuse(Refusal refusal, const std::string& path) {
    static const RefusalCategory category;
    throw std::system_error(static_cast<int>(refusal), category, path);
}

// The RIFF header and the largest body its 32-bit size can declare.
constexpr std::uint64_t largestWavFile = 8 + std::uint64_t{0xFFFF'FFFF};

void requireReadableFile(const struct stat& info, const std::string& path) {
    const mode_t kind = info.st_mode & S_IFMT;
    if (kind == S_IFDIR) {
        errno = EISDIR;
        throwFileError(path);
    }
    if (kind == S_IFIFO)
        refuse(Refusal::namedPipe, path);
    if (kind == S_IFCHR)
        refuse(Refusal::characterDevice, path);
    if (kind == S_IFBLK)
        refuse(Refusal::blockDevice, path);
    if (kind == S_IFSOCK)
        refuse(Refusal::socket, path);
    if (kind != S_IFREG)
        refuse(Refusal::otherKind, path);
    if (static_cast<std::uint64_t>(info.st_size) > largestWavFile)
        refuse(Refusal::tooLarge, path);
}

// The format fields of an image and where its payload lies, after the
// reader's checks in their fixed order.
struct Layout {
    WavData format; // pcmData left empty
    std::size_t payloadOffset = 0;
    std::size_t payloadSize = 0;
};

// The checks run over an image of `fileLength` bytes that `bytesAt(at,
// count)` hands out piece by piece: only the RIFF header, the chunk headers
// and the fmt fields are asked for, each within the image, so a file's header
// can be checked without reading its payload. A pointer is used before the
// next call, which may reuse its buffer.
template <typename BytesAt>
Layout locateChunks(std::int64_t fileLength, BytesAt&& bytesAt) {
    if (fileLength < static_cast<std::int64_t>(minimumFileSize))
        throw AppError::invalidWav("WAV file is too small.");
    if (const std::uint8_t* riff = bytesAt(0, 12); !hasTag(riff, "RIFF") || !hasTag(riff + 8, "WAVE"))
        throw AppError::invalidWav("Invalid WAV header.");

    std::optional<std::array<std::uint8_t, fmtFieldBytes>> fmtFields;
    std::optional<Layout> layout;

    // Signed 64-bit positions: a body size near 2^32 cannot wrap.
    std::int64_t position = 12;
    while (position + 8 <= fileLength) {
        const std::uint8_t* chunk = bytesAt(position, 8);
        const std::int64_t bodySize = readU32LE(chunk + 4);
        const std::int64_t bodyStart = position + 8;
        const std::int64_t bodyEnd = bodyStart + bodySize;
        if (bodyEnd > fileLength)
            throw AppError::invalidWav("Corrupt chunk data.");

        if (hasTag(chunk, "fmt ")) {
            if (bodySize < fmtFieldBytes)
                throw AppError::invalidWav("Invalid fmt chunk.");
            const std::uint8_t* fields = bytesAt(bodyStart, fmtFieldBytes);
            fmtFields.emplace();
            std::copy_n(fields, fmtFieldBytes, fmtFields->begin());
        } else if (hasTag(chunk, "data")) {
            layout = Layout{{}, static_cast<std::size_t>(bodyStart), static_cast<std::size_t>(bodySize)};
        }
        position = bodyEnd + (bodySize % 2);
    }

    if (!fmtFields || !layout)
        throw AppError::invalidWav("Missing fmt or data chunks.");

    WavData& wav = layout->format;
    const std::uint8_t* fields = fmtFields->data();
    wav.audioFormat = readU16LE(fields);
    wav.channels = readU16LE(fields + 2);
    wav.sampleRate = readU32LE(fields + 4);
    wav.byteRate = readU32LE(fields + 8);
    wav.blockAlign = readU16LE(fields + 12);
    wav.bitsPerSample = readU16LE(fields + 14);

    if (wav.audioFormat != formatPcm && wav.audioFormat != formatFloat)
        throw AppError::invalidWav("Only PCM/float WAV files are supported.");
    if (wav.blockAlign == 0 || layout->payloadSize % wav.blockAlign != 0)
        throw AppError::invalidWav("Invalid block alignment.");
    return std::move(*layout);
}

Layout locateChunks(std::span<const std::uint8_t> image) {
    return locateChunks(static_cast<std::int64_t>(image.size()),
                        [image](std::int64_t at, std::size_t) { return image.data() + at; });
}

// An open file descriptor, closed when it goes.
struct OpenFile {
    int descriptor;
    explicit OpenFile(int fd) : descriptor(fd) {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() { ::close(descriptor); }
};

// Opens `path` for reading once it is known to be a regular file of a size a
// WAV file can have; `info` then describes what was opened. Looks before
// opening: opening a FIFO waits for a writer that may never come, and opening
// a device can do things of its own. The look is repeated on what was
// opened, in case the path changed in between.
int openRegularFile(const std::string& path, struct stat& info) {
    if (::stat(path.c_str(), &info) != 0)
        throwFileError(path);
    requireReadableFile(info, path);
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0)
        throwFileError(path);
    if (::fstat(descriptor, &info) != 0) {
        const int error = errno;
        ::close(descriptor);
        errno = error;
        throwFileError(path);
    }
    try {
        requireReadableFile(info, path);
    } catch (...) {
        ::close(descriptor);
        throw;
    }
    return descriptor;
}

// Thrown when a file turns out shorter than it was when opened.
struct FileShrank {};

// Pieces of an open file, read a block at a time so that a run of small
// chunks costs one read, not one per chunk.
class BlockReader {
public:
    BlockReader(int descriptor, const std::string& path) : descriptor_(descriptor), path_(path) {}

    const std::uint8_t* bytesAt(std::int64_t at, std::size_t count) {
        if (at >= start_ && at + static_cast<std::int64_t>(count) <= start_ + static_cast<std::int64_t>(used_))
            return block_.data() + (at - start_);
        block_.resize(std::max(count, blockSize));
        start_ = at;
        used_ = 0;
        while (used_ < block_.size()) {
            const ::ssize_t got = ::pread(descriptor_, block_.data() + used_, block_.size() - used_,
                                          static_cast<off_t>(at + static_cast<std::int64_t>(used_)));
            if (got < 0 && errno == EINTR)
                continue;
            if (got < 0)
                throwFileError(path_);
            if (got == 0)
                break;
            used_ += static_cast<std::size_t>(got);
        }
        if (used_ < count)
            throw FileShrank{};
        return block_.data();
    }

private:
    static constexpr std::size_t blockSize = 64 * 1024;
    int descriptor_;
    const std::string& path_;
    Bytes block_;
    std::int64_t start_ = 0;
    std::size_t used_ = 0;
};

} // namespace

Bytes readWholeFile(const std::string& path) {
    struct stat info {};
    const OpenFile file(openRegularFile(path, info));
    const int descriptor = file.descriptor;

    // The size is only a hint, since the file may change while we read it,
    // so the buffer still grows if more arrives. One spare byte lets the read
    // that finds the end happen without growing.
    Bytes bytes(static_cast<std::size_t>(info.st_size) + 1);
    std::size_t used = 0;
    for (;;) {
        if (used == bytes.size()) {
            if (used > largestWavFile)
                refuse(Refusal::tooLarge, path);
            bytes.resize(static_cast<std::size_t>(
                std::min<std::uint64_t>(std::max<std::size_t>(2 * used, 64 * 1024), largestWavFile + 1)));
        }
        const ::ssize_t got = ::read(descriptor, bytes.data() + used, bytes.size() - used);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throwFileError(path);
        if (got == 0)
            break;
        used += static_cast<std::size_t>(got);
    }
    bytes.resize(used);
    return bytes;
}

WavHeader readWavHeader(const std::string& path) {
    Layout layout;
    try {
        struct stat info {};
        const OpenFile file(openRegularFile(path, info));
        BlockReader reader(file.descriptor, path);
        layout = locateChunks(static_cast<std::int64_t>(info.st_size),
                              [&reader](std::int64_t at, std::size_t count) { return reader.bytesAt(at, count); });
    } catch (const FileShrank&) {
        // Cut short while we read it: what a whole read finds now is the answer.
        layout = locateChunks(readWholeFile(path));
    }
    return {std::move(layout.format), layout.payloadSize};
}

WavData loadWav(const std::string& path) {
    return parseWavInPlace(readWholeFile(path));
}

WavData parseWavInPlace(Bytes image) {
    Layout layout = locateChunks(image);
    // The payload moves to the front of the image, which becomes the record's
    // buffer: a source costs its own size once, never twice. Only when the
    // other chunks outweigh the payload is it copied out, so the record does
    // not keep mostly dead memory alive for the whole session.
    std::memmove(image.data(), image.data() + layout.payloadOffset, layout.payloadSize);
    image.resize(layout.payloadSize);
    if (image.capacity() > 2 * image.size())
        image.shrink_to_fit();
    layout.format.pcmData = std::move(image);
    return std::move(layout.format);
}

WavData parseWav(std::span<const std::uint8_t> image) {
    Layout layout = locateChunks(image);
    const auto payload = image.subspan(layout.payloadOffset, layout.payloadSize);
    layout.format.pcmData.assign(payload.begin(), payload.end());
    return std::move(layout.format);
}

} // namespace marquetry::audio

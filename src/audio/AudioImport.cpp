#include "audio/AudioImport.hpp"

#include "audio/AppError.hpp"

#include <sndfile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <system_error>
#include <vector>

// Every refusal is one sentence:
//   "Not an audio file libsndfile can read (<libsndfile's reason>)."
//   "Decoding failed (<libsndfile's reason>)."
//   "It has an unusable format (<n> channels at <r> Hz)."
//   "It holds no audio."
//   "Audio data too long for a WAV file (more than 4 GB)."  (the writer's own)
//   "Audio data longer than the limit of <n> bytes."         (a smaller limit)
//   "It is a folder, not a file." / "It is a named pipe (FIFO), not a regular
//   file." / "It is a device, not a regular file." / "It is a socket, not a
//   regular file." / "It is not a regular file."

namespace marquetry::audio {
namespace {

// How decoded samples are stored.
enum class Layout { unsigned8, signed16, signed24, signed32, float32, scaled16 };

Layout layoutFor(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_DPCM_8: return Layout::unsigned8;
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_DPCM_16:
    case SF_FORMAT_DWVW_12:
    case SF_FORMAT_DWVW_16:
    case SF_FORMAT_ALAC_16: return Layout::signed16;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_DWVW_24:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24: return Layout::signed24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_DWVW_N:
    case SF_FORMAT_ALAC_32: return Layout::signed32;
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE: return Layout::float32;
    default: return Layout::scaled16;
    }
}

std::uint16_t bytesPerSample(Layout layout) {
    switch (layout) {
    case Layout::unsigned8: return 1;
    case Layout::signed16:
    case Layout::scaled16: return 2;
    case Layout::signed24: return 3;
    case Layout::signed32:
    case Layout::float32: return 4;
    }
    return 0;
}

bool readsFloats(Layout layout) {
    return layout == Layout::float32 || layout == Layout::scaled16;
}

// libsndfile's sentences end with a period, ours wrap them in brackets.
std::string reasonText(const char* text) {
    std::string reason = text != nullptr ? text : "";
    while (!reason.empty() && (reason.back() == '.' || reason.back() == ' ' || reason.back() == '\n'))
        reason.pop_back();
    return reason.empty() ? "no reason given" : reason;
}

// libsndfile's SFE_BAD_FILE, "File does not exist or is not a regular file
// (possibly a pipe?)", which it also gives when a decoder fails to open a
// stream (a cut MP3, for one).
constexpr int libsndfileBadFile = 7;

[[noreturn]] void refuseUnreadable() {
    // Both callers hand libsndfile a regular file or bytes in memory, so the
    // stream itself is at fault.
    const int error = sf_error(nullptr);
    const char* reason = error == libsndfileBadFile ? sf_error_number(SF_ERR_MALFORMED_FILE) : sf_strerror(nullptr);
    throw AppError::invalidWav("Not an audio file libsndfile can read (" + reasonText(reason) + ").");
}

[[noreturn]] void refuseTooLong(std::uint64_t maxPayloadBytes) {
    if (maxPayloadBytes >= maxWavPayloadBytes)
        throw AppError::invalidWav(payloadTooLongMessage);
    throw AppError::invalidWav("Audio data longer than the limit of " + std::to_string(maxPayloadBytes) + " bytes.");
}

void putLE(std::uint8_t* out, std::uint32_t value, int byteCount) {
    for (int i = 0; i < byteCount; ++i)
        out[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// libsndfile hands integers left-justified in 32 bits, whatever their width,
// so the width's top bits are the sample itself.
void packIntegers(Layout layout, std::span<const int> samples, std::uint8_t* out) {
    const int width = bytesPerSample(layout);
    for (const int sample : samples) {
        if (layout == Layout::unsigned8)
            *out = static_cast<std::uint8_t>((sample >> 24) + 128);
        else
            putLE(out, static_cast<std::uint32_t>(sample) >> (32 - 8 * width), width);
        out += width;
    }
}

void packFloats(Layout layout, std::span<const float> samples, std::uint8_t* out) {
    for (const float sample : samples) {
        if (layout == Layout::float32) {
            std::uint32_t bits;
            std::memcpy(&bits, &sample, sizeof bits);
            putLE(out, bits, 4);
            out += 4;
        } else {
            const float scaled = std::isnan(sample) ? 0.0f : std::clamp(sample * 32768.0f, -32768.0f, 32767.0f);
            putLE(out, static_cast<std::uint32_t>(static_cast<std::int32_t>(std::nearbyint(scaled))), 2);
            out += 2;
        }
    }
}

// Reads every frame of an open file into the import layout.
WavData convert(SNDFILE* file, const SF_INFO& info, std::uint64_t maxPayloadBytes) {
    const Layout layout = layoutFor(info.format);
    const std::uint64_t blockAlign = static_cast<std::uint64_t>(info.channels) * bytesPerSample(layout);
    const std::uint64_t byteRate = static_cast<std::uint64_t>(info.samplerate) * blockAlign;
    if (info.channels < 1 || info.samplerate < 1 || blockAlign > 0xFFFF || byteRate > 0xFFFF'FFFF)
        throw AppError::invalidWav("It has an unusable format (" + std::to_string(info.channels) + " channels at "
                                   + std::to_string(info.samplerate) + " Hz).");
    // Refused before a sample is read when the header already tells; an
    // unknown length (SF_COUNT_MAX) is bounded while reading.
    if (info.frames != SF_COUNT_MAX && info.frames > 0
        && static_cast<std::uint64_t>(info.frames) > maxPayloadBytes / blockAlign)
        refuseTooLong(maxPayloadBytes);

    WavData wav;
    wav.audioFormat = layout == Layout::float32 ? formatFloat : formatPcm;
    wav.channels = static_cast<std::uint16_t>(info.channels);
    wav.sampleRate = static_cast<std::uint32_t>(info.samplerate);
    wav.byteRate = static_cast<std::uint32_t>(byteRate);
    wav.blockAlign = static_cast<std::uint16_t>(blockAlign);
    wav.bitsPerSample = static_cast<std::uint16_t>(8 * bytesPerSample(layout));

    // Decoders scale to [-1, 1) when asked; the lossy layout relies on it.
    sf_command(file, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
    const sf_count_t blockFrames = std::max(1, 65536 / info.channels);
    const auto blockSamples = static_cast<std::size_t>(blockFrames * info.channels);
    std::vector<int> integers(readsFloats(layout) ? 0 : blockSamples);
    std::vector<float> floats(readsFloats(layout) ? blockSamples : 0);
    for (;;) {
        const sf_count_t got = readsFloats(layout) ? sf_readf_float(file, floats.data(), blockFrames)
                                                   : sf_readf_int(file, integers.data(), blockFrames);
        if (got <= 0)
            break;
        const std::size_t start = wav.pcmData.size();
        const auto bytes = static_cast<std::uint64_t>(got) * blockAlign;
        if (start + bytes > maxPayloadBytes)
            refuseTooLong(maxPayloadBytes);
        wav.pcmData.resize(start + bytes);
        const auto samples = static_cast<std::size_t>(got * info.channels);
        if (readsFloats(layout))
            packFloats(layout, std::span(floats).first(samples), wav.pcmData.data() + start);
        else
            packIntegers(layout, std::span(integers).first(samples), wav.pcmData.data() + start);
    }
    if (sf_error(file) != SF_ERR_NO_ERROR)
        throw AppError::invalidWav("Decoding failed (" + reasonText(sf_strerror(file)) + ").");
    if (wav.pcmData.empty())
        throw AppError::invalidWav("It holds no audio.");
    return wav;
}

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

// libsndfile's virtual I/O over a byte span.
struct MemoryFile {
    std::span<const std::uint8_t> bytes;
    sf_count_t position = 0;

    static MemoryFile& of(void* user) { return *static_cast<MemoryFile*>(user); }
    sf_count_t size() const { return static_cast<sf_count_t>(bytes.size()); }
};

SF_VIRTUAL_IO memoryIo() {
    SF_VIRTUAL_IO io{};
    io.get_filelen = [](void* user) { return MemoryFile::of(user).size(); };
    io.seek = [](sf_count_t offset, int whence, void* user) -> sf_count_t {
        MemoryFile& file = MemoryFile::of(user);
        const sf_count_t base = whence == SEEK_CUR ? file.position : whence == SEEK_END ? file.size() : 0;
        // Offsets come from the file's own fields: keep the sum from wrapping.
        if ((offset > 0 && base > SF_COUNT_MAX - offset) || base + offset < 0)
            return -1;
        file.position = base + offset;
        return file.position;
    };
    io.read = [](void* destination, sf_count_t count, void* user) -> sf_count_t {
        MemoryFile& file = MemoryFile::of(user);
        const sf_count_t available = std::max<sf_count_t>(0, file.size() - file.position);
        const sf_count_t n = std::clamp<sf_count_t>(count, 0, available);
        if (n > 0)
            std::memcpy(destination, file.bytes.data() + file.position, static_cast<std::size_t>(n));
        file.position += n;
        return n;
    };
    io.write = [](const void*, sf_count_t, void*) -> sf_count_t { return 0; };
    io.tell = [](void* user) { return MemoryFile::of(user).position; };
    return io;
}

const char* notRegularFileMessage(mode_t mode) {
    if (S_ISDIR(mode))
        return "It is a folder, not a file.";
    if (S_ISFIFO(mode))
        return "It is a named pipe (FIFO), not a regular file.";
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return "It is a device, not a regular file.";
    if (S_ISSOCK(mode))
        return "It is a socket, not a regular file.";
    return "It is not a regular file.";
}

[[noreturn]] void throwFileError(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

struct Descriptor {
    int fd;
    ~Descriptor() { ::close(fd); }
};

} // namespace

WavData importAudio(const std::string& path) {
    // Opening a FIFO or a device may block or act on it: look first.
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        throwFileError(path);
    if (!S_ISREG(status.st_mode))
        throw AppError::invalidWav(notRegularFileMessage(status.st_mode));
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        throwFileError(path);
    const Descriptor descriptor{fd};
    // The name may have been given to a FIFO since it was looked at.
    if (::fstat(fd, &status) != 0)
        throwFileError(path);
    if (!S_ISREG(status.st_mode))
        throw AppError::invalidWav(notRegularFileMessage(status.st_mode));

    SF_INFO info{};
    const SndfileHandle file(sf_open_fd(fd, SFM_READ, &info, SF_FALSE));
    if (!file)
        refuseUnreadable();
    return convert(file.get(), info, maxWavPayloadBytes);
}

WavData importAudio(std::span<const std::uint8_t> fileImage, std::uint64_t maxPayloadBytes) {
    MemoryFile memory{fileImage};
    SF_VIRTUAL_IO io = memoryIo();
    SF_INFO info{};
    const SndfileHandle file(sf_open_virtual(&io, SFM_READ, &info, &memory));
    if (!file)
        refuseUnreadable();
    return convert(file.get(), info, maxPayloadBytes);
}

} // namespace marquetry::audio

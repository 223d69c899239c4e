#pragma once

// A sample pack's worth of loops for the benchmarks that scan and list a
// folder: many small WAV files, each the first 100 frames of a real loop.

#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"

#include <cstdio>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>

namespace marquetry::bench {

/// Writes `count` loops named "Loop 00000.wav" onwards into `folder`, in a
/// scrambled order so that a listing must sort them; each is the first 100
/// frames of the 16-bit stereo loop at `loopPath`. Throws when a file cannot
/// be written.
inline void writeSmallLoops(const std::filesystem::path& folder, int count, const std::string& loopPath) {
    const audio::WavData loop = audio::loadWav(loopPath);
    const audio::Bytes image = audio::buildWavFileData(loop, std::span(loop.pcmData).first(400));
    for (int i = 0; i < count; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "Loop %05d.wav", (i * 7919) % count);
        std::FILE* file = std::fopen((folder / name).c_str(), "wb");
        const bool written = file != nullptr && std::fwrite(image.data(), 1, image.size(), file) == image.size();
        if (file != nullptr)
            std::fclose(file);
        if (!written)
            throw std::runtime_error("cannot write the loop folder");
    }
}

} // namespace marquetry::bench

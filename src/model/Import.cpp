#include "model/Import.hpp"

#include "audio/AppError.hpp"
#include "audio/AudioImport.hpp"
#include "audio/WavWriter.hpp"
#include "model/FileSystem.hpp"

#include <filesystem>
#include <new>
#include <system_error>

namespace marquetry::model {
namespace {

namespace fs = std::filesystem;

// The file name without its last extension; a leading dot is part of the name.
std::string stemOf(const std::string& path) {
    const std::string name = fileName(path);
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// The decoded record goes before the file is written: only the image stays.
audio::Bytes wavImageOf(const std::string& source) {
    const audio::WavData wav = audio::importAudio(source);
    return audio::buildWavFileData(wav, wav.pcmData);
}

// Writes `image` under the first free name of stem.wav, stem-2.wav, ...; a
// name taken while the image was being written moves on to the next.
std::string writeUnderFreeName(const std::string& folder, const std::string& stem, const audio::Bytes& image) {
    for (std::uint64_t n = 1;; ++n) {
        std::string name = stem;
        if (n > 1)
            name.append("-").append(std::to_string(n));
        name.append(".wav");
        const std::string path = pathText(pathFromText(folder) / pathFromText(name));
        std::error_code error;
        // A dangling symlink holds its name too.
        const fs::file_status status = fs::symlink_status(pathFromText(path), error);
        if (status.type() != fs::file_type::not_found) {
            if (error)
                throw std::system_error(error, path);
            continue;
        }
        if (writeNewFileAtomically(path, image))
            return path;
    }
}

} // namespace

std::string importAudioFile(const std::string& source, const std::string& folder) {
    const auto refused = [&source](const std::string& reason) { return ImportError(source + ": " + reason); };
    audio::Bytes image;
    try {
        image = wavImageOf(source);
    } catch (const audio::AppError& error) {
        throw refused(error.what());
    } catch (const std::system_error& error) {
        throw refused(error.code().message() + ".");
    } catch (const std::bad_alloc&) {
        throw refused("Not enough memory to import it.");
    } catch (...) {
        throw refused("It could not be converted.");
    }
    try {
        return writeUnderFreeName(folder, stemOf(source), image);
    } catch (const std::system_error& error) {
        // what() is the path written and the operating system's description.
        throw refused("Cannot write " + std::string(error.what()) + ".");
    } catch (...) {
        throw refused("It could not be written.");
    }
}

} // namespace marquetry::model

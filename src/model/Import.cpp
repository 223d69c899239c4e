#include "model/Import.hpp"

#include "audio/AppError.hpp"
#include "audio/AudioImport.hpp"
#include "audio/WavWriter.hpp"
#include "model/FileSystem.hpp"

#include <new>
#include <system_error>

namespace marquetry::model {
namespace {

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
        return writeUnderFreeName(folder, stemOf(source), ".wav", image);
    } catch (const std::system_error& error) {
        // what() is the path written and the operating system's description.
        throw refused("Cannot write " + std::string(error.what()) + ".");
    } catch (...) {
        throw refused("It could not be written.");
    }
}

} // namespace marquetry::model

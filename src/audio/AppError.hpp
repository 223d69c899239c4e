#pragma once

#include <stdexcept>
#include <string_view>
#include <string>

namespace marquetry::audio {

/// The system's own failure: the audio cannot be used (`invalidWav`), or a
/// generation run failed as a whole (`io`). The description shown to the user
/// is the message itself, with no prefix. Failures of the operating system's
/// file operations are not AppErrors; they keep their own descriptions.
class AppError : public std::runtime_error {
public:
    enum class Kind { invalidWav, io };

    static AppError invalidWav(std::string message) { return {Kind::invalidWav, std::move(message)}; }
    static AppError io(std::string message) { return {Kind::io, std::move(message)}; }

    Kind kind() const noexcept { return kind_; }

    bool operator==(const AppError& other) const {
        return kind_ == other.kind_ && std::string_view(what()) == other.what();
    }

private:
    AppError(Kind kind, std::string message) : std::runtime_error(std::move(message)), kind_(kind) {}

    Kind kind_;
};

} // namespace marquetry::audio

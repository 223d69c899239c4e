#include "model/SystemServices.hpp"

#include <chrono>
#include <cstdlib>
#include <stdexcept>

#if defined(_WIN32)
#include <windows.h>
#include <bcrypt.h>
#pragma comment(lib, "bcrypt.lib")
#elif defined(__APPLE__)
#include <stdlib.h>
#else
#include <cerrno>
#include <sys/random.h>
#endif

namespace marquetry::model {

std::int64_t systemUnixSeconds() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

playback::Uuid osRandomUuid() {
    playback::Uuid id{};
#if defined(_WIN32)
    if (BCryptGenRandom(nullptr, id.data(), static_cast<ULONG>(id.size()), BCRYPT_USE_SYSTEM_PREFERRED_RNG) != 0)
        throw std::runtime_error("The system's random source is unavailable.");
#elif defined(__APPLE__)
    arc4random_buf(id.data(), id.size());
#else
    std::size_t filled = 0;
    while (filled < id.size()) {
        const ssize_t got = getrandom(id.data() + filled, id.size() - filled, 0);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            throw std::runtime_error("The system's random source is unavailable.");
        }
        filled += static_cast<std::size_t>(got);
    }
#endif
    id[6] = static_cast<std::uint8_t>((id[6] & 0x0F) | 0x40); // version 4
    id[8] = static_cast<std::uint8_t>((id[8] & 0x3F) | 0x80); // RFC 4122 variant
    return id;
}

std::string systemHomeFolder() {
#if defined(_WIN32)
    const char* home = std::getenv("USERPROFILE");
#else
    const char* home = std::getenv("HOME");
#endif
    return home != nullptr ? home : "";
}

} // namespace marquetry::model

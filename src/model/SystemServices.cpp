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

#if !defined(_WIN32)
#include <sys/resource.h>
#include <unistd.h>
#endif

#if defined(__linux__)
#include <fstream>
#include <pthread.h>
#include <sched.h>
#include <string>
#elif defined(__APPLE__)
#include <pthread.h>
#include <sys/qos.h>
#endif

#include <algorithm>
#include <limits>

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

std::uint64_t availableMemoryBytes() {
    std::uint64_t available = std::numeric_limits<std::uint64_t>::max();
#if defined(_WIN32)
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    if (GlobalMemoryStatusEx(&status))
        available = std::min<std::uint64_t>(status.ullAvailPhys + status.ullAvailPageFile / 2, status.ullAvailVirtual);
#else
#if defined(__linux__)
    // MemAvailable counts what can be had without swapping; the sizes this
    // process already holds come from statm, in pages.
    std::ifstream meminfo("/proc/meminfo");
    for (std::string key; meminfo >> key;) {
        std::uint64_t kib = 0;
        if (key == "MemAvailable:" && meminfo >> kib) {
            available = kib * 1024;
            break;
        }
        meminfo.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    std::uint64_t virtualPages = 0;
    std::uint64_t residentPages = 0;
    std::uint64_t sharedPages = 0;
    std::uint64_t textPages = 0;
    std::uint64_t libraryPages = 0;
    std::uint64_t dataPages = 0;
    std::ifstream("/proc/self/statm") >> virtualPages >> residentPages >> sharedPages >> textPages >> libraryPages
        >> dataPages;
    const auto pageSize = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    const std::pair<int, std::uint64_t> limits[] = {{RLIMIT_AS, virtualPages * pageSize},
                                                     {RLIMIT_DATA, dataPages * pageSize}};
#else
    const std::pair<int, std::uint64_t> limits[] = {{RLIMIT_AS, 0}, {RLIMIT_DATA, 0}};
#endif
    for (const auto& [resource, used] : limits) {
        rlimit limit{};
        if (::getrlimit(resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
            available = std::min<std::uint64_t>(available, limit.rlim_cur > used ? limit.rlim_cur - used : 0);
    }
#endif
    return available;
}

void runThisThreadWhenIdle() {
#if defined(__linux__)
    const sched_param none{};
    ::pthread_setschedparam(::pthread_self(), SCHED_IDLE, &none);
#elif defined(__APPLE__)
    ::pthread_set_qos_class_self_np(QOS_CLASS_BACKGROUND, 0);
#elif defined(_WIN32)
    ::SetThreadPriority(::GetCurrentThread(), THREAD_PRIORITY_IDLE);
#endif
}

} // namespace marquetry::model

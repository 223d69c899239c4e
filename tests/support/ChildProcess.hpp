#pragma once

// Work that might hang, or that runs under a resource limit, goes to a forked
// child: a limit never touches the test process, and a hang ends in a
// failure after a few seconds instead of stalling the suite.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace marquetry::audio::test {

/// Bytes of address space the calling process maps now.
inline rlim_t addressSpaceInUse() {
    unsigned long pages = 0;
    if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%lu", &pages) != 1)
            pages = 0;
        std::fclose(statm);
    }
    return static_cast<rlim_t>(pages) * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE));
}

/// Runs `work` in a forked child under `limits` (resource, value) and a time
/// limit; returns what `work` returned, "threw: " and the exception's text,
/// or how the child ended. Under AddressSanitizer an address-space limit is
/// left out, since its shadow memory alone exceeds any sensible one.
inline std::string inChildProcess(const std::function<std::string()>& work,
                                  const std::vector<std::pair<int, rlim_t>>& limits = {}, unsigned seconds = 10) {
    int channel[2];
    if (::pipe(channel) != 0)
        return "no pipe";
    const pid_t child = ::fork();
    if (child < 0)
        return "no fork";
    if (child == 0) {
        ::close(channel[0]);
        ::alarm(seconds);
        for (const auto& [resource, value] : limits) {
#if defined(__SANITIZE_ADDRESS__)
            if (resource == RLIMIT_AS)
                continue;
#endif
            const rlimit limit{value, value};
            ::setrlimit(resource, &limit);
        }
        std::string result;
        try {
            result = work();
        } catch (const std::exception& error) {
            result = std::string("threw: ") + error.what();
        }
        // A blocking write to a pipe returns once every byte is in.
        ::_exit(::write(channel[1], result.data(), result.size()) == static_cast<ssize_t>(result.size()) ? 0 : 1);
    }
    ::close(channel[1]);
    std::string result;
    char buffer[4096];
    for (ssize_t n; (n = ::read(channel[0], buffer, sizeof buffer)) > 0;)
        result.append(buffer, static_cast<std::size_t>(n));
    ::close(channel[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
        return WTERMSIG(status) == SIGALRM ? "timed out" : "killed by signal " + std::to_string(WTERMSIG(status));
    return result;
}

} // namespace marquetry::audio::test

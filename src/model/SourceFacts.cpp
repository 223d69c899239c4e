#include "model/SourceFacts.hpp"

#include "audio/FormatConversion.hpp"
#include "model/ErrorText.hpp"

#include <cmath>
#include <cstdio>
#include <exception>

namespace marquetry::model {

SourceFacts readSourceFacts(const std::string& path) {
    try {
        return {audio::readWavHeader(path), std::nullopt};
    } catch (const std::exception& error) {
        return {std::nullopt, describe(error)};
    }
}

std::string factsText(const SourceFacts& facts) {
    if (!facts.header)
        return {};
    const audio::WavData& format = facts.header->format;
    std::string text;
    if (format.sampleRate > 0) {
        const double seconds = static_cast<double>(audio::frameCount(facts.header->payloadBytes, format.blockAlign))
                               / format.sampleRate;
        char length[32];
        // Rounded once, so 59.96 s reads 1:00 rather than 60.0 s.
        if (const double tenths = std::round(seconds * 10); tenths < 600) {
            std::snprintf(length, sizeof length, "%.1f s", tenths / 10);
        } else {
            const auto whole = static_cast<long long>(std::round(seconds));
            std::snprintf(length, sizeof length, "%lld:%02lld", whole / 60, whole % 60);
        }
        text = std::string(length) + " \u00b7 ";
    }
    return text + audio::describeFormat(format);
}

} // namespace marquetry::model

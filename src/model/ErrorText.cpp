#include "model/ErrorText.hpp"

#include <cstdio>
#include <new>
#include <stdexcept>

namespace marquetry::model {

std::string describe(const std::exception& error) {
    if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr || dynamic_cast<const std::length_error*>(&error))
        return "There is not enough memory for this. Lower Variations or Slices, or use a shorter loop.";
    return error.what();
}

std::string readableSize(double bytes) {
    char text[48];
    if (bytes < 1e6)
        std::snprintf(text, sizeof text, "%.0f bytes", bytes);
    else if (bytes < 1e9)
        std::snprintf(text, sizeof text, "%.1f MB", bytes / 1e6);
    else
        std::snprintf(text, sizeof text, "%.1f GB", bytes / 1e9);
    return text;
}

std::string asciiLowercase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

} // namespace marquetry::model

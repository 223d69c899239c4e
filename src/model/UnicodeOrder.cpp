#include "model/UnicodeOrder.hpp"

#include "model/FileSystem.hpp"

#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <numeric>

namespace marquetry::model {
namespace {

// UTF-8 compares byte by byte in code point order, and std::string compares
// its bytes as unsigned, so a normalized UTF-8 key sorts as required.
std::string normalizedKey(const std::string& text, bool lowercase) {
    // ASCII is its own canonical form and lowercases byte by byte; most file
    // names are ASCII, and a folder of thousands then sorts without ICU.
    if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        if (!lowercase)
            return text;
        std::string key = text;
        for (char& c : key)
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c - 'A' + 'a');
        return key;
    }
    icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    if (lowercase)
        unicode.toLower(icu::Locale::getRoot());
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
    if (U_SUCCESS(status)) {
        icu::UnicodeString normalized = nfc->normalize(unicode, status);
        if (U_SUCCESS(status))
            unicode = std::move(normalized);
    }
    std::string key;
    unicode.toUTF8String(key);
    return key;
}

void sortByKey(std::vector<std::string>& paths, bool lowercase, bool byFileName) {
    std::vector<std::string> keys;
    keys.reserve(paths.size());
    for (const std::string& path : paths)
        keys.push_back(normalizedKey(byFileName ? fileName(path) : path, lowercase));
    // Sorting positions rather than (key, path) pairs moves no strings around.
    std::vector<std::size_t> order(paths.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    std::vector<std::string> sorted;
    sorted.reserve(paths.size());
    for (const std::size_t i : order)
        sorted.push_back(std::move(paths[i]));
    paths = std::move(sorted);
}

} // namespace

void sortByFileNameIgnoringCase(std::vector<std::string>& paths) {
    sortByKey(paths, true, true);
}

void sortByPath(std::vector<std::string>& paths) {
    sortByKey(paths, false, false);
}

} // namespace marquetry::model

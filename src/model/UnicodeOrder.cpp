#include "model/UnicodeOrder.hpp"

#include "model/FileSystem.hpp"

#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <utility>

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
    std::vector<std::pair<std::string, std::string>> keyed;
    keyed.reserve(paths.size());
    for (std::string& path : paths)
        keyed.emplace_back(normalizedKey(byFileName ? fileName(path) : path, lowercase), std::move(path));
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (std::size_t i = 0; i < paths.size(); ++i)
        paths[i] = std::move(keyed[i].second);
}

} // namespace

void sortByFileNameIgnoringCase(std::vector<std::string>& paths) {
    sortByKey(paths, true, true);
}

void sortByPath(std::vector<std::string>& paths) {
    sortByKey(paths, false, false);
}

} // namespace marquetry::model

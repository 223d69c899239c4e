#include "model/RunSettings.hpp"

#include "chop/JoinFades.hpp"

#include <charconv>
#include <functional>

namespace marquetry::model {
namespace {

// One remembered option: its key, and how its value is written as text and
// read back (false when the text is not a value of it).
struct StoredOption {
    const char* key;
    std::function<std::string(const RunSettings&)> text;
    std::function<bool(RunSettings&, const std::string&)> read;
};

// An on/off option; `field` returns the flag of the settings it is given.
template <typename Field>
StoredOption flagOption(const char* key, Field field) {
    return {key, [field](const RunSettings& s) { return std::string(field(s) ? "true" : "false"); },
            [field](RunSettings& s, const std::string& text) {
                if (text != "true" && text != "false")
                    return false;
                field(s) = text == "true";
                return true;
            }};
}

const std::vector<StoredOption>& storedOptions() {
    static const std::vector<StoredOption> options = {
        flagOption("marquetry.option.exportManifest", [](auto& s) -> auto& { return s.exportOptions.manifest; }),
        {"marquetry.option.joinFadeMs", [](const RunSettings& s) { return std::to_string(s.plan.joinFadeMs); },
         [](RunSettings& s, const std::string& text) {
             std::int64_t value = 0;
             const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
             if (text.empty() || error != std::errc() || end != text.data() + text.size() || value < 0
                 || value > chop::maxJoinFadeMs)
                 return false;
             s.plan.joinFadeMs = value;
             return true;
         }},
        {"marquetry.option.fit", [](const RunSettings& s) { return std::string(chop::fitModeName(s.plan.fit)); },
         [](RunSettings& s, const std::string& text) {
             const auto mode = chop::parseFitMode(text);
             if (mode)
                 s.plan.fit = *mode;
             return mode.has_value();
         }},
        flagOption("marquetry.option.matchFormats", [](auto& s) -> auto& { return s.matchFormats; }),
        flagOption("marquetry.option.matchTempo", [](auto& s) -> auto& { return s.matchTempo; }),
        flagOption("marquetry.option.keepExisting", [](auto& s) -> auto& { return s.exportOptions.keepExisting; }),
        flagOption("marquetry.option.exportTags", [](auto& s) -> auto& { return s.exportOptions.tags; }),
        flagOption("marquetry.option.exportKit", [](auto& s) -> auto& { return s.exportOptions.kit; }),
    };
    return options;
}

} // namespace

std::map<std::string, double> tempoOverridesRead(const RunSettings& settings, const std::map<std::string, double>& all) {
    std::map<std::string, double> read;
    if (!settings.matchTempo)
        return read;
    for (const auto& [path, bpm] : all)
        if (path == settings.selectedPath || (settings.mashupMode && settings.checkedPaths.contains(path)))
            read.emplace(path, bpm);
    return read;
}

RunSettings restoreOptions(const SettingsStore& store, RunSettings settings) {
    for (const StoredOption& option : storedOptions()) {
        const auto text = store.string(option.key);
        RunSettings read = settings;
        if (text && option.read(read, *text))
            settings = std::move(read);
    }
    return settings;
}

void storeOptions(SettingsStore& store, const RunSettings& before, const RunSettings& after) {
    for (const StoredOption& option : storedOptions())
        if (const std::string text = option.text(after); text != option.text(before))
            store.setString(option.key, text);
}

std::vector<std::string> optionKeys() {
    std::vector<std::string> keys;
    for (const StoredOption& option : storedOptions())
        keys.emplace_back(option.key);
    return keys;
}

} // namespace marquetry::model

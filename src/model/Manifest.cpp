#include "model/Manifest.hpp"

#include "chop/BarGridFit.hpp"
#include "chop/JoinFades.hpp"
#include "chop/TempoEstimate.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace marquetry::model {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* formatName = "marquetry-manifest";
constexpr std::int64_t formatVersion = 1;

Json placementJson(const chop::Placement& placement, const RunRecord& run, std::int64_t blockAlign) {
    const chop::PoolSlice& slice = run.pool.at(static_cast<std::size_t>(placement.slice));
    return {
        {"slice", placement.slice},
        {"source", slice.source},
        {"sourceStart", slice.start},
        {"sourceFrames", slice.frames},
        {"start", placement.byteOffset / blockAlign},
        {"frames", placement.byteCount / blockAlign},
        {"reversed", placement.treatment.reversed},
        {"stutter", placement.treatment.stutterRepeats},
        {"semitones", placement.treatment.semitones.value_or(0.0)},
    };
}

// Reading: every accessor names the key it wanted, so a broken manifest
// says where it is broken.
[[noreturn]] void refuse(const std::string& what) {
    throw ManifestError("The manifest is not usable: " + what + ".");
}

const Json& member(const Json& object, const char* key, const std::string& where) {
    if (!object.is_object() || !object.contains(key))
        refuse(where + " has no \"" + key + "\"");
    return object.at(key);
}

std::string text(const Json& object, const char* key, const std::string& where) {
    const Json& value = member(object, key, where);
    if (!value.is_string())
        refuse("\"" + std::string(key) + "\" in " + where + " is not text");
    return value.get<std::string>();
}

std::int64_t integer(const Json& object, const char* key, const std::string& where, std::int64_t lowest,
                     std::int64_t highest) {
    const Json& value = member(object, key, where);
    if (!value.is_number_integer())
        refuse("\"" + std::string(key) + "\" in " + where + " is not a whole number");
    // Unsigned values above the signed range must not wrap into range.
    if (value.is_number_unsigned() && value.get<std::uint64_t>() > static_cast<std::uint64_t>(highest))
        refuse("\"" + std::string(key) + "\" in " + where + " is out of range");
    const auto number = value.get<std::int64_t>();
    if (number < lowest || number > highest)
        refuse("\"" + std::string(key) + "\" in " + where + " is out of range");
    return number;
}

std::uint16_t u16(const Json& object, const char* key, const std::string& where) {
    return static_cast<std::uint16_t>(integer(object, key, where, 0, std::numeric_limits<std::uint16_t>::max()));
}

std::uint32_t u32(const Json& object, const char* key, const std::string& where) {
    return static_cast<std::uint32_t>(integer(object, key, where, 0, std::numeric_limits<std::uint32_t>::max()));
}

// An option added after the first manifests: absent means off.
bool flag(const Json& object, const char* key, const std::string& where) {
    if (!object.contains(key))
        return false;
    const Json& value = object.at(key);
    if (!value.is_boolean())
        refuse("\"" + std::string(key) + "\" in " + where + " is not true or false");
    return value.get<bool>();
}

const Json& array(const Json& object, const char* key, const std::string& where) {
    const Json& value = member(object, key, where);
    if (!value.is_array())
        refuse("\"" + std::string(key) + "\" in " + where + " is not a list");
    return value;
}

} // namespace

std::string manifestJson(const RunRecord& run, std::span<const ExportedVariation> exported,
                         const ExportRecord& exportRecord) {
    const RunSettings& request = run.settings;
    Json manifest;
    manifest["format"] = formatName;
    manifest["version"] = formatVersion;
    manifest["settings"] = {
        {"slices", request.plan.sliceCount},
        {"variations", request.plan.variationCount},
        {"chopModel", std::string(chop::label(request.plan.chopModel))},
        {"seedText", request.seedText},
        {"seed", run.seed},
        {"glitchAmount", request.plan.glitchAmount},
        {"mashupMode", request.mashupMode},
        {"selected", request.selectedPath},
        {"joinFadeMs", request.plan.joinFadeMs},
        {"fit", std::string(chop::fitModeName(request.plan.fit))},
        {"matchFormats", request.matchFormats},
        {"matchTempo", request.matchTempo},
        {"tempoOverrides", request.tempoOverrides},
    };

    Json sources = Json::array();
    for (const SourceRecord& source : run.sources) {
        sources.push_back({
            {"path", source.path},
            {"sha256", source.sha256},
            {"frames", source.frames},
            {"audioFormat", source.format.audioFormat},
            {"channels", source.format.channels},
            {"sampleRate", source.format.sampleRate},
            {"byteRate", source.format.byteRate},
            {"blockAlign", source.format.blockAlign},
            {"bitsPerSample", source.format.bitsPerSample},
        });
    }
    manifest["sources"] = std::move(sources);

    const std::int64_t blockAlign = run.sources.empty() ? 1 : std::max<std::int64_t>(run.sources[0].format.blockAlign, 1);
    Json variations = Json::array();
    for (const ExportedVariation& variation : exported) {
        Json placements = Json::array();
        for (const chop::Placement& placement : variation.loop->placements)
            placements.push_back(placementJson(placement, run, blockAlign));
        variations.push_back({
            {"number", variation.number},
            {"name", variation.loop->name},
            {"sha256", variation.sha256},
            {"frames", static_cast<std::int64_t>(variation.loop->pcmData.size()) / blockAlign},
            {"placements", std::move(placements)},
        });
    }
    manifest["variations"] = std::move(variations);
    manifest["export"] = {{"tags", exportRecord.tagTempoBpm.has_value()}, {"kit", exportRecord.kit}};
    // Absent means off (or 4/4), so a manifest of the default export reads as before.
    if (exportRecord.keepExisting)
        manifest["export"]["keepExisting"] = true;
    if (exportRecord.tagBeatsPerBar != 4)
        manifest["export"]["tagBeatsPerBar"] = exportRecord.tagBeatsPerBar;
    if (exportRecord.tagTempoBpm)
        manifest["export"]["tagTempo"] = *exportRecord.tagTempoBpm;
    return manifest.dump(2) + "\n";
}

Manifest parseManifest(std::string_view input) {
    const Json manifest = Json::parse(input.begin(), input.end(), nullptr, false);
    if (manifest.is_discarded())
        refuse("it is not valid JSON");
    if (!manifest.is_object() || !manifest.contains("format") || manifest.at("format") != formatName)
        refuse("it is not a Marquetry manifest");
    if (integer(manifest, "version", "the manifest", 0, std::numeric_limits<std::int64_t>::max()) != formatVersion)
        refuse("its version is not " + std::to_string(formatVersion));

    Manifest result;
    RunSettings& request = result.run.settings;
    const Json& settings = member(manifest, "settings", "the manifest");
    const std::string inSettings = "\"settings\"";
    request.plan.sliceCount = integer(settings, "slices", inSettings, std::numeric_limits<std::int64_t>::min(),
                                 std::numeric_limits<std::int64_t>::max());
    request.plan.variationCount = integer(settings, "variations", inSettings, std::numeric_limits<std::int64_t>::min(),
                               std::numeric_limits<std::int64_t>::max());
    const std::string model = text(settings, "chopModel", inSettings);
    const auto chopModel = chop::chopModelFromLabel(model);
    if (!chopModel)
        refuse("\"" + model + "\" is not a chop model");
    request.plan.chopModel = *chopModel;
    request.seedText = text(settings, "seedText", inSettings);
    const Json& seed = member(settings, "seed", inSettings);
    if (!seed.is_number_unsigned() && !(seed.is_number_integer() && seed.get<std::int64_t>() >= 0))
        refuse("\"seed\" in " + inSettings + " is not a whole number from 0");
    result.run.seed = seed.get<std::uint64_t>();
    const Json& glitch = member(settings, "glitchAmount", inSettings);
    if (!glitch.is_number() || !std::isfinite(glitch.get<double>()))
        refuse("\"glitchAmount\" in " + inSettings + " is not a number");
    request.plan.glitchAmount = glitch.get<double>();
    const Json& mashup = member(settings, "mashupMode", inSettings);
    if (!mashup.is_boolean())
        refuse("\"mashupMode\" in " + inSettings + " is not true or false");
    request.mashupMode = mashup.get<bool>();
    request.selectedPath = text(settings, "selected", inSettings);
    // Manifests written before the fade existed describe runs without one.
    if (settings.contains("joinFadeMs"))
        request.plan.joinFadeMs = integer(settings, "joinFadeMs", inSettings, 0, chop::maxJoinFadeMs);
    if (settings.contains("fit")) {
        const std::string fit = text(settings, "fit", inSettings);
        const auto mode = chop::parseFitMode(fit);
        if (!mode)
            refuse("\"" + fit + "\" is not a fit mode");
        request.plan.fit = *mode;
    }
    request.matchFormats = flag(settings, "matchFormats", inSettings);
    request.matchTempo = flag(settings, "matchTempo", inSettings);
    if (settings.contains("tempoOverrides")) {
        const Json& overrides = member(settings, "tempoOverrides", inSettings);
        if (!overrides.is_object())
            refuse("\"tempoOverrides\" in " + inSettings + " is not a set of files and tempos");
        for (const auto& [path, bpm] : overrides.items()) {
            if (!bpm.is_number() || !(bpm.get<double>() >= chop::minTempoBpm && bpm.get<double>() <= chop::maxTempoBpm))
                refuse("the tempo of " + path + " in \"tempoOverrides\" is not from " + chop::tempoRangeText() + " BPM");
            request.tempoOverrides[path] = bpm.get<double>();
        }
    }

    for (const Json& source : array(manifest, "sources", "the manifest")) {
        const std::string where = "a source";
        SourceRecord record;
        record.path = text(source, "path", where);
        record.sha256 = text(source, "sha256", where);
        record.frames = integer(source, "frames", where, 0, std::numeric_limits<std::int64_t>::max());
        record.format.audioFormat = u16(source, "audioFormat", where);
        record.format.channels = u16(source, "channels", where);
        record.format.sampleRate = u32(source, "sampleRate", where);
        record.format.byteRate = u32(source, "byteRate", where);
        record.format.blockAlign = u16(source, "blockAlign", where);
        record.format.bitsPerSample = u16(source, "bitsPerSample", where);
        result.run.sources.push_back(std::move(record));
    }
    if (result.run.sources.empty())
        refuse("it lists no source");
    if (request.mashupMode) {
        for (const SourceRecord& source : result.run.sources)
            request.checkedPaths.insert(source.path);
    }

    std::vector<std::int64_t>& numbers = request.picks;
    for (const Json& variation : array(manifest, "variations", "the manifest")) {
        numbers.push_back(integer(variation, "number", "a variation", 1,
                                  std::max<std::int64_t>(request.plan.variationCount, 1)));
        result.variationSha256[numbers.back()] = text(variation, "sha256", "a variation");
    }
    std::sort(numbers.begin(), numbers.end());
    if (std::adjacent_find(numbers.begin(), numbers.end()) != numbers.end())
        refuse("a variation is listed twice");

    // Manifests written before these options existed describe plain files.
    if (manifest.contains("export")) {
        const std::string inExport = "\"export\"";
        const Json& options = member(manifest, "export", "the manifest");
        if (!options.is_object())
            refuse("\"export\" in the manifest is not a set of options");
        if (flag(options, "tags", inExport)) {
            const Json& bpm = member(options, "tagTempo", inExport);
            if (!bpm.is_number() || !(bpm.get<double>() >= chop::minTempoBpm && bpm.get<double>() <= chop::maxTempoBpm))
                refuse("\"tagTempo\" in " + inExport + " is not a tempo from " + chop::tempoRangeText() + " BPM");
            result.exportRecord.tagTempoBpm = bpm.get<double>();
        }
        result.exportRecord.kit = flag(options, "kit", inExport);
        result.exportRecord.keepExisting = flag(options, "keepExisting", inExport);
        if (options.contains("tagBeatsPerBar"))
            result.exportRecord.tagBeatsPerBar = integer(options, "tagBeatsPerBar", inExport, 3, 4);
    }
    request.exportOptions = {.manifest = true,
                             .keepExisting = result.exportRecord.keepExisting,
                             .tags = result.exportRecord.tagTempoBpm.has_value(),
                             .kit = result.exportRecord.kit};
    return result;
}

} // namespace marquetry::model

#include "cli/Commands.hpp"

#include "audio/WavReader.hpp"
#include "cli/HeadlessPlatform.hpp"
#include "model/AppModel.hpp"
#include "model/ErrorText.hpp"
#include "model/FileSystem.hpp"
#include "model/Import.hpp"
#include "model/Manifest.hpp"
#include "model/Sha256.hpp"
#include "model/SystemServices.hpp"

#include "chop/TempoEstimate.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace marquetry::cli {
namespace {

namespace fs = std::filesystem;
using Field = model::AppModel::Field;

int reportFailure(std::ostream& err, const std::string& status) {
    err << status << '\n';
    return exitFailure;
}

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

// Why the model could not use this path as a source, before it tries: each
// problem in words of its own rather than one "cannot find".
std::optional<std::string> sourcePathProblem(const std::string& file) {
    const fs::path path = model::pathFromText(file);
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error == std::errc::too_many_symbolic_link_levels)
        return "the source file " + quoted(file) + " is a loop of symbolic links";
    if (status.type() == fs::file_type::not_found) {
        if (fs::is_symlink(fs::symlink_status(path, error)))
            return "the source file " + quoted(file) + " is a symbolic link to nothing";
        return "cannot find the source file " + quoted(file);
    }
    if (error)
        return "cannot reach the source file " + quoted(file) + ": " + error.message();
    if (status.type() == fs::file_type::directory)
        return quoted(file) + " is a folder, not a WAV file";
    const std::string name = model::fileName(file);
    const std::size_t dot = name.rfind('.');
    std::string extension = dot == std::string::npos ? "" : name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); });
    if (extension != "wav")
        return "the source file " + quoted(file) + " does not end in .wav; only WAV files can be sources";
    try {
        model::listFolder(model::pathText(path.parent_path()));
    } catch (const std::system_error& failure) {
        return "cannot list the source folder: " + std::string(failure.what());
    }
    return std::nullopt;
}

void keepOnlyPicked(model::AppModel& app, const std::vector<std::int64_t>& picks) {
    if (picks.empty())
        return;
    app.setAllSelected(false);
    // Ids first: every toggle notifies, and observers may read the list.
    std::vector<playback::Uuid> picked;
    for (const std::int64_t number : picks)
        picked.push_back(app.generatedLoops().at(static_cast<std::size_t>(number - 1)).id);
    for (const playback::Uuid& id : picked)
        app.toggleSelection(id, true);
}

std::string seedLine(const model::RunRecord& run) {
    std::string line = "Seed of this run: " + std::to_string(run.seed);
    if (!run.seedFromClock())
        return line;
    if (run.request.seedText.empty())
        return line + " (no seed was given, so the clock chose it)";
    return line + " (the seed text " + quoted(run.request.seedText) + " is not a whole number, so the clock chose it)";
}

} // namespace

int runGenerate(const GenerateOptions& options, std::ostream& out, std::ostream& err) {
    if (const auto problem = sourcePathProblem(options.sourceFile))
        return reportUsageError(err, *problem);
    const std::string sourceFolder = model::pathText(model::pathFromText(options.sourceFile).parent_path());

    // Both keys answer the source folder, which exists, so the constructor
    // creates nothing; the real output folder is set just before export.
    MemorySettings settings({{model::AppModel::sourceDirKey, sourceFolder},
                             {model::AppModel::outputDirKey, sourceFolder}});
    CancellingFolderChooser folderChooser;
    AbsentFileBrowser fileBrowser;
    SilentAudioPlayers audioPlayers;
    IdleTimers timers;
    MainLoop mainLoop;
    model::AppModel app({
        .settings = settings,
        .folderChooser = folderChooser,
        .fileBrowser = fileBrowser,
        .tasks = mainLoop,
        .audioPlayers = audioPlayers,
        .timers = timers,
        .homeFolder = model::systemHomeFolder(),
        .unixSeconds = model::systemUnixSeconds,
        .randomUuid = model::osRandomUuid,
    }, options.sourceFile);

    // The scan reports the folder, not the loop, which the window would show
    // next; the command line says what happened to the loop it was given.
    if (app.selectedFile() != options.sourceFile)
        return reportUsageError(err, "the source folder no longer lists " + quoted(options.sourceFile));
    if (!app.sourceWavData()) {
        app.loadSelectedSourceWaveform();
        return reportFailure(err, app.status());
    }

    for (const std::string& file : options.mashupFiles)
        app.toggleMashupMembership(file, true);
    app.setMashupMode(!options.mashupFiles.empty());
    if (options.slices)
        app.setSlices(*options.slices);
    if (options.versions)
        app.setVersions(*options.versions);
    if (options.chopModel)
        app.setChopModel(*options.chopModel);
    if (options.seedText)
        app.setSeedText(*options.seedText);
    if (options.glitchAmount)
        app.setGlitchAmount(*options.glitchAmount);
    if (options.joinFadeMs)
        app.setJoinFadeMs(*options.joinFadeMs);
    if (options.fit)
        app.setFit(*options.fit);
    app.setMatchFormats(options.matchFormats);
    app.setMatchTempo(options.matchTempo);
    for (const auto& [file, bpm] : options.tempos)
        app.setTempoOverride(file, bpm);

    // Checked against the count the model will generate; a count the model
    // refuses is left for generate to report.
    if (!options.picks.empty() && app.versions() >= 1 && options.picks.back() > app.versions())
        return reportUsageError(err, "--pick " + std::to_string(options.picks.back()) + " is beyond the "
                                         + std::to_string(app.versions()) + " variation(s) to be generated");
    // Each variation is about as long as the source: a count whose output
    // cannot fit is a mistake in the request, not a run to start.
    const double expected = static_cast<double>(app.versions()) * static_cast<double>(app.sourceWavData()->pcmData.size());
    if (const auto available = static_cast<double>(model::availableMemoryBytes()); expected > available)
        return reportUsageError(err, "--variations " + std::to_string(app.versions()) + " of this loop would need about "
                                         + model::readableSize(expected) + " of memory; "
                                         + model::readableSize(available) + " is available");

    app.subscribe([&](Field field) {
        if (field == Field::status) {
            out << app.status() << '\n' << std::flush;
            out.clear(); // a line that cannot be written is lost, never the export
        }
    });
    app.generate();
    mainLoop.runUntil([&] { return !app.isGenerating(); });
    mainLoop.joinBackgroundThreads();
    // Loading the source emptied the list, and only a successful run fills it.
    if (app.generatedLoops().empty())
        return reportFailure(err, app.status());

    keepOnlyPicked(app, options.picks);
    if (options.exportTempo)
        app.setTempoOverride(app.lastRun()->request.selectedPath, options.exportTempo);
    app.setOutputDir(options.outputDir);
    app.setKeepExisting(options.keepExisting);
    app.setExportTags(options.tags);
    const bool exported = app.exportSelected(options.manifestPath, options.kitDir).exported;
    const int status = exported ? exitSuccess : reportFailure(err, app.status());
    err << seedLine(*app.lastRun()) << '\n';
    if (const auto mismatch = model::formatMismatchWarning(*app.lastRun()))
        err << "Warning: " << *mismatch << " Use --match-formats to convert the loops to one format.\n";
    return status;
}

int runReplay(const ReplayOptions& options, std::ostream& out, std::ostream& err) {
    model::Manifest manifest;
    try {
        const audio::Bytes text = audio::readWholeFile(options.manifestPath);
        manifest = model::parseManifest(std::string_view(reinterpret_cast<const char*>(text.data()), text.size()));
        for (const model::SourceRecord& source : manifest.run.sources) {
            if (model::sha256Hex(audio::readWholeFile(source.path)) != source.sha256)
                return reportFailure(err, "Replay refused: " + source.path
                                              + " has changed since the manifest was written. Nothing was written.");
        }
    } catch (const std::exception& error) {
        std::string reason = model::describe(error);
        if (!reason.ends_with('.'))
            reason += '.';
        return reportFailure(err, "Replay refused: " + reason + " Nothing was written.");
    }

    const model::GenerationRequest& request = manifest.run.request;
    GenerateOptions generate;
    generate.sourceFile = request.selectedPath;
    if (request.mashupMode)
        for (const model::SourceRecord& source : manifest.run.sources)
            generate.mashupFiles.push_back(source.path);
    generate.slices = request.sliceCount;
    generate.versions = request.versions;
    generate.chopModel = request.chopModel;
    generate.seedText = std::to_string(manifest.run.seed);
    generate.glitchAmount = request.glitchAmount;
    generate.joinFadeMs = request.joinFadeMs;
    generate.fit = request.fit;
    generate.matchFormats = request.matchFormats;
    generate.matchTempo = request.matchTempo;
    generate.tempos = request.tempoOverrides;
    generate.outputDir = options.outputDir;
    generate.picks = manifest.numbers;
    generate.tags = manifest.exportRecord.tagTempoBpm.has_value();
    generate.exportTempo = manifest.exportRecord.tagTempoBpm;
    if (manifest.exportRecord.kit)
        generate.kitDir = model::pathText(model::pathFromText(options.outputDir) / model::AppModel::kitFolderName);
    return runGenerate(generate, out, err);
}

int runImport(const ImportOptions& options, std::ostream& out) {
    // Like --output, the folder is made when missing.
    try {
        model::createFolder(options.folder);
    } catch (const std::exception& error) {
        out << "Import failed: " << model::describe(error) << '\n';
        return exitFailure;
    }
    int status = exitSuccess;
    for (const std::string& file : options.files) {
        try {
            out << model::importAudioFile(file, options.folder) << '\n';
        } catch (const std::exception& error) {
            // ImportError already names the file; anything else gets its name.
            if (dynamic_cast<const model::ImportError*>(&error) != nullptr)
                out << error.what() << '\n';
            else
                out << file << ": " << model::describe(error) << '\n';
            status = exitFailure;
        }
        out << std::flush;
    }
    return status;
}

int runInfo(const InfoOptions& options, std::ostream& out) {
    int status = exitSuccess;
    auto array = nlohmann::ordered_json::array();
    for (const std::string& file : options.files) {
        audio::WavData wav;
        try {
            wav = audio::loadWav(file);
        } catch (const std::exception& error) {
            const std::string message = model::describe(error);
            if (options.json)
                array.push_back({{"file", file}, {"error", message}});
            else // the system's own messages already start with the path
                out << (message.starts_with(file + ": ") ? "" : file + ": ") << message << '\n';
            status = exitFailure;
            continue;
        }
        const audio::FrameCount frames = audio::frameCount(wav.pcmData.size(), wav.blockAlign);
        const double seconds = wav.sampleRate == 0 ? 0.0 : static_cast<double>(frames) / wav.sampleRate;
        const auto tempo = chop::estimateTempo(wav);
        if (options.json) {
            array.push_back({{"file", file}, {"frames", frames}, {"sampleRate", wav.sampleRate},
                             {"channels", wav.channels}, {"bitsPerSample", wav.bitsPerSample},
                             {"audioFormat", wav.audioFormat}, {"seconds", seconds},
                             {"bpm", tempo ? nlohmann::ordered_json(tempo->bpm) : nullptr},
                             {"bars", tempo ? nlohmann::ordered_json(tempo->bars) : nullptr}});
            continue;
        }
        char line[160];
        std::snprintf(line, sizeof line, "%s %u-bit, %u ch, %u Hz, %lld frames, %.3f s, ",
                      wav.audioFormat == audio::formatFloat ? "float" : "PCM", unsigned{wav.bitsPerSample},
                      unsigned{wav.channels}, unsigned{wav.sampleRate}, static_cast<long long>(frames), seconds);
        out << file << ": " << line << (tempo ? chop::tempoText(*tempo) : std::string("tempo unknown")) << '\n';
    }
    if (options.json)
        out << array.dump(2) << '\n';
    return status;
}

} // namespace marquetry::cli

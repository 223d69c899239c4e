#include "cli/GenerateCommand.hpp"

#include "cli/HeadlessPlatform.hpp"
#include "model/AppModel.hpp"
#include "model/FileSystem.hpp"
#include "model/SystemServices.hpp"

#include <algorithm>
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

void untickUnpicked(model::AppModel& app, const std::vector<std::int64_t>& picks) {
    if (picks.empty())
        return;
    // Ids first: every toggle notifies, and observers may read the list.
    std::vector<playback::Uuid> unpicked;
    const auto& loops = app.generatedLoops();
    for (std::size_t i = 0; i < loops.size(); ++i)
        if (!std::binary_search(picks.begin(), picks.end(), static_cast<std::int64_t>(i + 1)))
            unpicked.push_back(loops[i].id);
    for (const playback::Uuid& id : unpicked)
        app.toggleSelection(id, false);
}

} // namespace

int runGenerate(const GenerateOptions& options, std::ostream& out, std::ostream& err) {
    const fs::path sourceFile = model::pathFromText(options.sourceFile);
    const std::string sourceFolder = model::pathText(sourceFile.parent_path());
    // The model creates its source folder when missing; a mistyped path must
    // not leave a new folder behind.
    std::error_code error;
    if (!fs::exists(sourceFile, error))
        return reportUsageError(err, "cannot find the source file '" + options.sourceFile + "'");

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
    });

    app.selectFile(options.sourceFile);
    // A selection that fails to decode stays selected, so generate would run
    // anyway and fail later with a less telling message.
    if (app.selectedFile() && !app.sourceWavData())
        return reportFailure(err, app.status());

    for (const std::string& file : options.mashupFiles)
        app.toggleMashupMembership(file, true);
    app.setMashupMode(!options.mashupFiles.empty());
    if (options.slices)
        app.setSlices(*options.slices);
    if (options.variations)
        app.setVersions(*options.variations);
    if (options.chopModel)
        app.setChopModel(*options.chopModel);
    if (options.seedText)
        app.setSeedText(*options.seedText);
    if (options.glitchAmount)
        app.setGlitchAmount(*options.glitchAmount);

    // Checked against the count the model will generate; a count the model
    // refuses is left for generate to report.
    if (!options.picks.empty() && app.versions() >= 1 && options.picks.back() > app.versions())
        return reportUsageError(err, "--pick " + std::to_string(options.picks.back()) + " is beyond the "
                                         + std::to_string(app.versions()) + " variation(s) to be generated");

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

    untickUnpicked(app, options.picks);
    app.setOutputDir(options.outputDir);
    app.exportSelected();
    // Export reports only through the status line; its fixed success text is
    // the one sign that every file was written.
    if (!app.status().starts_with("Exported "))
        return reportFailure(err, app.status());
    return exitSuccess;
}

} // namespace marquetry::cli

#include "model/AppModel.hpp"

#include "audio/WaveformEnvelope.hpp"
#include "audio/WavReader.hpp"
#include "audio/WavWriter.hpp"
#include "chop/JoinFades.hpp"
#include "model/DawExport.hpp"
#include "model/Export.hpp"
#include "model/ErrorText.hpp"
#include "model/FileSystem.hpp"
#include "model/Import.hpp"
#include "model/Manifest.hpp"
#include "model/Sha256.hpp"
#include "model/UnicodeOrder.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <exception>
#include <filesystem>

namespace marquetry::model {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t envelopePoints = 1000;

// A facts pass hands its findings back at most this often, and at the end of
// each phase: every hand-back redraws the whole list, which for a folder of
// thousands must not happen once per loop.
constexpr std::chrono::milliseconds factsHandBackInterval{250};
// A background decode holds the whole payload in memory: past this size the
// tempo waits until the loop is selected.
constexpr std::uint64_t maxBackgroundDecodeBytes = 64 << 20;

// The header a decoded record had, without its payload.
audio::WavHeader headerOf(const audio::WavData& wav) {
    return {audio::WavData{wav.audioFormat, wav.channels, wav.sampleRate, wav.byteRate, wav.blockAlign,
                           wav.bitsPerSample, {}},
            wav.pcmData.size()};
}

// Which files an export replaced and where the old ones are: the first few
// by name, then how many more.
std::string replacedFilesWarning(const ExportResult& result) {
    constexpr std::size_t named = 3;
    const auto list = [](const std::vector<std::string>& paths) {
        std::string text;
        for (std::size_t i = 0; i < paths.size() && i < named; ++i)
            text += (i == 0 ? "" : ", ") + fileName(paths[i]);
        if (paths.size() > named)
            text += " and " + std::to_string(paths.size() - named) + " more";
        return text;
    };
    std::string warning;
    if (!result.trashed.empty())
        warning = "Replaced " + list(result.trashed) + "; the old files are in the Trash.";
    if (!result.keptReplaced.empty())
        warning += (warning.empty() ? "" : " ") + std::string("The Trash could not take the old files, so they are kept as ")
                   + list(result.keptReplaced) + ".";
    return warning;
}

} // namespace

void ensureDirectoryExists(const std::string& path, const std::string& homeFolder) {
    try {
        createFolder(expandTilde(path, homeFolder));
    } catch (const std::exception&) {
        // Reported later by whoever needs the folder.
    }
}

AppModel::AppModel(Platform platform, std::optional<std::string> initialSelection)
    : platform_(std::move(platform)),
      preview_(platform_.audioPlayers, platform_.timers, [this](playback::PreviewSession::Change change) {
          notify({change == playback::PreviewSession::Change::playingTarget ? Field::playingTarget
                                                                            : Field::playbackProgress,
                  {}, false});
      }) {
    sourceDir_ = platform_.settings.string(sourceDirKey).value_or(expanded(defaultSourceDir));
    outputDir_ = platform_.settings.string(outputDirKey).value_or(expanded(defaultOutputDir));
    settings_ = restoreOptions(platform_.settings);
    ensureDirectoryExists(sourceDir_, platform_.homeFolder);
    ensureDirectoryExists(outputDir_, platform_.homeFolder);
    // Taken by the scan like any earlier selection: kept and loaded when
    // listed, otherwise replaced by the first file.
    selectedFile_ = std::move(initialSelection);
    refreshFiles();
}

AppModel::~AppModel() {
    // A pass still reading or a run still rendering has nobody left to
    // tell; the run stops at its next check, so whoever joins its worker
    // does not wait for the whole run.
    if (factsPass_)
        factsPass_->store(true);
    if (run_)
        run_->cancelled.store(true);
}

void AppModel::subscribe(std::function<void(const Change&)> observer) {
    observers_.push_back(std::move(observer));
}

void AppModel::notify(const Change& change) {
    for (const auto& observer : observers_)
        observer(change);
}

template <typename T>
void AppModel::write(T& field, T value, Field which) {
    field = std::move(value);
    notify({which, {}, false});
}

void AppModel::setStatus(std::string text) {
    write(status_, std::move(text), Field::status);
}

void AppModel::setWarning(std::string text) {
    write(warning_, std::move(text), Field::warning);
}

void AppModel::dismissWarning() {
    setWarning({});
}

std::string AppModel::expanded(const std::string& path) const {
    return expandTilde(path, platform_.homeFolder);
}

void AppModel::setSourceDir(std::string value) { write(sourceDir_, std::move(value), Field::sourceDir); }
void AppModel::setOutputDir(std::string value) { write(outputDir_, std::move(value), Field::outputDir); }
void AppModel::setMashupMode(bool value) { write(mashupMode_, value, Field::mashupMode); }

void AppModel::changeSettings(const std::function<void(RunSettings&)>& change) {
    const RunSettings before = settings_;
    change(settings_);
    storeOptions(platform_.settings, before, settings_);
    notify({Field::settings, {}, false});
}

std::optional<chop::TempoEstimate> AppModel::tempoFor(const std::string& path) const {
    const auto known = loopTempos_.find(path);
    const auto corrected = tempoOverrides_.find(path);
    const auto meter = meterOverrides_.find(path);
    const std::optional<chop::TempoEstimate> estimate =
        known == loopTempos_.end() ? std::nullopt : known->second.estimate;
    if (corrected == tempoOverrides_.end() && meter == meterOverrides_.end())
        return estimate;
    const std::int64_t beatsPerBar =
        meter != meterOverrides_.end() ? meter->second : estimate ? estimate->beatsPerBar : 4;
    const std::optional<double> bpm = corrected != tempoOverrides_.end() ? std::optional(corrected->second)
                                      : estimate                        ? std::optional(estimate->bpm)
                                                                        : std::nullopt;
    if (bpm && known != loopTempos_.end())
        if (auto tempo = chop::tempoAt(*bpm, known->second.frames, known->second.sampleRate, beatsPerBar))
            return tempo;
    if (corrected == tempoOverrides_.end())
        return estimate;
    return chop::TempoEstimate{std::round(corrected->second * 10) / 10, 0, 0,
                               meter != meterOverrides_.end() ? meter->second : 4};
}

SourceFacts AppModel::factsFor(const std::string& path) const {
    const auto found = sourceFacts_.find(path);
    return found == sourceFacts_.end() ? SourceFacts{} : found->second;
}

void AppModel::readSourceFactsInBackground() {
    factsWanted_ = true;
    startFactsPass();
}

void AppModel::dropFacts() {
    if (factsPass_) {
        factsPass_->store(true);
        factsPass_.reset();
    }
    const auto dropAll = [this](auto& known, Field which) {
        if (known.empty())
            return;
        std::vector<std::string> paths;
        paths.reserve(known.size());
        for (const auto& entry : known)
            paths.push_back(entry.first);
        known.clear();
        notifyFacts(which, std::move(paths));
    };
    dropAll(sourceFacts_, Field::sourceFacts);
    dropAll(loopTempos_, Field::tempo);
}

void AppModel::notifyFacts(Field which, std::vector<std::string> paths) {
    notify({which, std::move(paths), false});
    if (which != Field::sourceFacts)
        return;
    // Ticked before the reader had a say: a refused file would only fail the run.
    std::set<std::string> pool = mashupSourcePaths_;
    std::erase_if(pool, [this](const std::string& path) { return factsFor(path).refusal.has_value(); });
    if (pool.size() != mashupSourcePaths_.size())
        write(mashupSourcePaths_, std::move(pool), Field::mashupSourcePaths);
}

void AppModel::startFactsPass() {
    if (factsPass_)
        factsPass_->store(true);
    auto pass = factsPass_ = std::make_shared<std::atomic<bool>>(false);
    if (wavFiles_.empty())
        return;
    auto work = [files = wavFiles_, pass, &tasks = platform_.tasks, model = this,
                       alive = std::weak_ptr<char>(lifetime_)] {
        std::vector<FoundFacts> batch;
        auto lastHandBack = std::chrono::steady_clock::now();
        const auto handBack = [&] {
            if (batch.empty())
                return;
            lastHandBack = std::chrono::steady_clock::now();
            tasks.runOnMain([model, alive, pass, found = std::move(batch)]() mutable {
                // Dropped when the model is gone or a later scan replaced the list.
                if (alive.lock() && model->factsPass_ == pass)
                    model->takeFacts(std::move(found));
            });
            batch = {};
        };
        std::vector<std::string> decodable;
        for (const std::string& path : files) {
            if (pass->load())
                return;
            SourceFacts facts = readSourceFacts(path);
            if (facts.header && facts.header->payloadBytes <= maxBackgroundDecodeBytes)
                decodable.push_back(path);
            batch.push_back({path, std::move(facts), std::nullopt});
            if (std::chrono::steady_clock::now() - lastHandBack >= factsHandBackInterval)
                handBack();
        }
        handBack();
        for (const std::string& path : decodable) {
            if (pass->load())
                return;
            FoundFacts found{path, {}, std::nullopt};
            try {
                const audio::WavData wav = audio::loadWav(path);
                found.facts.header = headerOf(wav);
                found.tempo = LoopTempo{chop::estimateTempo(wav), audio::frameCount(wav.pcmData.size(), wav.blockAlign),
                                        wav.sampleRate};
            } catch (const std::exception& error) {
                // What the header did not show, a whole read did: marked now.
                found.facts.refusal = describe(error);
            }
            batch.push_back(std::move(found));
            if (std::chrono::steady_clock::now() - lastHandBack >= factsHandBackInterval)
                handBack();
        }
        handBack();
    };
    // Without a worker the list simply shows no facts. Facts are a
    // courtesy: Generate and playback come first, on any number of cores.
    try {
        platform_.tasks.runWhenIdle(std::move(work));
    } catch (const std::exception&) {
    }
}

void AppModel::takeFacts(std::vector<FoundFacts> found) {
    std::vector<std::string> paths;
    std::vector<std::string> tempoPaths;
    paths.reserve(found.size());
    for (FoundFacts& each : found) {
        if (each.tempo) {
            loopTempos_[each.path] = *each.tempo;
            tempoPaths.push_back(each.path);
        }
        sourceFacts_[each.path] = std::move(each.facts);
        paths.push_back(std::move(each.path));
    }
    notifyFacts(Field::sourceFacts, std::move(paths));
    if (!tempoPaths.empty())
        notifyFacts(Field::tempo, std::move(tempoPaths));
}

void AppModel::recordLoadedFacts(const std::optional<audio::WavData>& loaded, std::optional<std::string> refusal) {
    if (!factsWanted_ || !selectedFile_)
        return;
    SourceFacts facts{loaded ? std::optional(headerOf(*loaded)) : std::nullopt, std::move(refusal)};
    SourceFacts& known = sourceFacts_[*selectedFile_];
    if (known == facts)
        return;
    known = std::move(facts);
    notifyFacts(Field::sourceFacts, {*selectedFile_});
}

void AppModel::setTempoOverride(const std::string& path, std::optional<double> bpm) {
    if (bpm && !(*bpm >= chop::minTempoBpm && *bpm <= chop::maxTempoBpm)) {
        setStatus("Tempo must be from " + chop::tempoRangeText() + " BPM.");
        return;
    }
    if (bpm)
        tempoOverrides_[path] = *bpm;
    else
        tempoOverrides_.erase(path);
    notifyFacts(Field::tempo, {path});
}

void AppModel::setMeterOverride(const std::string& path, std::optional<std::int64_t> beatsPerBar) {
    if (beatsPerBar && *beatsPerBar != 3 && *beatsPerBar != 4)
        return;
    if (beatsPerBar)
        meterOverrides_[path] = *beatsPerBar;
    else
        meterOverrides_.erase(path);
    notifyFacts(Field::tempo, {path});
}

void AppModel::setMasterVolume(double value) {
    write(masterVolume_, value, Field::masterVolume);
    preview_.applyVolume(masterVolume_);
}

void AppModel::setSelectedFile(std::optional<std::string> value) {
    write(selectedFile_, std::move(value), Field::selectedFile);
    loadSelectedSourceWaveform();
}

// Folders and settings -----------------------------------------------------

void AppModel::chooseSourceFolder() {
    const auto chosen = platform_.folderChooser.chooseFolder({.canCreateFolders = false, .initialFolder = sourceDir_});
    if (!chosen)
        return;
    setSourceDir(*chosen);
    refreshFiles();
}

void AppModel::chooseOutputFolder() {
    const auto chosen =
        platform_.folderChooser.chooseFolder({.canCreateFolders = true, .initialFolder = expanded(outputDir_)});
    if (chosen)
        setOutputDir(*chosen);
}

void AppModel::saveSourceAsDefault() {
    setSourceDir(expanded(sourceDir_));
    ensureDirectoryExists(sourceDir_, platform_.homeFolder);
    platform_.settings.setString(sourceDirKey, sourceDir_);
    setStatus("Saved default source folder.");
}

void AppModel::saveOutputAsDefault() {
    setOutputDir(expanded(outputDir_));
    ensureDirectoryExists(outputDir_, platform_.homeFolder);
    platform_.settings.setString(outputDirKey, outputDir_);
    setStatus("Saved default output folder.");
}

void AppModel::showOutputInFinder() {
    const std::string folder = expanded(outputDir_);
    if (!platform_.fileBrowser.openFolder(folder))
        setStatus("Could not start a file manager to show " + folder + ".");
}

// Source discovery and selection --------------------------------------------

void AppModel::refreshFiles() {
    setSourceDir(expanded(sourceDir_));
    // What was read of the last scan may no longer be true of the disk.
    dropFacts();

    std::vector<std::string> names;
    try {
        names = listFolder(sourceDir_);
    } catch (const std::exception&) {
        stopPlayback();
        write(wavFiles_, {}, Field::wavFiles);
        setSelectedFile(std::nullopt);
        clearGeneratedLoops();
        write(sourceWaveform_, {}, Field::sourceWaveform);
        write(sourceWavData_, {}, Field::sourceWavData);
        setStatus("Could not read source folder.");
        return;
    }

    std::vector<std::string> files;
    for (const std::string& name : names)
        if (hasWavExtension(name))
            files.push_back(joinPath(sourceDir_, name));
    sortByFileNameIgnoringCase(files);
    write(wavFiles_, std::move(files), Field::wavFiles);

    if (selectedFile_ && std::find(wavFiles_.begin(), wavFiles_.end(), *selectedFile_) == wavFiles_.end())
        setSelectedFile(std::nullopt);
    if (!selectedFile_)
        setSelectedFile(wavFiles_.empty() ? std::nullopt : std::optional(wavFiles_.front()));
    else
        loadSelectedSourceWaveform();

    if (wavFiles_.empty()) {
        write(sourceWaveform_, {}, Field::sourceWaveform);
        write(sourceWavData_, {}, Field::sourceWavData);
        setStatus("No WAV files found in source folder.");
    } else {
        setStatus("Loaded " + std::to_string(wavFiles_.size()) + " WAV file(s).");
    }

    std::set<std::string> stillListed;
    for (const std::string& path : mashupSourcePaths_)
        if (std::find(wavFiles_.begin(), wavFiles_.end(), path) != wavFiles_.end())
            stillListed.insert(path);
    write(mashupSourcePaths_, std::move(stillListed), Field::mashupSourcePaths);
    if (factsWanted_)
        startFactsPass();
}

void AppModel::selectFile(const std::optional<std::string>& path) {
    std::optional<std::string> match;
    if (path && std::find(wavFiles_.begin(), wavFiles_.end(), *path) != wavFiles_.end())
        match = *path;
    setSelectedFile(std::move(match));
}

void AppModel::loadSelectedSourceWaveform() {
    stopPlayback();
    if (!selectedFile_) {
        write(sourceWaveform_, {}, Field::sourceWaveform);
        write(sourceWavData_, {}, Field::sourceWavData);
        clearGeneratedLoops();
        return;
    }
    try {
        audio::WavData wav = audio::loadWav(*selectedFile_);
        std::vector<double> envelope = audio::waveformEnvelope(wav, envelopePoints);
        write(sourceWavData_, std::optional(std::move(wav)), Field::sourceWavData);
        write(sourceWaveform_, std::move(envelope), Field::sourceWaveform);
        clearGeneratedLoops();
        const audio::WavData& loaded = *sourceWavData_;
        loopTempos_[*selectedFile_] = {chop::estimateTempo(loaded),
                                       audio::frameCount(loaded.pcmData.size(), loaded.blockAlign), loaded.sampleRate};
        notifyFacts(Field::tempo, {*selectedFile_});
        recordLoadedFacts(sourceWavData_, std::nullopt);
        setStatus("Loaded source: " + fileName(*selectedFile_));
    } catch (const std::exception& error) {
        write(sourceWaveform_, {}, Field::sourceWaveform);
        write(sourceWavData_, {}, Field::sourceWavData);
        clearGeneratedLoops();
        recordLoadedFacts(std::nullopt, describe(error));
        setStatus("Error loading source: " + describe(error));
    }
}

void AppModel::clearGeneratedLoops() {
    write(generatedLoops_, {}, Field::generatedLoops);
    if (history_.isShown()) {
        history_.leave();
        notify({Field::runHistory, {}, false});
    }
}

void AppModel::toggleMashupMembership(const std::string& file, bool include) {
    if (include && factsFor(file).refusal)
        return;
    std::set<std::string> paths = mashupSourcePaths_;
    if (include)
        paths.insert(file);
    else
        paths.erase(file);
    write(mashupSourcePaths_, std::move(paths), Field::mashupSourcePaths);
}

// Generation ----------------------------------------------------------------

void AppModel::generate() {
    if (isGenerating_)
        return;
    if (!selectedFile_) {
        setStatus("Select a source loop first.");
        return;
    }
    if (settings_.plan.sliceCount < 4 || settings_.plan.variationCount < 1) {
        setStatus("Slices must be >= 4 and versions >= 1.");
        return;
    }
    RunSettings run = settings_;
    run.mashupMode = mashupMode_;
    run.checkedPaths = mashupSourcePaths_;
    run.selectedPath = *selectedFile_;
    run.tempoOverrides = tempoOverridesRead(run, tempoOverrides_);
    // Only the selected loop's: its meter is the one the tags are written in.
    if (const auto meter = meterOverrides_.find(run.selectedPath); meter != meterOverrides_.end())
        run.meterOverrides.insert(*meter);
    launch(std::move(run), std::nullopt);
}

void AppModel::launch(RunSettings request, std::optional<std::size_t> historyIndex) {
    write(isGenerating_, true, Field::isGenerating);
    stopPlayback();
    setStatus("Generating previews...");
    run_ = std::make_shared<chop::RunProgress>();
    write(generationProgress_, GenerationProgress{0, request.plan.variationCount}, Field::generationProgress);
    // A worker that cannot start must not leave the model busy for good.
    try {
        startGeneration(std::move(request), historyIndex);
    } catch (const std::exception& error) {
        handBackError("Error: " + describe(error));
    }
}

void AppModel::cancelGeneration() {
    if (!isGenerating_)
        return;
    run_->cancelled.store(true);
    run_.reset();
    setStatus("Generation cancelled.");
    write(isGenerating_, false, Field::isGenerating);
}

void AppModel::readGenerationProgress() {
    if (!run_)
        return;
    const std::int64_t done = run_->variationsDone.load(std::memory_order_relaxed);
    if (done == generationProgress_.done)
        return;
    write(generationProgress_, GenerationProgress{done, generationProgress_.total}, Field::generationProgress);
    setStatus("Generating " + std::to_string(done) + " of " + std::to_string(generationProgress_.total) + "...");
}

void AppModel::goBack() {
    bringBack(history_.backTarget());
}

void AppModel::goForward() {
    bringBack(history_.forwardTarget());
}

void AppModel::bringBack(std::optional<std::size_t> historyIndex) {
    if (isGenerating_ || !historyIndex)
        return;
    const RunHistory::Entry& entry = history_.at(*historyIndex);
    if (const auto changed = changedSource(entry)) {
        setStatus("Cannot bring back that run: " + fileName(*changed) + " has changed since.");
        return;
    }
    // The run's own loop, when it is still listed, so that the waveform,
    // the list and the variations agree again.
    const std::string& selected = entry.settings.selectedPath;
    if (selectedFile_ != selected && std::find(wavFiles_.begin(), wavFiles_.end(), selected) != wavFiles_.end())
        setSelectedFile(selected);
    showSettingsOf(entry.settings);
    launch(entry.replaySettings(), historyIndex);
}

void AppModel::showSettingsOf(const RunSettings& settings) {
    // The export options stay the user's: they shape files, not the run.
    changeSettings([&settings](RunSettings& shown) {
        shown.seedText = settings.seedText;
        shown.plan = settings.plan;
        shown.matchFormats = settings.matchFormats;
        shown.matchTempo = settings.matchTempo;
    });
    setMashupMode(settings.mashupMode);
    std::set<std::string> pool;
    for (const std::string& path : settings.checkedPaths)
        if (std::find(wavFiles_.begin(), wavFiles_.end(), path) != wavFiles_.end())
            pool.insert(path);
    write(mashupSourcePaths_, std::move(pool), Field::mashupSourcePaths);
}

void AppModel::startGeneration(RunSettings request, std::optional<std::size_t> historyIndex) {
    platform_.tasks.runInBackground([request = std::move(request), historyIndex, unixSeconds = platform_.unixSeconds,
                                     randomUuid = platform_.randomUuid, &tasks = platform_.tasks, progress = run_,
                                     model = this, alive = std::weak_ptr<char>(lifetime_)]() mutable {
        // Exactly one hand-back unless cancelled, whatever happens; only it
        // touches the model, and only while this run is the model's.
        const auto current = [model, alive, run = std::weak_ptr(progress)] {
            return alive.lock() && model->run_ != nullptr && model->run_ == run.lock();
        };
        std::function<void()> back;
        std::string failedSource;
        try {
            auto result = std::make_shared<GenerationResult>(
                runGeneration(request, unixSeconds, randomUuid, 0, {}, &failedSource, progress.get()));
            const std::string summary = runSummary(result->run, result->loops.size());
            back = [model, current, result, summary, historyIndex] {
                if (current())
                    model->handBack(std::move(*result), summary, historyIndex);
            };
        } catch (const chop::RunCancelled&) {
            // The model went idle when it cancelled: nothing to hand back.
            return;
        } catch (const std::exception& error) {
            // The status keeps its fixed words; which loop of a mashup failed
            // is worth a warning, since the reader's message does not say.
            std::string warning;
            if (request.mashupMode && !request.checkedPaths.empty() && !failedSource.empty())
                warning = "The mashup stopped at " + fileName(failedSource) + ": " + describe(error)
                          + " Untick it in the source list to go on without it.";
            back = [model, current, message = "Error: " + describe(error), warning = std::move(warning)] {
                if (current())
                    model->handBackError(message, warning);
            };
        }
        tasks.runOnMain(std::move(back));
    });
}

void AppModel::handBack(GenerationResult result, std::string summary, std::optional<std::size_t> historyIndex) {
    if (historyIndex) {
        // The sources were checked before the run, but may have changed
        // while it read them.
        const RunHistory::Entry& entry = history_.at(*historyIndex);
        for (std::size_t i = 0; i < result.run.sources.size() && i < entry.sources.size(); ++i) {
            if (result.run.sources[i].sha256 != entry.sources[i].second) {
                handBackError("Cannot bring back that run: " + fileName(entry.sources[i].first) + " has changed since.");
                return;
            }
        }
        for (std::size_t i = 0; i < result.loops.size() && i < entry.ticks.size(); ++i)
            result.loops[i].isSelected = entry.ticks[i];
        history_.show(*historyIndex);
        summary = "Run " + std::to_string(*historyIndex + 1) + " of " + std::to_string(history_.size()) + ": "
                  + summary;
    } else {
        history_.add(result.run, result.loops.size());
    }
    run_.reset();
    // Told with lastRun, which every hand-back that changes the history writes.
    write(lastRun_, std::optional(std::move(result.run)), Field::lastRun);
    if (const std::optional<std::string> mismatch = formatMismatchWarning(*lastRun_))
        setWarning(*mismatch + " Tick Match formats to convert them.");
    write(sourceWavData_, std::optional(std::move(result.reference)), Field::sourceWavData);
    generatedLoops_ = std::move(result.loops);
    notify({Field::generatedLoops, {}, true});
    setStatus(std::move(summary));
    write(isGenerating_, false, Field::isGenerating);
}

void AppModel::handBackError(std::string message, std::string warning) {
    run_.reset();
    if (!warning.empty())
        setWarning(std::move(warning));
    setStatus(std::move(message));
    write(isGenerating_, false, Field::isGenerating);
}

// Export --------------------------------------------------------------------

std::optional<chop::TempoEstimate> AppModel::exportTempo() const {
    if (lastRun_ && !lastRun_->sources.empty())
        return tempoFor(lastRun_->sources.front().path);
    return selectedFile_ ? tempoFor(*selectedFile_) : std::nullopt;
}

audio::Bytes AppModel::exportedBytes(const GeneratedLoop& loop) const {
    return exportedFileBytes(*sourceWavData_, loop.pcmData, loop.placements, settings_.exportOptions.tags,
                             exportTempo());
}

audio::Bytes AppModel::exportedSourceBytes() const {
    return exportedFileBytes(*sourceWavData_, sourceWavData_->pcmData, {}, settings_.exportOptions.tags,
                             selectedFile_ ? tempoFor(*selectedFile_) : std::nullopt);
}

std::optional<std::string> AppModel::writeDragFile(const playback::PlaybackTarget& target, const std::string& folder) {
    const GeneratedLoop* loop = nullptr;
    if (target.kind == playback::PlaybackTarget::Kind::generated) {
        loop = findGeneratedLoop(target.id);
        if (loop == nullptr)
            return std::nullopt;
    }
    if (!sourceWavData_ || !selectedFile_) {
        setStatus("Load a source loop first.");
        return std::nullopt;
    }
    try {
        createFolder(folder);
        const std::string path = joinPath(folder, loop != nullptr ? loop->name : fileName(*selectedFile_));
        writeFileAtomically(path, loop != nullptr ? exportedBytes(*loop) : exportedSourceBytes());
        return path;
    } catch (const std::exception& error) {
        setStatus("Drag failed: " + describe(error));
        return std::nullopt;
    }
}

AppModel::ExportOutcome AppModel::exportSelected() {
    ExportOutcome outcome;
    if (!sourceWavData_) {
        setStatus("Load a source loop first.");
        return outcome;
    }
    std::vector<std::int64_t> numbers;
    for (std::size_t i = 0; i < generatedLoops_.size(); ++i)
        if (generatedLoops_[i].isSelected)
            numbers.push_back(static_cast<std::int64_t>(i + 1));
    if (numbers.empty() || !lastRun_) {
        setStatus("No generated loops selected for export.");
        return outcome;
    }
    setOutputDir(expanded(outputDir_));
    try {
        ExportResult result = exportRun({
            .run = &*lastRun_,
            .loops = generatedLoops_,
            .numbers = std::move(numbers),
            .format = *sourceWavData_,
            .options = settings_.exportOptions,
            .tagTempo = exportTempo(),
            .outputDir = outputDir_,
            .kitDir = joinPath(outputDir_, kitFolderName),
            .manifestPath = joinPath(outputDir_, manifestFileName(*lastRun_)),
            .stopRequested = {},
            .expectedSha256 = {},
        });
        outcome = {true, std::move(result.files), std::move(result.manifest), std::move(result.kitFiles)};
        setStatus(std::move(result.status));
        if (result.skipped)
            setWarning("Exported, but " + *result.skipped + " Type the loop's tempo beside its waveform and export again.");
        else if (!result.trashed.empty() || !result.keptReplaced.empty())
            setWarning(replacedFilesWarning(result));
    } catch (const ExportRefusal& refusal) {
        setStatus(refusal.what());
    } catch (const std::exception& error) {
        setStatus("Export failed: " + describe(error));
    }
    return outcome;
}

void AppModel::toggleSelection(const playback::Uuid& id, bool isSelected) {
    const auto loop = std::find_if(generatedLoops_.begin(), generatedLoops_.end(),
                                   [&](const GeneratedLoop& candidate) { return candidate.id == id; });
    if (loop == generatedLoops_.end())
        return;
    loop->isSelected = isSelected;
    history_.setTick(static_cast<std::size_t>(loop - generatedLoops_.begin()), isSelected);
    notify({Field::generatedLoops, {}, false});
}

// Preview -------------------------------------------------------------------

void AppModel::togglePlayback(const GeneratedLoop& loop) {
    const auto target = playback::PlaybackTarget::generated(loop.id);
    if (playingTarget() == target) {
        stopPlayback();
        setStatus("Stopped preview.");
        return;
    }
    if (!sourceWavData_) {
        setStatus("Load a source loop first.");
        return;
    }
    // The variation plays with the header of the source loaded now.
    startPreview(target, loop.pcmData, "Playing " + loop.name + " (looping). Click again to stop.");
}

void AppModel::toggleSourcePlayback() {
    if (!sourceWavData_) {
        setStatus("Load a source loop first.");
        return;
    }
    if (playingTarget() == playback::PlaybackTarget::source()) {
        stopPlayback();
        setStatus("Stopped source preview.");
        return;
    }
    startPreview(playback::PlaybackTarget::source(), sourceWavData_->pcmData,
                 "Playing source loop (looping). Click again to stop.");
}

void AppModel::startPreview(const playback::PlaybackTarget& target, const audio::Bytes& pcm,
                            std::string playingMessage) {
    // A variation pooled from a source of another format can end in part of
    // a frame, which no player accepts; the preview leaves that part out.
    const std::size_t wholeFrames = pcm.size() - pcm.size() % sourceWavData_->blockAlign;
    std::optional<std::string> failure;
    try {
        failure = preview_.play(target, audio::buildWavFileData(*sourceWavData_, std::span(pcm).first(wholeFrames)),
                                masterVolume_);
    } catch (const std::exception& error) {
        failure = describe(error);
    }
    if (!failure) {
        setStatus(std::move(playingMessage));
        return;
    }
    // The message first, then the stop, so observers see the failure reported
    // before the playback fields are cleared once more.
    setStatus("Playback failed: " + *failure);
    stopPlayback();
}

void AppModel::stopPlayback() {
    preview_.stop();
}

// Operations behind the main window's controls -------------------------------

void AppModel::setAllSelected(bool isSelected) {
    // Ids, not positions: an observer told of one tick may replace the list.
    std::vector<playback::Uuid> ids;
    ids.reserve(generatedLoops_.size());
    for (const GeneratedLoop& loop : generatedLoops_)
        ids.push_back(loop.id);
    for (const playback::Uuid& id : ids)
        toggleSelection(id, isSelected);
}

void AppModel::expandOutputDir() {
    setOutputDir(expanded(outputDir_));
}

const GeneratedLoop* AppModel::findGeneratedLoop(const playback::Uuid& id) const {
    const auto found = std::find_if(generatedLoops_.begin(), generatedLoops_.end(),
                                    [&id](const GeneratedLoop& loop) { return loop.id == id; });
    return found != generatedLoops_.end() ? &*found : nullptr;
}

void AppModel::importFiles(const std::vector<std::string>& files) {
    setSourceDir(expanded(sourceDir_));
    std::vector<std::string> imported;
    std::optional<std::string> firstRefusal;
    for (const std::string& file : files) {
        try {
            imported.push_back(importAudioFile(file, sourceDir_));
        } catch (const std::exception& error) {
            if (!firstRefusal)
                firstRefusal = describe(error);
        }
    }
    if (!imported.empty() && !generatedLoops_.empty()) {
        // Listed without a rescan, which would reload the selection and
        // drop the variations.
        std::vector<std::string> listed = wavFiles_;
        listed.insert(listed.end(), imported.begin(), imported.end());
        sortByFileNameIgnoringCase(listed);
        write(wavFiles_, std::move(listed), Field::wavFiles);
        if (factsWanted_)
            startFactsPass();
    } else if (!imported.empty()) {
        refreshFiles();
        selectFile(imported.front());
    }
    if (!firstRefusal)
        setStatus("Imported " + std::to_string(imported.size()) + " file(s).");
    else if (imported.empty())
        setStatus("Import failed: " + *firstRefusal);
    else
        setStatus("Imported " + std::to_string(imported.size()) + " of " + std::to_string(files.size())
                  + " file(s); import failed: " + *firstRefusal);
}

} // namespace marquetry::model

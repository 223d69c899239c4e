#pragma once

#include "audio/WavData.hpp"
#include "chop/ChopModel.hpp"
#include "chop/TempoEstimate.hpp"
#include "model/GeneratedLoop.hpp"
#include "model/Generation.hpp"
#include "model/RunHistory.hpp"
#include "model/RunSettings.hpp"
#include "model/SourceFacts.hpp"
#include "model/Platform.hpp"
#include "playback/PreviewSession.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace marquetry::model {

/// The state behind the main window and every operation on it. The window
/// reads the fields, writes the settings it shows, and calls the operations;
/// each write of a field tells the observers which one changed.
///
/// Main thread only: every operation and every field write happens there.
/// Operations never throw; they report through `status`. Generation is the
/// one piece of work done elsewhere, on its own copy of the request.
class AppModel {
public:
    enum class Field {
        sourceDir, outputDir, wavFiles, selectedFile, settings, mashupMode, mashupSourcePaths, masterVolume,
        status, isGenerating, sourceWaveform, sourceWavData, generatedLoops, playingTarget, playbackProgress,
        lastRun, tempo, runHistory, sourceFacts, warning, generationProgress,
    };

    /// One change, as observers are told of it: the field written and what
    /// else they need to know of the change.
    struct Change {
        Field field;
        /// sourceFacts and tempo: the loops whose facts or tempo changed;
        /// those of no other loop did.
        std::vector<std::string> paths;
        /// generatedLoops: the list is a finished run's, just published.
        bool runFinished = false;
    };

    /// How far the last generation started has got: variations rendered of
    /// those asked for. Of interest while isGenerating.
    struct GenerationProgress {
        std::int64_t done = 0;
        std::int64_t total = 0;

        bool operator==(const GenerationProgress&) const = default;
    };

    /// What Export Selected did, for callers that need more than the status line.
    struct ExportOutcome {
        bool exported = false;                ///< every ticked variation (and the manifest, if asked) written
        std::vector<std::string> files;       ///< the audio files written, in order
        std::optional<std::string> manifest;  ///< the manifest written, if any
        std::vector<std::string> kitFiles;    ///< the slice kit's files written, if one was asked for
    };

    static constexpr const char* sourceDirKey = "marquetry.defaultSourceDir";
    static constexpr const char* outputDirKey = "marquetry.defaultOutputDir";
    static constexpr const char* defaultSourceDir = "~/Music/Marquetry/Source";
    static constexpr const char* defaultOutputDir = "~/Music/Marquetry/Output";

    /// Restores the folders from the settings (or the defaults), creates
    /// them, and scans the source folder, selecting and decoding its first
    /// loop, or `initialSelection` instead when the scan lists it, so that a
    /// caller who knows which loop it wants decodes no other.
    explicit AppModel(Platform platform, std::optional<std::string> initialSelection = std::nullopt);
    ~AppModel();

    AppModel(const AppModel&) = delete;
    AppModel& operator=(const AppModel&) = delete;

    /// Called after every write of a field, with the change.
    void subscribe(std::function<void(const Change&)> observer);

    // Fields.
    const std::string& sourceDir() const { return sourceDir_; }
    const std::string& outputDir() const { return outputDir_; }
    const std::vector<std::string>& wavFiles() const { return wavFiles_; }
    const std::optional<std::string>& selectedFile() const { return selectedFile_; }
    /// The settings of the next run and export: slices, model, count, seed
    /// text, glitch amount and every option. Selection, Mashup Mode, the
    /// checked loops and tempo corrections are fields of their own, copied
    /// in when a run starts.
    const RunSettings& settings() const { return settings_; }
    bool mashupMode() const { return mashupMode_; }
    const std::set<std::string>& mashupSourcePaths() const { return mashupSourcePaths_; }
    double masterVolume() const { return masterVolume_; }
    const std::string& status() const { return status_; }
    bool isGenerating() const { return isGenerating_; }
    /// Written when a run starts and by readGenerationProgress.
    const GenerationProgress& generationProgress() const { return generationProgress_; }
    const std::vector<double>& sourceWaveform() const { return sourceWaveform_; }
    const std::optional<audio::WavData>& sourceWavData() const { return sourceWavData_; }
    const std::vector<GeneratedLoop>& generatedLoops() const { return generatedLoops_; }
    const std::optional<playback::PlaybackTarget>& playingTarget() const { return preview_.playingTarget(); }
    const std::optional<double>& playbackProgress() const { return preview_.playbackProgress(); }
    /// The last run that succeeded: its settings, the seed it used, its sources and pool.
    const std::optional<RunRecord>& lastRun() const { return lastRun_; }

    /// The tempo of the loop at `path` for this session: the user's
    /// correction when there is one (bars and beats counted over the loop's
    /// length once it has been decoded, else 0), otherwise the estimate made
    /// when it was last decoded; none when neither is known. Bars are counted
    /// in the user's meter when one is set, else in the estimate's. Main thread.
    std::optional<chop::TempoEstimate> tempoFor(const std::string& path) const;
    /// What the list knows of the listed loop at `path` (see
    /// readSourceFactsInBackground); empty until its header has been read.
    /// Main thread.
    SourceFacts factsFor(const std::string& path) const;
    /// Starts reading the facts of every listed loop on a worker, and does
    /// so again after every later scan: the headers of all first, told as
    /// `sourceFacts`, then the tempo of each (a whole decode), told as
    /// `tempo`. A scan drops the facts and tempo estimates of the one before
    /// and ignores what its pass still hands back. Loading a selection records
    /// its facts too, so a file only a whole read refuses is marked then.
    /// The scan itself never waits for any of this. Main thread.
    void readSourceFactsInBackground();
    /// The user's tempo corrections by path, in BPM, for this session.
    const std::map<std::string, double>& tempoOverrides() const { return tempoOverrides_; }
    /// Corrects (or with none, forgets the correction of) the tempo of the
    /// loop at `path`, writing `tempo`. A value outside chop::minTempoBpm to
    /// chop::maxTempoBpm is refused with a status and changes nothing.
    void setTempoOverride(const std::string& path, std::optional<double> bpm);
    /// The user's meter corrections by path, in quarter notes a bar (3 or 4),
    /// for this session.
    const std::map<std::string, std::int64_t>& meterOverrides() const { return meterOverrides_; }
    /// Sets (or with none, forgets) the meter of the loop at `path`: 3 for
    /// 3/4 (and 6/8), 4 for 4/4; tempoFor then counts its bars in that
    /// meter. Writes `tempo`. Any other count changes nothing.
    void setMeterOverride(const std::string& path, std::optional<std::int64_t> beatsPerBar);
    /// The successful runs of this session, for Back and Forward. Changes
    /// are told as Field::runHistory, or as Field::lastRun when a run ends.
    const RunHistory& runHistory() const { return history_; }
    /// The last warning worth more than a glance at the status line (what
    /// an export left out and why, loops pooled in the wrong format, the
    /// file that made a mashup fail), kept until dismissed or replaced by
    /// the next; empty when there is none. The status line still says what
    /// it always said.
    const std::string& warning() const { return warning_; }
    /// Clears the warning. Main thread.
    void dismissWarning();

    // Writes the window makes from its controls; none has a side effect
    // beyond the two noted.
    void setSourceDir(std::string value);
    void setOutputDir(std::string value);
    /// Writes `settings` with `change` made to them, and stores the options
    /// that changed, for the next launch. The caller keeps the values in
    /// their controls' ranges.
    void changeSettings(const std::function<void(RunSettings&)>& change);
    void setMashupMode(bool value);
    /// Also applies the volume to the playing preview at once.
    void setMasterVolume(double value);
    /// Also reloads the selection, even when it is unchanged.
    void setSelectedFile(std::optional<std::string> value);

    // Folders and settings. All main thread.

    /// Asks for a source folder; on a choice writes sourceDir and rescans
    /// (refreshFiles). A cancelled dialog changes nothing.
    void chooseSourceFolder();
    /// Asks for an output folder; on a choice writes outputDir. No status.
    void chooseOutputFolder();
    /// Expands and writes back sourceDir, creates it, stores it as the
    /// default; status "Saved default source folder.".
    void saveSourceAsDefault();
    /// The same for outputDir; status "Saved default output folder.".
    void saveOutputAsDefault();
    /// Shows the expanded outputDir in the file browser; when no file
    /// browser could be started, says so in status.
    void showOutputInFinder();

    // Source discovery and selection. All main thread; each load stops the
    // preview and empties generatedLoops.

    /// Expands sourceDir, rescans it into wavFiles (".wav" in any case, by
    /// lower-cased name), keeps or replaces the selection and reloads it,
    /// drops check marks of files gone. Status "Loaded N WAV file(s).", "No
    /// WAV files found in source folder." or "Could not read source folder.".
    void refreshFiles();
    /// Selects the listed file with exactly this path (none if unlisted),
    /// then loads it.
    void selectFile(const std::optional<std::string>& path);
    /// Decodes the selection into sourceWavData and sourceWaveform; status
    /// "Loaded source: NAME" or "Error loading source: ..."; with no
    /// selection clears both and leaves status alone.
    void loadSelectedSourceWaveform();
    /// Checks (`include`) or unchecks a path for the mashup pool; no status.
    /// A file the reader refuses (see factsFor) is never checked.
    void toggleMashupMembership(const std::string& file, bool include);

    // Generation and export.
    /// Main thread. Refuses with a status and returns at once when busy, with
    /// no selection, or with slices < 4 or versions < 1; otherwise sets
    /// isGenerating, stops the preview, reports "Generating previews..." and
    /// starts one worker on a copy of the settings. Its hand-back, on the
    /// main thread, writes lastRun, sourceWavData, generatedLoops, status and
    /// clears isGenerating, or on failure writes only status ("Error: ...").
    void generate();
    /// Main thread. Stops the running generation: the model is idle again
    /// at once, with the variations, source and history it had before the
    /// run and the status "Generation cancelled."; the worker stops at its
    /// next check and hands back nothing. Does nothing when no run goes.
    void cancelGeneration();
    /// Main thread. Reads how many variations the running generation has
    /// rendered and, when that moved, writes generationProgress and the
    /// status "Generating N of M...". Lock free and cheap, for a front end
    /// to call a few times a second while a run goes; does nothing when none
    /// goes.
    void readGenerationProgress();
    /// Main thread. Bring back the run before the one shown (or the current
    /// run, when a change of source emptied the list) or the one after it:
    /// its variations are generated again from its request and the seed it
    /// used, as generate() does, and get back the ticks they had. Refused,
    /// with only a status naming the file, when a source's bytes have
    /// changed since; ignored while busy or with nowhere to go. The settings
    /// (chop model, slices, variations, seed text, glitch amount, Mashup
    /// Mode and pool, sound options) are set to the run's first, so the
    /// controls show the run whose variations are on screen.
    void goBack();
    void goForward();
    /// Main thread. Writes every ticked variation into outputDir (expanded
    /// and written back) with exportRun and the export options in force:
    /// the manifest beside the files (see manifestFileName), the slice kit
    /// into kitFolderName in the output folder, tags at the run's reference
    /// loop's tempo. Reports exportRun's status, or the refusal, or "Export
    /// failed: ..." in status (nothing written then), and returns the same
    /// as a value.
    ExportOutcome exportSelected();
    /// Main thread. The bytes Export Selected writes for `loop` with the
    /// export options in force. Throws what the WAV writer throws; needs a
    /// loaded source.
    audio::Bytes exportedBytes(const GeneratedLoop& loop) const;
    /// Main thread. The source loop as Export Selected would write it: the
    /// loaded loop in the plain layout, tagged at its own tempo (no cues)
    /// when the exportTags option is on and the tempo is usable. Needs a
    /// loaded source.
    audio::Bytes exportedSourceBytes() const;
    /// Main thread. For a drag out of the window: writes exportedBytes of
    /// the variation `target`, or exportedSourceBytes for the source, into
    /// `folder` (created when missing) under the variation's or the source
    /// file's name, atomically, and returns the path. An unknown variation
    /// gives none; otherwise reports why in status ("Load a source loop
    /// first." or "Drag failed: ...") and returns none. Touches no other
    /// field.
    std::optional<std::string> writeDragFile(const playback::PlaybackTarget& target, const std::string& folder);
    /// Main thread. Sets the export tick of the variation with `id` (one
    /// generatedLoops notification); an unknown id changes nothing.
    void toggleSelection(const playback::Uuid& id, bool isSelected);

    // Preview. All main thread; one stream at a time, looping.

    /// Stops `loop` if it plays ("Stopped preview."), otherwise plays it in
    /// the loaded source's format ("Playing NAME (looping). Click again to
    /// stop." or "Playback failed: ...").
    void togglePlayback(const GeneratedLoop& loop);
    /// The same for the loaded source ("Stopped source preview.", "Playing
    /// source loop (looping). Click again to stop.").
    void toggleSourcePlayback();
    /// Stops any preview and clears playingTarget and playbackProgress; no status.
    void stopPlayback();

    // Operations behind the main window's controls ---------------------------
    // What a control does beyond writing one field, kept here so that the
    // window holds no model logic of its own.

    /// Sets the export tick of every variation to `isSelected`: for each id in
    /// a snapshot of `generatedLoops` taken now, the variation with that id in
    /// the current list, skipping one no longer there. Writes
    /// `generatedLoops`, one notice per variation, one after another; sets no
    /// status. Main thread only.
    void setAllSelected(bool isSelected);
    /// What Return in the output folder field does: replaces `outputDir` by
    /// its tilde-expanded form. Writes `outputDir` (one notice, also when
    /// nothing changed); creates no folder and sets no status. Main thread
    /// only.
    void expandOutputDir();
    /// The variation with `id` in the current list, or null. The pointer is
    /// valid until `generatedLoops` is next written. Main thread only.
    const GeneratedLoop* findGeneratedLoop(const playback::Uuid& id) const;
    /// What Import... and dropping files on the source list do: converts
    /// each of `files` into the (expanded) source folder as a plain WAV (see
    /// importAudioFile), rescans, and selects the first new file; while
    /// variations are shown, the new files are only listed, and the
    /// selection and the variations stay. Status
    /// "Imported N file(s)." or, when any was refused, "Import failed: " and
    /// the first reason (after "Imported N of M file(s); " when some made it).
    /// Decodes on the calling thread. Main thread only.
    void importFiles(const std::vector<std::string>& files);

private:
    template <typename T>
    void write(T& field, T value, Field which);
    void notify(const Change& change);
    void setStatus(std::string text);
    void launch(RunSettings settings, std::optional<std::size_t> historyIndex);
    void startGeneration(RunSettings settings, std::optional<std::size_t> historyIndex);
    void handBack(GenerationResult result, std::string summary, std::optional<std::size_t> historyIndex);
    void bringBack(std::optional<std::size_t> historyIndex);
    void clearGeneratedLoops();
    void handBackError(std::string message, std::string warning = {});
    void setWarning(std::string text);
    // Sets the controls to the settings `request` ran with.
    void showSettingsOf(const RunSettings& settings);
    void startPreview(const playback::PlaybackTarget& target, const audio::Bytes& pcm, std::string playingMessage);
    std::string expanded(const std::string& path) const;
    // The tempo tags and kits are written at: the run's reference loop's.
    std::optional<chop::TempoEstimate> exportTempo() const;

    Platform platform_;
    std::vector<std::function<void(const Change&)>> observers_;

    std::string sourceDir_;
    std::string outputDir_;
    std::vector<std::string> wavFiles_;
    std::optional<std::string> selectedFile_;
    RunSettings settings_;
    bool mashupMode_ = false;
    std::set<std::string> mashupSourcePaths_;
    double masterVolume_ = 0.85;
    std::string status_ = "Ready";
    bool isGenerating_ = false;
    GenerationProgress generationProgress_;
    // The run that goes, shared with its worker; its identity tells that
    // run's hand-back from one of a run cancelled before it, so resetting it
    // drops whatever that worker still hands back.
    std::shared_ptr<chop::RunProgress> run_;
    std::vector<double> sourceWaveform_;
    std::optional<audio::WavData> sourceWavData_;
    std::vector<GeneratedLoop> generatedLoops_;
    std::optional<RunRecord> lastRun_;
    // What each decoded loop's tempo was estimated as, and its length.
    struct LoopTempo {
        std::optional<chop::TempoEstimate> estimate;
        audio::FrameCount frames = 0;
        std::uint32_t sampleRate = 0;
    };
    std::map<std::string, LoopTempo> loopTempos_;
    // What a facts pass found of one loop: its header or refusal, or after
    // a decode its tempo (or the refusal only a whole read finds).
    struct FoundFacts {
        std::string path;
        SourceFacts facts;
        std::optional<LoopTempo> tempo;
    };
    void dropFacts();
    // Tells `which` (sourceFacts or tempo) about the loops at `paths` only.
    void notifyFacts(Field which, std::vector<std::string> paths);
    void startFactsPass();
    void takeFacts(std::vector<FoundFacts> found);
    void recordLoadedFacts(const std::optional<audio::WavData>& loaded, std::optional<std::string> refusal);
    std::map<std::string, SourceFacts> sourceFacts_;
    bool factsWanted_ = false;
    // The running pass: its identity tells its hand-backs from a later
    // pass's, and setting it asks its worker to stop.
    std::shared_ptr<std::atomic<bool>> factsPass_;
    std::map<std::string, double> tempoOverrides_;
    std::map<std::string, std::int64_t> meterOverrides_;
    std::string warning_;
    RunHistory history_;
    playback::PreviewSession preview_;

    // Hand-backs queued by a run check this before touching a model that the
    // window may have closed meanwhile; both run on the main thread.
    std::shared_ptr<char> lifetime_ = std::make_shared<char>();
};

/// Creates `path` (tilde expanded against `homeFolder`) with its parents,
/// ignoring every failure: a missing folder shows up later, when it is read.
void ensureDirectoryExists(const std::string& path, const std::string& homeFolder);

} // namespace marquetry::model

#include "cli/Commands.hpp"

#include "audio/WavReader.hpp"
#include "chop/TempoEstimate.hpp"
#include "model/ErrorText.hpp"
#include "model/Export.hpp"
#include "model/FileSystem.hpp"
#include "model/Generation.hpp"
#include "model/Import.hpp"
#include "model/Manifest.hpp"
#include "model/SystemServices.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace marquetry::cli {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

// A manifest is a few kilobytes per variation; anything near this size is
// not one, and parsing it would cost many times its size in memory.
constexpr std::uintmax_t maxManifestBytes = 64'000'000;

int reportFailure(std::ostream& err, const std::string& status) {
    err << status << '\n';
    return exitFailure;
}

// A status line as the window would show it; a line that cannot be
// written is lost, never the run or the export.
void printStatus(std::ostream& out, const std::string& status) {
    out << status << '\n' << std::flush;
    out.clear();
}

// The output of info and import is what they are run for: a write that
// fails (a full disk, a closed pipe) fails the command.
int finish(std::ostream& out, std::ostream& err, int status) {
    out.flush();
    if (out)
        return status;
    err << "marquetry-cli: cannot write to standard output\n";
    return exitFailure;
}

std::string dumped(const Json& json) {
    // A file name that is not UTF-8 is shown with replacement characters
    // rather than stopping the output half way.
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

// Why the run could not use this path as a source, before it tries: each
// problem in words of its own rather than one "cannot find".
std::optional<std::string> sourcePathProblem(const std::string& file) {
    const fs::path path = model::pathFromText(file);
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error == std::errc::too_many_symbolic_link_levels)
        return "the source file " + model::quoted(file) + " is a loop of symbolic links";
    if (status.type() == fs::file_type::not_found) {
        if (fs::is_symlink(fs::symlink_status(path, error)))
            return "the source file " + model::quoted(file) + " is a symbolic link to nothing";
        return "cannot find the source file " + model::quoted(file);
    }
    if (error)
        return "cannot reach the source file " + model::quoted(file) + ": " + error.message();
    if (status.type() == fs::file_type::directory)
        return model::quoted(file) + " is a folder, not a WAV file";
    if (!model::hasWavExtension(model::fileName(file)))
        return "the source file " + model::quoted(file) + " does not end in .wav; only WAV files can be sources";
    try {
        model::listFolder(model::pathText(path.parent_path()));
    } catch (const std::system_error& failure) {
        return "cannot list the source folder: " + std::string(failure.what());
    }
    return std::nullopt;
}

std::string seedLine(const model::RunRecord& run) {
    std::string line = "Seed of this run: " + std::to_string(run.seed);
    if (!run.seedFromClock())
        return line;
    if (run.settings.seedText.empty())
        return line + " (no seed was given, so the clock chose it)";
    return line + " (the seed text " + model::quoted(run.settings.seedText) + " is not a whole number, so the clock chose it)";
}

// An interrupt while files are being written stops the export between two
// files, so that it publishes nothing and removes its temporaries; the
// signal then ends the program as it would have.
std::atomic<int> stopSignal{0};

class StopOnSignals {
public:
    StopOnSignals() {
        stopSignal = 0;
        for (std::size_t i = 0; i < std::size(signals); ++i) {
            previous[i] = std::signal(signals[i], [](int signal) { stopSignal = signal; });
            // A signal the program was started to ignore (nohup, a job in
            // the background) stays ignored.
            if (previous[i] == SIG_IGN)
                std::signal(signals[i], SIG_IGN);
        }
    }
    ~StopOnSignals() {
        for (std::size_t i = 0; i < std::size(signals); ++i)
            std::signal(signals[i], previous[i]);
        if (const int signal = stopSignal.load(); signal != 0)
            std::raise(signal);
    }
    StopOnSignals(const StopOnSignals&) = delete;
    StopOnSignals& operator=(const StopOnSignals&) = delete;

private:
    static constexpr int signals[] = {SIGINT, SIGTERM
#if defined(SIGHUP)
                                      ,
                                      SIGHUP
#endif
    };
    void (*previous[std::size(signals)])(int) = {};
};

// Generates the run `options` describe from `alreadyRead` (the sources read
// so far) and writes the chosen variations; `expected` are the SHA-256 the
// files must have, for a replay.
int generateAndExport(const GenerateOptions& options, std::map<std::string, model::ReadSource> alreadyRead,
                      const std::map<std::int64_t, std::string>& expected, std::ostream& out, std::ostream& err) {
    const model::RunSettings& settings = options.settings;
    const std::int64_t versions = settings.plan.variationCount;
    if (settings.plan.sliceCount < model::minSliceCount || versions < 1) {
        printStatus(out, "Slices must be >= 4 and versions >= 1.");
        return reportFailure(err, "Slices must be >= 4 and versions >= 1.");
    }
    if (!settings.picks.empty() && settings.picks.back() > versions)
        return reportUsageError(err, "--pick " + std::to_string(settings.picks.back()) + " is beyond the "
                                         + std::to_string(versions) + " variation(s) to be generated",
                                CliArguments::Command::generate);

    printStatus(out, "Generating previews...");
    model::RunSettings run = settings;
    run.tempoOverrides = model::tempoOverridesRead(settings, settings.tempoOverrides);
    model::GenerationResult result;
    try {
        result = model::runGeneration(run, model::systemUnixSeconds, model::osRandomUuid, 0, std::move(alreadyRead));
    } catch (const std::exception& error) {
        const std::string status = "Error: " + model::describe(error);
        printStatus(out, status);
        return reportFailure(err, status);
    }
    printStatus(out, model::runSummary(result.run, result.loops.size()));

    std::vector<std::int64_t> numbers = settings.picks;
    if (numbers.empty())
        for (std::int64_t n = 1; n <= static_cast<std::int64_t>(result.loops.size()); ++n)
            numbers.push_back(n);
    // Tags and kits are written at the run's reference loop's tempo: the
    // replayed one, the user's or the estimate, only asked for when used.
    std::optional<chop::TempoEstimate> tagTempo;
    if (settings.exportOptions.tags || settings.exportOptions.kit) {
        const audio::WavData& reference = result.reference;
        const audio::FrameCount frames = audio::frameCount(reference.pcmData.size(), reference.blockAlign);
        const auto corrected = settings.tempoOverrides.find(settings.selectedPath);
        const auto meter = settings.meterOverrides.find(settings.selectedPath);
        std::optional<double> bpm = options.exportTempo;
        if (!bpm && corrected != settings.tempoOverrides.end())
            bpm = corrected->second;
        // The estimate, where it is still needed for the tempo or the meter.
        const auto estimate = !bpm || meter == settings.meterOverrides.end() ? chop::estimateTempo(reference)
                                                                              : std::nullopt;
        if (!bpm && meter == settings.meterOverrides.end()) {
            tagTempo = estimate;
        } else {
            if (!bpm && estimate)
                bpm = estimate->bpm;
            const std::int64_t beatsPerBar = meter != settings.meterOverrides.end() ? meter->second
                                             : estimate                           ? estimate->beatsPerBar
                                                                                  : 4;
            if (bpm)
                tagTempo = chop::tempoAt(*bpm, frames, reference.sampleRate, beatsPerBar);
        }
    }
    const std::string home = model::systemHomeFolder();
    int status = exitSuccess;
    // Until this function returns: the report of a stopped export is printed
    // before the signal ends the program.
    const StopOnSignals stopOnSignals;
    try {
        const model::ExportResult exported = model::exportRun({
            .run = &result.run,
            .loops = result.loops,
            .numbers = std::move(numbers),
            .format = result.reference,
            .options = settings.exportOptions,
            .tagTempo = tagTempo,
            .outputDir = model::expandTilde(options.outputDir, home),
            .kitDir = options.kitDir ? std::optional(model::expandTilde(*options.kitDir, home)) : std::nullopt,
            .manifestPath = options.manifestPath,
            .stopRequested = [] { return stopSignal.load() != 0; },
            .expectedSha256 = expected,
        });
        printStatus(out, exported.status);
    } catch (const model::ExportRefusal& refusal) {
        printStatus(out, refusal.what());
        status = reportFailure(err, refusal.what());
    } catch (const std::exception& error) {
        const std::string failure = "Export failed: " + model::describe(error);
        printStatus(out, failure);
        status = reportFailure(err, failure);
    }
    err << seedLine(result.run) << '\n';
    if (const auto mismatch = model::formatMismatchWarning(result.run))
        err << "Warning: " << *mismatch << " Use --match-formats to convert the loops to one format.\n";
    return status;
}

} // namespace

int runGenerate(const GenerateOptions& options, std::ostream& out, std::ostream& err) {
    if (const auto problem = sourcePathProblem(options.settings.selectedPath))
        return reportUsageError(err, *problem, CliArguments::Command::generate);
    // The selected loop is read once, here, so that a loop that cannot be
    // read is reported as the window reports it, before the run starts.
    std::map<std::string, model::ReadSource> read;
    try {
        read.emplace(options.settings.selectedPath, model::readSource(options.settings.selectedPath));
    } catch (const std::exception& error) {
        return reportFailure(err, "Error loading source: " + model::describe(error));
    }
    return generateAndExport(options, std::move(read), {}, out, err);
}

int runReplay(const ReplayOptions& options, std::ostream& out, std::ostream& err) {
    const auto refuse = [&err](std::string reason) {
        if (!reason.ends_with('.'))
            reason += '.';
        return reportFailure(err, "Replay refused: " + reason + " Nothing was written.");
    };
    model::Manifest manifest;
    std::map<std::string, model::ReadSource> read;
    try {
        if (const std::uintmax_t size = fs::file_size(model::pathFromText(options.manifestPath));
            size > maxManifestBytes)
            return refuse(options.manifestPath + " is " + model::readableSize(static_cast<double>(size))
                          + ", more than the " + model::readableSize(static_cast<double>(maxManifestBytes))
                          + " a manifest can be");
        const audio::Bytes text = audio::readWholeFile(options.manifestPath);
        manifest = model::parseManifest(std::string_view(reinterpret_cast<const char*>(text.data()), text.size()));
        // Each source is read once: the bytes whose digest is checked are
        // the bytes the run is made of.
        for (const model::SourceRecord& source : manifest.run.sources) {
            model::ReadSource bytes = model::readSource(source.path);
            if (bytes.sha256 != source.sha256)
                return refuse(source.path + " has changed since the manifest was written");
            read.emplace(source.path, std::move(bytes));
        }
    } catch (const fs::filesystem_error& error) {
        return refuse(error.path1().string() + ": " + error.code().message());
    } catch (const std::exception& error) {
        return refuse(model::describe(error));
    }

    GenerateOptions generate;
    generate.settings = manifest.run.settings;
    generate.settings.seedText = std::to_string(manifest.run.seed);
    generate.settings.exportOptions.manifest = false;
    generate.outputDir = options.outputDir;
    generate.exportTempo = manifest.exportRecord.tagTempoBpm;
    generate.settings.meterOverrides[generate.settings.selectedPath] = manifest.exportRecord.tagBeatsPerBar;
    if (manifest.exportRecord.kit)
        generate.kitDir = model::joinPath(options.outputDir, model::kitFolderName);
    return generateAndExport(generate, std::move(read), manifest.variationSha256, out, err);
}

int runImport(const ImportOptions& options, std::ostream& out, std::ostream& err) {
    // Like --output, the folder is made when missing.
    try {
        model::createFolder(options.folder);
    } catch (const std::exception& error) {
        out << "Import failed: " << model::describe(error) << '\n';
        return finish(out, err, exitFailure);
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
    return finish(out, err, status);
}

int runInfo(const InfoOptions& options, std::ostream& out, std::ostream& err) {
    int status = exitSuccess;
    auto array = Json::array();
    for (const std::string& file : options.files) {
        // The header tells the format and length; the samples are read only
        // for a tempo, which nothing longer than a loop has.
        audio::WavData wav;
        audio::FrameCount frames = 0;
        std::optional<chop::TempoEstimate> tempo;
        try {
            const audio::WavHeader header = audio::readWavHeader(file);
            wav = header.format;
            frames = audio::frameCount(header.payloadBytes, wav.blockAlign);
            if (wav.sampleRate != 0 && static_cast<double>(frames) / wav.sampleRate <= chop::maxLoopSeconds) {
                const audio::WavData loaded = audio::loadWav(file);
                tempo = chop::estimateTempo(loaded);
            }
        } catch (const std::exception& error) {
            const std::string message = model::describe(error);
            if (options.json)
                array.push_back({{"file", file}, {"error", message}});
            else // the system's own messages already start with the path
                out << (message.starts_with(file + ": ") ? "" : file + ": ") << message << '\n';
            status = exitFailure;
            continue;
        }
        const double seconds = wav.sampleRate == 0 ? 0.0 : static_cast<double>(frames) / wav.sampleRate;
        if (options.json) {
            array.push_back({{"file", file}, {"frames", frames}, {"sampleRate", wav.sampleRate},
                             {"channels", wav.channels}, {"bitsPerSample", wav.bitsPerSample},
                             {"audioFormat", wav.audioFormat}, {"seconds", seconds},
                             {"bpm", tempo ? Json(tempo->bpm) : nullptr}, {"bars", tempo ? Json(tempo->bars) : nullptr},
                             {"beatsPerBar", tempo ? Json(tempo->beatsPerBar) : nullptr}});
            continue;
        }
        char line[160];
        std::snprintf(line, sizeof line, "%s %u-bit, %u ch, %u Hz, %lld frames, %.3f s, ",
                      wav.audioFormat == audio::formatFloat ? "float" : "PCM", unsigned{wav.bitsPerSample},
                      unsigned{wav.channels}, unsigned{wav.sampleRate}, static_cast<long long>(frames), seconds);
        out << file << ": " << line << (tempo ? chop::tempoText(*tempo) : std::string("tempo unknown")) << '\n';
    }
    if (options.json)
        out << dumped(array) << '\n';
    return finish(out, err, status);
}

} // namespace marquetry::cli

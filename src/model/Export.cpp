#include "model/Export.hpp"

#include "audio/WavWriter.hpp"
#include "model/DawExport.hpp"
#include "model/FileSystem.hpp"
#include "model/Manifest.hpp"
#include "model/Sha256.hpp"
#include "model/Trash.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace marquetry::model {
namespace {

namespace fs = std::filesystem;

// One file of an export on its way: where it goes, its temporary once
// written, and once published its path and the old file it replaced.
struct PendingFile {
    std::string folder;
    std::string name;
    std::string temporary;
    std::string published;
    std::optional<std::string> replaced; ///< a hidden link to the file it replaced, until the export is done
};

// The same text for a path however it was spelled, so that two files of
// one export can be told to collide before either exists.
std::string comparablePath(const std::string& path) {
    std::error_code error;
    const fs::path absolute = fs::absolute(pathFromText(path), error);
    return pathText((error ? pathFromText(path) : absolute).lexically_normal());
}

void requireWritableFolder(const std::string& folder) {
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
        throw std::system_error(std::error_code(errno, std::generic_category()), folder);
}

bool exists(const std::string& path) {
    std::error_code error;
    return fs::symlink_status(pathFromText(path), error).type() != fs::file_type::not_found;
}

// Everything a transaction wrote or moved, undone: temporaries removed,
// published files removed and the files they replaced put back.
void rollBack(std::span<PendingFile> files) {
    for (auto file = files.rbegin(); file != files.rend(); ++file) {
        if (!file->published.empty()) {
            if (file->replaced)
                ::rename(file->replaced->c_str(), file->published.c_str());
            else
                ::unlink(file->published.c_str());
            file->published.clear();
            file->replaced.reset();
        }
        if (!file->temporary.empty())
            ::unlink(file->temporary.c_str());
        file->temporary.clear();
    }
}

// The first Keep both number from `from` under which no name of `names`
// is taken in `folder`.
std::uint64_t freeGroupNumber(const std::string& folder, const std::vector<std::string>& names, std::uint64_t from) {
    for (std::uint64_t n = from;; ++n)
        if (std::none_of(names.begin(), names.end(),
                         [&](const std::string& name) { return exists(joinPath(folder, numberedName(name, n))); }))
            return n;
}

// "" for the first of a group, "-2", "-3", ... after it: what goes before
// each extension of a kit kept beside an earlier one.
std::string groupSuffix(std::uint64_t n) {
    // Appended piece by piece: GCC 12 at -O3 warns falsely (-Wrestrict)
    // about a literal + string temporary here.
    std::string suffix;
    if (n > 1)
        suffix.append("-").append(std::to_string(n));
    return suffix;
}

// Publishes `file` under its name, or under Keep both the first free
// numbered name; a replaced file is first linked to a hidden name so a
// later failure can put it back.
void publish(PendingFile& file, bool keepExisting) {
    if (keepExisting) {
        for (std::uint64_t n = 1;; ++n) {
            const std::string path = joinPath(file.folder, numberedName(file.name, n));
            if (!exists(path) && publishWithoutReplacing(file.temporary, path)) {
                file.published = path;
                break;
            }
        }
    } else {
        const std::string path = joinPath(file.folder, file.name);
        file.replaced = linkTemporaryTo(path);
        publishReplacing(file.temporary, path);
        file.published = path;
    }
    file.temporary.clear();
}

} // namespace

audio::Bytes exportedFileBytes(const audio::WavData& format, std::span<const std::uint8_t> pcm,
                               std::span<const chop::Placement> placements, bool tags,
                               const std::optional<chop::TempoEstimate>& tagTempo) {
    if (!tags || !usableTempo(tagTempo))
        return audio::buildWavFileData(format, pcm);
    return audio::buildWavFileData(format, pcm,
                                   audio::loopTagChunks(loopTagsFor(pcm.size(), placements, format, *tagTempo),
                                                        format, audio::frameCount(pcm.size(), format.blockAlign)));
}

std::string manifestFileName(const RunRecord& run) {
    return variationStem(fileName(run.settings.selectedPath), run.settings.plan.chopModel) + "_manifest.json";
}

ExportResult exportRun(const ExportJob& job) {
    const RunRecord& run = *job.run;
    const ExportOptions& options = job.options;
    const bool tempoUsable = usableTempo(job.tagTempo);
    const bool kitAsked = options.kit && job.kitDir;
    const bool tags = options.tags && tempoUsable;
    const bool kit = kitAsked && tempoUsable;
    const bool manifest = options.manifest && job.manifestPath;

    std::vector<ExportedVariation> chosen;
    for (const std::int64_t number : job.numbers)
        chosen.push_back({number, &job.loops[static_cast<std::size_t>(number - 1)], {}});

    // The kit is made whole first: one that cannot be made costs no file.
    const std::string stem = variationStem(fileName(run.settings.selectedPath), run.settings.plan.chopModel);
    std::vector<const GeneratedLoop*> kitLoops;
    for (const ExportedVariation& variation : chosen)
        kitLoops.push_back(variation.loop);
    std::vector<KitFile> kitFiles;
    if (kit)
        kitFiles = buildSliceKit(kitLoops, job.format, stem, *job.tagTempo);

    std::string manifestFolder;
    if (manifest) {
        manifestFolder = pathText(pathFromText(*job.manifestPath).parent_path());
        if (manifestFolder.empty())
            manifestFolder = ".";
    }

    std::vector<PendingFile> files;
    for (const ExportedVariation& variation : chosen)
        files.push_back({job.outputDir, variation.loop->name, {}, {}, {}});
    const std::size_t firstKitFile = files.size();
    for (const KitFile& file : kitFiles)
        files.push_back({*job.kitDir, file.name, {}, {}, {}});
    if (manifest)
        files.push_back({manifestFolder, fileName(*job.manifestPath), {}, {}, {}});

    std::vector<std::string> targets;
    for (const PendingFile& file : files) {
        const std::string path = joinPath(file.folder, file.name);
        const std::string comparable = comparablePath(path);
        if (std::find(targets.begin(), targets.end(), comparable) != targets.end())
            throw ExportRefusal("Export refused: " + fileName(path) + " would be written twice by this export.");
        targets.push_back(comparable);
        if (options.keepExisting)
            continue; // nothing that exists is replaced
        for (const SourceRecord& source : run.sources)
            if (sameFile(path, source.path) || comparable == comparablePath(source.path))
                throw ExportRefusal("Export refused: " + fileName(path) + " is a source of this run.");
        std::error_code error;
        if (fs::is_directory(pathFromText(path), error))
            throw std::system_error(std::make_error_code(std::errc::is_a_directory), path);
    }

    // Targets and folders are checked before the first byte is written.
    createFolder(job.outputDir);
    requireWritableFolder(job.outputDir);
    if (kit) {
        createFolder(*job.kitDir);
        requireWritableFolder(*job.kitDir);
    }
    if (manifest)
        requireWritableFolder(manifestFolder);
    removeStaleTemporaries(job.outputDir);
    if (kit)
        removeStaleTemporaries(*job.kitDir);
    if (manifest)
        removeStaleTemporaries(manifestFolder);

    ExportResult result;
    if (tags)
        result.tagTempoBpm = job.tagTempo->bpm;
    try {
        const auto writeTemporary = [&](PendingFile& file, std::span<const std::uint8_t> bytes) {
            if (job.stopRequested && job.stopRequested())
                throw ExportRefusal("Export stopped: nothing was written.");
            file.temporary = writeTemporaryFor(joinPath(file.folder, file.name), bytes);
        };
        for (std::size_t i = 0; i < chosen.size(); ++i) {
            const GeneratedLoop& loop = *chosen[i].loop;
            const audio::Bytes bytes = exportedFileBytes(job.format, loop.pcmData, loop.placements, tags, job.tagTempo);
            const auto expected = job.expectedSha256.find(chosen[i].number);
            if (manifest || expected != job.expectedSha256.end())
                chosen[i].sha256 = sha256Hex(bytes);
            if (expected != job.expectedSha256.end() && expected->second != chosen[i].sha256)
                throw ExportRefusal("Export refused: " + loop.name + " (variation " + std::to_string(chosen[i].number)
                                    + ") would not have the bytes its manifest records. Nothing was written.");
            writeTemporary(files[i], bytes);
        }
        const auto writeKit = [&] {
            for (std::size_t k = 0; k < kitFiles.size(); ++k)
                writeTemporary(files[firstKitFile + k], kitFiles[k].bytes);
        };
        std::uint64_t kitNumber = 1;
        if (kit && options.keepExisting) {
            std::vector<std::string> names;
            for (const KitFile& file : kitFiles)
                names.push_back(file.name);
            kitNumber = freeGroupNumber(*job.kitDir, names, 1);
            if (kitNumber > 1)
                kitFiles = buildSliceKit(kitLoops, job.format, stem, *job.tagTempo, groupSuffix(kitNumber));
        }
        writeKit();
        if (manifest) {
            const std::string json =
                manifestJson(run, chosen,
                             ExportRecord{result.tagTempoBpm, kit, options.keepExisting,
                                          tags || kit ? job.tagTempo->beatsPerBar : std::int64_t{4}});
            writeTemporary(files.back(), std::span(reinterpret_cast<const std::uint8_t*>(json.data()), json.size()));
        }

        // Every byte is on disk: publish, the manifest last.
        for (std::size_t i = 0; i < firstKitFile; ++i)
            publish(files[i], options.keepExisting);
        if (kit && options.keepExisting) {
            // A kit's instrument names its slices, so the whole kit takes one
            // number; another export taking one of its names meanwhile moves
            // it on to the next free number, written anew.
            while (true) {
                std::size_t k = 0;
                for (; k < kitFiles.size(); ++k) {
                    PendingFile& file = files[firstKitFile + k];
                    const std::string path = joinPath(file.folder, numberedName(file.name, kitNumber));
                    if (exists(path) || !publishWithoutReplacing(file.temporary, path))
                        break;
                    file.published = path;
                    file.temporary.clear();
                }
                if (k == kitFiles.size())
                    break;
                const auto kitPart = std::span(files).subspan(firstKitFile, kitFiles.size());
                rollBack(kitPart);
                std::vector<std::string> names;
                for (const PendingFile& file : kitPart)
                    names.push_back(file.name);
                kitNumber = freeGroupNumber(*job.kitDir, names, kitNumber + 1);
                kitFiles = buildSliceKit(kitLoops, job.format, stem, *job.tagTempo, groupSuffix(kitNumber));
                writeKit();
            }
        } else {
            for (std::size_t k = 0; k < kitFiles.size(); ++k)
                publish(files[firstKitFile + k], options.keepExisting);
        }
        if (manifest)
            publish(files.back(), options.keepExisting);
    } catch (...) {
        rollBack(files);
        throw;
    }
    // What the export replaced goes to the Trash, so that no keeper is ever
    // lost; where the Trash cannot take it, it stays beside its new version
    // under the next free Keep both name.
    std::string trashRefusal;
    for (PendingFile& file : files) {
        if (!file.replaced)
            continue;
        const TrashOutcome trashed = moveToTrash(*file.replaced, file.published);
        if (trashed) {
            result.trashed.push_back(file.published);
            continue;
        }
        trashRefusal = trashed.failure;
        try {
            for (std::uint64_t n = 2;; ++n) {
                const std::string path = joinPath(file.folder, numberedName(file.name, n));
                if (!exists(path) && publishWithoutReplacing(*file.replaced, path)) {
                    result.keptReplaced.push_back(path);
                    break;
                }
            }
        } catch (const std::system_error&) {
            // The old file still has its hidden name; say where it is.
            result.keptReplaced.push_back(*file.replaced);
        }
    }

    for (std::size_t i = 0; i < files.size(); ++i) {
        if (i < firstKitFile)
            result.files.push_back(files[i].published);
        else if (i < firstKitFile + kitFiles.size())
            result.kitFiles.push_back(files[i].published);
        else
            result.manifest = files[i].published;
    }

    result.status = "Exported " + std::to_string(chosen.size()) + " loop(s) to " + job.outputDir;
    if (kit)
        result.status += " and a slice kit to " + *job.kitDir;
    if (!result.trashed.empty())
        result.status += "; " + std::to_string(result.trashed.size()) + " replaced file(s) moved to the Trash";
    if (!result.keptReplaced.empty())
        result.status += "; " + std::to_string(result.keptReplaced.size()) + " replaced file(s) kept beside them ("
                         + trashRefusal + ")";
    const bool tempoMissing = (options.tags || kitAsked) && !tempoUsable;
    if (tempoMissing) {
        result.skipped = (job.tagTempo ? "the tempo " + chop::tempoText(*job.tagTempo) + " is outside " + chop::tempoRangeText() + " BPM"
                                       : std::string("the loop's tempo is unknown"))
                         + (!kitAsked     ? ", so no tags were written."
                            : options.tags ? ", so no tags and no slice kit were written."
                                           : ", so no slice kit was written.");
        result.status += "; " + *result.skipped;
    }
    return result;
}

} // namespace marquetry::model

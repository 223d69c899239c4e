// Export Selected and the export ticks, on a real output folder, and the
// file writes below it: any name the file system accepts, nothing left
// behind by a writer that dies, and only our own stale leftovers removed.
#include "support/ChildProcess.hpp"
#include "Fakes.hpp"

#include "audio/WavWriter.hpp"
#include "model/DawExport.hpp"
#include "model/Export.hpp"
#include "model/FileSystem.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <thread>

#include <sys/mount.h>

namespace marquetry::model::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;
using audio::test::counting;

// A small file system of its own, unmounted again at the end; none where
// this process may not mount one.
struct ScratchMount {
    std::string path;
    bool mounted = false;
    ScratchMount(std::string at, const char* options, unsigned long flags = 0) : path(std::move(at)) {
        fs::create_directories(path);
        mounted = ::mount("tmpfs", path.c_str(), "tmpfs", flags, options) == 0;
    }
    ~ScratchMount() {
        if (mounted)
            ::umount2(path.c_str(), MNT_DETACH);
    }
};

class AppModelExport : public ModelTest {
protected:
    AppModel& withVariations(std::int64_t count) {
        addLoop("a.wav");
        start().changeSettings([&](model::RunSettings& s) { s.plan.variationCount = count; });
        generate();
        return *model;
    }
    std::string nameOf(std::size_t i) const { return model->generatedLoops().at(i).name; }
    audio::Bytes fileOf(std::size_t i) const {
        return audio::buildWavFileData(*model->sourceWavData(), model->generatedLoops().at(i).pcmData);
    }
};

TEST_F(AppModelExport, RefusesWithoutASourceOrATickAndCreatesNoFolder) {
    AppModel& m = start();
    m.setOutputDir(home + "/out");
    m.exportSelected();
    EXPECT_EQ(m.status(), "Load a source loop first.");

    addLoop("a.wav");
    m.refreshFiles();
    generate();
    // A tick is set, not flipped, and an unknown id sets nothing.
    for (int pass = 0; pass < 2; ++pass)
        for (const GeneratedLoop& loop : std::vector(m.generatedLoops()))
            m.toggleSelection(loop.id, false);
    m.toggleSelection(playback::Uuid{}, true);
    m.exportSelected();
    EXPECT_EQ(m.status(), "No generated loops selected for export.");
    EXPECT_FALSE(fs::exists(home + "/out"));
}

TEST_F(AppModelExport, WritesExactlyTheTickedVariationsIntoTheExpandedFolder) {
    AppModel& m = withVariations(5);
    m.toggleSourcePlayback();
    m.setOutputDir("~/Exports/new");
    for (const std::size_t i : {0u, 1u, 2u, 4u})
        m.toggleSelection(m.generatedLoops()[i].id, false);
    m.toggleSelection(m.generatedLoops()[1].id, true);
    const auto loops = m.generatedLoops();
    m.exportSelected();

    const std::string folder = home + "/Exports/new";
    EXPECT_EQ(m.outputDir(), folder);
    EXPECT_EQ(m.status(), "Exported 2 loop(s) to " + folder);
    EXPECT_THAT(namesIn(folder), ElementsAre(nameOf(1), nameOf(3)));
    for (const std::size_t i : {1u, 3u})
        EXPECT_EQ(audio::readWholeFile(folder + "/" + nameOf(i)), fileOf(i));
    EXPECT_EQ(m.generatedLoops(), loops);
    EXPECT_TRUE(m.playingTarget()) << "export leaves the preview alone";
    EXPECT_THAT(settings.values, IsEmpty());
}

// The file replaced goes to the Trash, to be restored where it was; where
// the Trash cannot take it (another drive), it stays beside the new one.
TEST_F(AppModelExport, ReplacesAnExistingFileWholeAndTrashesTheOldOne) {
    AppModel& m = withVariations(1);
    const audio::Bytes old(2 * fileOf(0).size(), 0xEE);
    addFile(nameOf(0), old, outputFolder());
    const std::string trash = home + "/data/Trash";
    ::setenv("XDG_DATA_HOME", (home + "/data").c_str(), 1);
    m.exportSelected();
    EXPECT_EQ(m.status(), "Exported 1 loop(s) to " + outputFolder() + "; 1 replaced file(s) moved to the Trash");
    EXPECT_EQ(m.warning(), "Replaced " + nameOf(0) + "; the old files are in the Trash.");
    EXPECT_EQ(audio::readWholeFile(outputFolder() + "/" + nameOf(0)), fileOf(0));
    EXPECT_THAT(namesIn(outputFolder()), ElementsAre(nameOf(0)));
    EXPECT_EQ(audio::readWholeFile(trash + "/files/" + nameOf(0)), old);
    EXPECT_THAT(audio::test::readText(trash + "/info/" + nameOf(0) + ".trashinfo"),
                ::testing::HasSubstr("\nPath=" + outputFolder() + "/" + nameOf(0) + "\n"));

    const ScratchMount otherDrive(home + "/drive", "size=8m");
    if (!otherDrive.mounted)
        GTEST_SKIP() << "cannot mount a tmpfs here (" << std::strerror(errno) << ") for a drive without a Trash";
    addFile(nameOf(0), old, otherDrive.path);
    m.setOutputDir(otherDrive.path);
    m.exportSelected();
    EXPECT_THAT(m.status(), ::testing::HasSubstr("; 1 replaced file(s) kept beside them (Cannot move "));
    EXPECT_EQ(audio::readWholeFile(otherDrive.path + "/" + nameOf(0)), fileOf(0));
    const std::string stem = nameOf(0).substr(0, nameOf(0).size() - 4);
    EXPECT_EQ(audio::readWholeFile(otherDrive.path + "/" + stem + "-2.wav"), old);
}

// An export is one transaction: a file that cannot be written publishes
// none, and what the run read is never a target.
TEST_F(AppModelExport, AFailureOrARefusalPublishesNothingAndLeavesNoTemporaries) {
    AppModel& m = withVariations(3);
    fs::create_directories(outputFolder() + "/" + nameOf(1));
    m.exportSelected();
    EXPECT_EQ(m.status(), "Export failed: " + outputFolder() + "/" + nameOf(1) + ": Is a directory");
    EXPECT_THAT(namesIn(outputFolder()), ElementsAre(nameOf(1)));
    EXPECT_THAT(namesIn(outputFolder() + "/" + nameOf(1)), IsEmpty());

    addFile("blocker", {1}, home);
    m.setOutputDir(home + "/blocker/out");
    m.exportSelected();
    EXPECT_EQ(m.status(), "Export failed: " + home + "/blocker/out: Not a directory");

    // The source folder as the output folder, holding a loop named as a
    // variation: the run read it, so it is refused, not replaced.
    fs::remove_all(outputFolder() + "/" + nameOf(1));
    const audio::Bytes source = audio::readWholeFile(sourceFolder() + "/a.wav");
    addFile(nameOf(2), source, sourceFolder());
    m.toggleMashupMembership(sourceFolder() + "/a.wav", true);
    m.toggleMashupMembership(sourceFolder() + "/" + nameOf(2), true);
    m.setMashupMode(true);
    generate();
    m.setOutputDir(sourceFolder());
    m.exportSelected();
    EXPECT_EQ(m.status(), "Export refused: " + nameOf(2) + " is a source of this run.");
    EXPECT_THAT(namesIn(sourceFolder()), ElementsAre("a.wav", nameOf(2)));
    EXPECT_EQ(audio::readWholeFile(sourceFolder() + "/" + nameOf(2)), source);
}

ExportJob jobFor(const AppModel& m, std::string outputDir) {
    std::vector<std::int64_t> all;
    for (std::size_t n = 1; n <= m.generatedLoops().size(); ++n)
        all.push_back(static_cast<std::int64_t>(n));
    return {.run = &*m.lastRun(), .loops = m.generatedLoops(), .numbers = all, .format = *m.sourceWavData(),
            .options = {}, .tagTempo = m.tempoFor(*m.selectedFile()), .outputDir = std::move(outputDir),
            .kitDir = std::nullopt, .manifestPath = std::nullopt, .stopRequested = {}, .expectedSha256 = {}};
}

// A disk that fills up half way, or a kit folder that cannot be written:
// not one file published, not one temporary left.
TEST_F(AppModelExport, AFullDiskOrAReadOnlyKitFolderPublishesNothing) {
    const AppModel& m = withVariations(10); // about 3 MB of files
    const ScratchMount small(home + "/small", "size=2m");
    const ScratchMount readOnly(home + "/readonly", "size=1m", MS_RDONLY);
    if (!small.mounted || !readOnly.mounted)
        GTEST_SKIP() << "cannot mount a tmpfs here (" << std::strerror(errno) << "), which these cases need";

    ExportJob full = jobFor(m, small.path + "/out");
    full.options.manifest = true;
    full.manifestPath = small.path + "/run.json";
    EXPECT_THAT([&] { exportRun(full); }, ThrowsMessage<std::system_error>(::testing::HasSubstr("No space left")));
    EXPECT_THAT(namesIn(small.path), ElementsAre("out"));
    EXPECT_THAT(namesIn(small.path + "/out"), IsEmpty());

    ExportJob kit = jobFor(m, home + "/out");
    kit.options.kit = true;
    kit.kitDir = readOnly.path;
    EXPECT_THAT([&] { exportRun(kit); }, ThrowsMessage<std::system_error>(::testing::HasSubstr("Read-only")));
    EXPECT_THAT(namesIn(home + "/out"), IsEmpty());
}

// Two exports of kits at once under Keep both, again and again: every
// instrument names only slices written with it, each holding its own run's
// audio.
TEST(ExportRun, ConcurrentKeepBothKitsEachPlayTheirOwnSlices) {
    const audio::test::TemporaryFolder folder;
    const std::string loop = audio::test::testLoopPath("amen_s16.wav");
    std::vector<GenerationResult> runs;
    for (const char* seed : {"1", "2"}) {
        RunSettings settings;
        settings.selectedPath = loop;
        settings.seedText = seed;
        settings.plan.chopModel = chop::ChopModel::dice;
        settings.plan.variationCount = 2;
        runs.push_back(runGeneration(settings, [] { return 0; }, [] { return playback::Uuid{}; }));
    }
    const auto tempo = chop::estimateTempo(runs[0].reference);
    const std::string kitDir = folder.path + "/kit";
    const auto exportKit = [&](const GenerationResult& run) {
        return exportRun({.run = &run.run, .loops = run.loops, .numbers = {1, 2}, .format = run.reference,
                          .options = {.manifest = false, .keepExisting = true, .tags = true, .kit = true},
                          .tagTempo = tempo, .outputDir = folder.path + "/out", .kitDir = kitDir,
                          .manifestPath = std::nullopt, .stopRequested = {}, .expectedSha256 = {}});
    };
    for (int round = 0; round < 4; ++round) {
        ExportResult results[2];
        std::thread other([&] { results[1] = exportKit(runs[1]); });
        results[0] = exportKit(runs[0]);
        other.join();
        for (int r = 0; r < 2; ++r) {
            std::vector<const GeneratedLoop*> loops{&runs[r].loops[0], &runs[r].loops[1]};
            const std::vector<KitFile> own = buildSliceKit(loops, runs[r].reference, "x", *tempo);
            const auto sfz = std::find_if(results[r].kitFiles.begin(), results[r].kitFiles.end(),
                                          [](const std::string& path) { return path.ends_with(".sfz"); });
            ASSERT_NE(sfz, results[r].kitFiles.end());
            const std::string text = audio::test::readText(*sfz);
            int slices = 0;
            std::istringstream lines(text);
            for (std::string line; std::getline(lines, line);) {
                // "<region> sample=NAME key=K"
                const std::size_t sample = line.find("sample="), key = line.find(" key=");
                if (sample == std::string::npos || key == std::string::npos)
                    continue;
                const std::string path = kitDir + "/" + line.substr(sample + 7, key - sample - 7);
                EXPECT_NE(std::find(results[r].kitFiles.begin(), results[r].kitFiles.end(), path),
                          results[r].kitFiles.end())
                    << path << " was not written with " << *sfz;
                const std::size_t k = static_cast<std::size_t>(std::stoi(line.substr(key + 5)) - firstKitNote);
                ASSERT_LT(k, own.size());
                EXPECT_EQ(audio::loadWav(path).pcmData, audio::parseWav(own[k].bytes).pcmData) << path;
                ++slices;
            }
            EXPECT_GT(slices, 0);
        }
    }
}

class FileSystemTest : public ModelTest {
protected:
    FileSystemTest() { fs::create_directories(folder); }
    const std::string folder = home + "/out";
};

TEST_F(FileSystemTest, WritesEveryNameTheFileSystemAcceptsAndLeavesNoTemporary) {
    const audio::Bytes bytes = counting(1000);
    std::vector<std::string> names;
    for (const std::size_t length : {5, 220, 254, 255})
        names.push_back(std::string(length - 4, 'n') + ".wav");
    for (const std::string& name : names) {
        writeFileAtomically(folder + "/" + name, bytes);
        EXPECT_EQ(audio::readWholeFile(folder + "/" + name), bytes) << name.size();
    }
    EXPECT_EQ(namesIn(folder), names); // already in sorted order

    const std::string tooLong = folder + "/" + std::string(256, 'n');
    EXPECT_THAT([&] { writeFileAtomically(tooLong, bytes); },
                ThrowsMessage<std::system_error>(tooLong + ": File name too long"));
    EXPECT_EQ(namesIn(folder), names);
}

// A file size limit kills the writer in the middle of its write, as a kill -9
// would: the old file stays whole and no temporary is left.
TEST_F(FileSystemTest, AWriterKilledHalfWayLeavesTheOldFileAndNothingElse) {
    const std::string target = folder + "/loop.wav";
    const audio::Bytes old = counting(100);
    writeFileAtomically(target, old);
    const std::string outcome = audio::test::inChildProcess(
        [&] {
            std::signal(SIGXFSZ, SIG_DFL);
            writeFileAtomically(target, counting(1 << 20));
            return std::string("written");
        },
        {{RLIMIT_FSIZE, 64 << 10}});
    EXPECT_EQ(outcome, "killed by signal " + std::to_string(SIGXFSZ));
    EXPECT_THAT(namesIn(folder), ElementsAre("loop.wav"));
    EXPECT_EQ(audio::readWholeFile(target), old);
}

// Export clears leftovers of its own name pattern whose writer is gone, once
// they have been still for a minute, and any of them still for a day.
TEST_F(FileSystemTest, ExportRemovesOnlyItsOwnStaleTemporaries) {
    const pid_t gone = ::fork();
    if (gone == 0)
        ::_exit(0);
    ::waitpid(gone, nullptr, 0);
    const auto temporary = [](pid_t writer, const char* random) {
        char name[64];
        std::snprintf(name, sizeof name, ".mqtry-%08x%s.tmp", static_cast<unsigned>(writer), random);
        return std::string(name);
    };
    using std::chrono::hours;
    using std::chrono::minutes;
    const struct {
        std::string name;
        fs::file_time_type::duration age;
        bool isFolder;
        bool removed;
    } entries[] = {
        {temporary(gone, "0000000a"), minutes(2), false, true},
        {temporary(gone, "0000000b"), minutes(0), false, false}, // may be a live writer on another machine
        {temporary(::getpid(), "0000000c"), minutes(2), false, false},
        {temporary(::getpid(), "0000000d"), hours(25), false, true},
        {temporary(gone, "0000000e"), hours(25), true, false},
        {".mqtry-0000zzzz0000000f.tmp", hours(25), false, false},
        {".mqtry-00000001000000010.tmp", hours(25), false, false},
        {"keep.wav", hours(25), false, false},
    };
    for (const auto& entry : entries) {
        const std::string path = outputFolder() + "/" + entry.name;
        if (entry.isFolder)
            fs::create_directories(path);
        else
            addFile(entry.name, {1}, outputFolder());
        fs::last_write_time(path, fs::file_time_type::clock::now() - entry.age);
    }

    addLoop("a.wav");
    AppModel& m = start();
    m.changeSettings([&](model::RunSettings& s) { s.plan.variationCount = 1; });
    generate();
    m.exportSelected();
    ASSERT_THAT(m.status(), ::testing::StartsWith("Exported 1 loop(s)"));
    for (const auto& entry : entries)
        EXPECT_EQ(fs::exists(outputFolder() + "/" + entry.name), !entry.removed) << entry.name;
}

TEST_F(AppModelExport, KeepBothNeverTouchesAnExistingFileAndIsRemembered) {
    AppModel& m = withVariations(2);
    m.setOutputDir(outputFolder());
    m.changeSettings([&](model::RunSettings& s) { s.exportOptions.manifest = true; });
    m.changeSettings([&](model::RunSettings& s) { s.exportOptions.keepExisting = true; });
    EXPECT_EQ(settings.values.at("marquetry.option.keepExisting"), "true");
    const std::string stem0 = nameOf(0).substr(0, nameOf(0).size() - 4);
    const std::string manifest = "a_mqtry_grid_manifest.json";
    // Taken names: the first file, its first free name, and the manifest's.
    for (const std::string& name : {nameOf(0), stem0 + "-2.wav", manifest})
        addFile(name, counting(7), outputFolder());

    const AppModel::ExportOutcome outcome = m.exportSelected();
    EXPECT_EQ(m.status(), "Exported 2 loop(s) to " + outputFolder());
    EXPECT_THAT(outcome.files, ElementsAre(outputFolder() + "/" + stem0 + "-3.wav", outputFolder() + "/" + nameOf(1)));
    EXPECT_EQ(outcome.manifest, outputFolder() + "/a_mqtry_grid_manifest-2.json");
    for (const std::string& name : {nameOf(0), stem0 + "-2.wav", manifest})
        EXPECT_EQ(audio::readWholeFile(outputFolder() + "/" + name), counting(7)) << name;
    EXPECT_EQ(audio::readWholeFile(outcome.files[0]), fileOf(0));
    EXPECT_EQ(audio::readWholeFile(outcome.files[1]), fileOf(1));

    // Replace, the default, writes over the names themselves.
    model.reset();
    settings.values.erase("marquetry.option.keepExisting");
    AppModel& next = withVariations(2);
    EXPECT_FALSE(next.settings().exportOptions.keepExisting);
    next.setOutputDir(outputFolder());
    next.exportSelected();
    EXPECT_EQ(audio::readWholeFile(outputFolder() + "/" + nameOf(0)), fileOf(0));
}

} // namespace
} // namespace marquetry::model::test

// Moving a file to the home trash, in a trash of the test's own: the file and
// the record a file manager restores it from, names that collide, and
// refusals that change nothing.
#include "support/TestFiles.hpp"

#include "model/Trash.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <map>

namespace marquetry::model::test {
namespace {

namespace fs = std::filesystem;
using audio::test::namesIn;
using audio::test::readText;
using ::testing::ElementsAre;

// Points XDG_DATA_HOME (and HOME) into a fresh folder for one test.
class Trash : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"XDG_DATA_HOME", "HOME"})
            if (const char* value = std::getenv(name))
                saved_[name] = value;
        ::setenv("XDG_DATA_HOME", (root.path + "/data").c_str(), 1);
        ::setenv("HOME", root.path.c_str(), 1);
    }
    void TearDown() override {
        for (const char* name : {"XDG_DATA_HOME", "HOME"})
            if (saved_.contains(name))
                ::setenv(name, saved_[name].c_str(), 1);
            else
                ::unsetenv(name);
    }

    std::string makeFile(const std::string& path, const std::string& text) {
        fs::create_directories(fs::path(path).parent_path());
        audio::test::writeFile(path, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
        return path;
    }

    audio::test::TemporaryFolder root;

private:
    std::map<std::string, std::string> saved_;
};

int modeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

TEST_F(Trash, MovesTheFileWithARecordOfWhereItWasAndNumbersNamesTaken) {
    const std::string first = makeFile(root.path + "/Out put/100% amen.wav", "first");
    const std::string second = makeFile(root.path + "/other/100% amen.wav", "second");
    const TrashOutcome moved = moveToTrash(first);
    ASSERT_TRUE(moved) << moved.failure;
    ASSERT_TRUE(moveToTrash(second));

    const std::string trash = root.path + "/data/Trash";
    EXPECT_EQ(moved.trashedPath, trash + "/files/100% amen.wav");
    EXPECT_FALSE(fs::exists(first) || fs::exists(second));
    EXPECT_THAT(namesIn(trash + "/files"), ElementsAre("100% amen-2.wav", "100% amen.wav"));
    EXPECT_EQ(readText(trash + "/files/100% amen.wav"), "first");
    EXPECT_EQ(readText(trash + "/files/100% amen-2.wav"), "second");
    EXPECT_THAT(namesIn(trash + "/info"), ElementsAre("100% amen-2.wav.trashinfo", "100% amen.wav.trashinfo"));
    const std::string record = readText(trash + "/info/100% amen.wav.trashinfo");
    const std::string date = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}";
    EXPECT_THAT(record, ::testing::MatchesRegex("\\[Trash Info\\]\nPath=" + root.path
                                                + "/Out%20put/100%25%20amen\\.wav\nDeletionDate=" + date + "\n"));
    EXPECT_THAT(readText(trash + "/info/100% amen-2.wav.trashinfo"),
                ::testing::HasSubstr("Path=" + root.path + "/other/100%25%20amen.wav\n"));
    for (const std::string& folder : {trash, trash + "/files", trash + "/info"})
        EXPECT_EQ(modeOf(folder), 0700) << folder;
    EXPECT_EQ(modeOf(trash + "/info/100% amen.wav.trashinfo"), 0600);
}

TEST_F(Trash, WithoutAnAbsoluteDataHomeUsesTheOneUnderHome) {
    for (const char* dataHome : {"", "relative/data"}) {
        ::setenv("XDG_DATA_HOME", dataHome, 1);
        ASSERT_TRUE(moveToTrash(makeFile(root.path + "/a.wav", "a")));
    }
    EXPECT_THAT(namesIn(root.path + "/.local/share/Trash/files"), ElementsAre("a-2.wav", "a.wav"));
}

TEST_F(Trash, RefusesWhatItCannotMoveAndChangesNothing) {
    fs::create_directories(root.path + "/folder.wav");
    for (const auto& [path, reason] : {std::pair(root.path + "/missing.wav", "No such file or directory."),
                                       std::pair(root.path + "/folder.wav", "it is not a file.")}) {
        const TrashOutcome outcome = moveToTrash(path);
        EXPECT_FALSE(outcome);
        EXPECT_EQ(outcome.failure, "Cannot move " + fs::path(path).filename().string() + " to the Trash: " + reason);
    }
    // A file on another drive stays where it is.
    struct stat shm {}, tmp {};
    if (::stat("/dev/shm", &shm) == 0 && ::stat(root.path.c_str(), &tmp) == 0 && shm.st_dev != tmp.st_dev) {
        const std::string onShm = makeFile("/dev/shm/" + fs::path(root.path).filename().string() + ".wav", "x");
        const TrashOutcome outcome = moveToTrash(onShm);
        EXPECT_THAT(outcome.failure, ::testing::EndsWith(" to the Trash: it is on another drive than the Trash."));
        EXPECT_TRUE(fs::exists(onShm));
        fs::remove(onShm);
    }
    const fs::path info = root.path + "/data/Trash/info";
    EXPECT_TRUE(!fs::exists(info) || fs::is_empty(info));
}

} // namespace
} // namespace marquetry::model::test

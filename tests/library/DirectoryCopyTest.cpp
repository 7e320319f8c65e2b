#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <map>
#include <string>

#include "platform/macos/MacPatchManager.h"
#include "tests/library/FakeAgent.h"

using zelor::test::readFile;
using zelor::test::writeFile;
namespace fs = boost::filesystem;

namespace {

// Relative path to kind, mode, time and content.
std::map<std::string, std::string> tree(const std::string& root) {
    std::map<std::string, std::string> entries;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        struct stat info {};
        lstat(entry.path().c_str(), &info);
        std::string text = std::to_string(info.st_mode) + " " + std::to_string(info.st_mtime) + " ";
        if (S_ISLNK(info.st_mode)) text += "-> " + fs::read_symlink(entry.path()).string();
        if (S_ISREG(info.st_mode)) text += readFile(entry.path().string());
        entries[fs::relative(entry.path(), root).string()] = text;
    }
    return entries;
}

void age(const std::string& path) {
    const struct timespec times[2] = {{1400000000, 0}, {1400000001, 0}};
    utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

class DirectoryCopy : public testing::Test {
  protected:
    DirectoryCopy() {
        const std::string framework = bundle + "/Contents/Frameworks/Kit.framework";
        writeFile(bundle + "/Contents/Info.plist", "plist");
        writeFile(bundle + "/Contents/MacOS/editor", std::string(300000, 'x'));
        chmod((bundle + "/Contents/MacOS/editor").c_str(), 0755);
        writeFile(framework + "/Versions/A/Kit", "kit");
        writeFile(framework + "/Versions/A/_CodeSignature/CodeResources", "signed");
        fs::create_symlink("A", framework + "/Versions/Current");
        fs::create_symlink("Versions/Current/Kit", framework + "/Kit");
        fs::create_symlink("/nowhere/at/all", bundle + "/Contents/dangling");
        fs::create_directory(bundle + "/Contents/empty");
        chmod((bundle + "/Contents/empty").c_str(), 0700);
        writeFile(bundle + "/Contents/hollow", "");
        for (const auto& entry : fs::recursive_directory_iterator(bundle))
            age(entry.path().string());
        age(bundle);
    }
    bool copy(const std::string& to) { return MacPatchManager().copyDir(bundle, to); }

    zelor::test::FakeAgent agent;
    std::string bundle = agent.dir / "mnt/Editor.app";
    std::string applications = agent.dir / "Applications";
};

TEST_F(DirectoryCopy, MakesAnIdenticalBundle) {
    ASSERT_TRUE(copy(applications + "/Editor.app"));
    EXPECT_EQ(tree(agent.dir / "mnt"), tree(applications));
}

TEST_F(DirectoryCopy, ReplacesWhatItBringsAndLeavesTheRest) {
    writeFile(applications + "/Editor.app/Contents/Info.plist", "old and longer");
    chmod((applications + "/Editor.app/Contents/Info.plist").c_str(), 0400);
    writeFile(applications + "/Editor.app/Contents/user.db", "kept");
    fs::create_symlink(agent.dir / "elsewhere", applications + "/Editor.app/Contents/MacOS");
    fs::create_directory(agent.dir / "elsewhere");
    ASSERT_TRUE(copy(applications + "/Editor.app"));
    EXPECT_EQ(readFile(applications + "/Editor.app/Contents/Info.plist"), "plist");
    EXPECT_EQ(readFile(applications + "/Editor.app/Contents/user.db"), "kept");
    EXPECT_TRUE(fs::is_empty(agent.dir / "elsewhere")) << "a link in a directory's place is not followed";
    EXPECT_FALSE(fs::is_symlink(applications + "/Editor.app/Contents/MacOS"));
    for (const auto& entry : tree(applications))
        EXPECT_EQ(entry.first.find(".zelor-copy"), std::string::npos);
}

TEST_F(DirectoryCopy, ADirectoryGivesWayToALink) {
    const std::string installed = applications + "/Editor.app";
    const std::string framework = installed + "/Contents/Frameworks/Kit.framework";
    writeFile(framework + "/Versions/Current/Resources/old", "copied by something that follows links");
    writeFile(agent.dir / "elsewhere/file", "kept");
    fs::create_directory_symlink(agent.dir / "elsewhere", framework + "/Versions/Current/out");
    fs::create_directories(installed + "/Contents/dangling");
    ASSERT_TRUE(copy(installed));
    EXPECT_EQ(tree(bundle), tree(installed));
    EXPECT_EQ(readFile(agent.dir / "elsewhere/file"), "kept");
}

TEST_F(DirectoryCopy, FollowsNoLinkAtTheDestination) {
    writeFile(agent.dir / "elsewhere/file", "kept");
    fs::create_directory(applications);
    for (const std::string target : {"elsewhere", "nowhere"}) {
        const std::string installed = applications + "/Editor.app";
        fs::remove_all(installed);
        fs::create_directory_symlink(agent.dir / target, installed);
        ASSERT_TRUE(copy(installed + "/")) << target;
        EXPECT_EQ(tree(agent.dir / "mnt"), tree(applications)) << target;
    }
    EXPECT_EQ(tree(agent.dir / "elsewhere").size(), 1U);
}

TEST_F(DirectoryCopy, TakesNothingOfOthersFromTheApplicationsDirectory) {
    writeFile(applications + "/Utilities/Terminal.app/Info.plist", "another's");
    fs::create_symlink("Contents", bundle + "/Utilities");
    EXPECT_FALSE(copy(applications + "/"));
    EXPECT_EQ(readFile(applications + "/Utilities/Terminal.app/Info.plist"), "another's");
    fs::rename(applications, agent.dir / "moved");
    fs::create_directory_symlink(agent.dir / "moved", applications);
    EXPECT_FALSE(copy(applications + "/"));
    EXPECT_TRUE(fs::is_symlink(applications));
    EXPECT_EQ(agent.countLogged("ERROR [MacPatchManager] (copyDir) The copy ended early: cannot open '" +
                                applications + "'"),
              1);
}

TEST_F(DirectoryCopy, SaysWhatItCannotDo) {
    EXPECT_FALSE(MacPatchManager().copyDir(agent.dir / "none", applications));
    EXPECT_TRUE(agent.logged("DEBUG", "[MacPatchManager] Source directory " + agent.dir / "none" +
                                          " does not exist or is not a directory."));
    EXPECT_FALSE(copy(applications + "/no/parent"));
    EXPECT_TRUE(agent.logged(
        "DEBUG", "[MacPatchManager] Unable to create destination directory" + applications + "/no/parent"));
    fs::create_directories(applications + "/E/Contents/Info.plist");
    EXPECT_FALSE(copy(applications + "/E"));
    EXPECT_EQ(agent.countLogged("ERROR [MacPatchManager] (copyDir) The copy ended early: cannot replace '" +
                                applications + "/E/Contents/Info.plist'"),
              1);
    ASSERT_EQ(mkfifo((bundle + "/Contents/pipe").c_str(), 0600), 0);
    EXPECT_FALSE(copy(applications + "/F"));
}

TEST_F(DirectoryCopy, DropsSetIdBits) {
    chmod((bundle + "/Contents/MacOS/editor").c_str(), 04755);
    ASSERT_TRUE(copy(applications + "/Editor.app"));
    struct stat info {};
    ASSERT_EQ(stat((applications + "/Editor.app/Contents/MacOS/editor").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755U);
}

TEST_F(DirectoryCopy, ContentIsEmptiedOneLevelDeep) {
    writeFile(agent.contentDir() + "/a.zip", "x");
    writeFile(agent.contentDir() + "/Editor.app/Contents/x", "x");
    fs::create_directory(agent.contentDir() + "/empty");
    MacPatchManager mac;
    mac.emptyTheContentDirectory(agent.contentDir());
    EXPECT_EQ(mac.listFilesInDirectory(agent.contentDir()).size(), 3U)
        << ". and .. and the directory that is not empty";
    EXPECT_TRUE(agent.logged(
        "DEBUG", " [MacPatchManager] Inside emptyTheContentDirectory for dir \"" + agent.contentDir()));
    EXPECT_TRUE(agent.logged("ERROR", " [MacPatchManager] Deletion of the file : '" + agent.contentDir() +
                                          "/Editor.app' failed. Error code = -1"));
    mac.emptyTheContentDirectory(agent.dir / "none");
    EXPECT_TRUE(agent.logged(
        "ERROR", " [MacPatchManager] Opening of the file :" + agent.dir / "none" + "failed. Error code = 2"));
}

}  // namespace

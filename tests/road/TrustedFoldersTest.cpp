#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/TrustedFolder.h"
#include "platform/macos/MacPatchManager.h"
#include "tests/road/Road.h"

using zelor::test::ArchiveBuilder;
using zelor::test::readFile;
using zelor::test::Road;
using zelor::test::writeFile;
namespace fs = boost::filesystem;

namespace {

constexpr uid_t nobody = 65534;

unsigned modeOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : 0;
}

void makeFolder(const std::string& path, mode_t mode) {
    fs::create_directories(path);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
}

std::string beside(const std::string& folder, const std::string& name) {
    return (fs::path(folder).parent_path().parent_path() / name).string();
}

struct Place {
    const char* name;
    const char* cause;  ///< "" when a run takes it
    std::function<void(const std::string& folder)> make;
    const char* suffix = "";
    bool asRoot = false;  ///< takes another user's files, which root alone can make
};

/// What can stand where a content directory is to be: "<base>/above/content".
const std::vector<Place> places = {
    {"missing", "", [](const std::string&) {}},
    {"closed", "", [](const std::string& f) { makeFolder(f, 0700); }},
    {"readable", "", [](const std::string& f) { makeFolder(f, 0755); }},
    {"below a sticky folder", "",
     [](const std::string& f) { makeFolder(fs::path(f).parent_path().string(), 01777); }},
    {"through a link of our own", "",
     [](const std::string& f) {
         makeFolder(beside(f, "real"), 0755);
         fs::remove(fs::path(f).parent_path());
         fs::create_symlink("real", fs::path(f).parent_path());
     }},
    {"group's", "others may write to it", [](const std::string& f) { makeFolder(f, 0770); }},
    {"everybody's", "others may write to it", [](const std::string& f) { makeFolder(f, 0777); }},
    {"sticky", "others may write to it", [](const std::string& f) { makeFolder(f, 01777); }},
    {"a file", "no folder", [](const std::string& f) { writeFile(f, "kept"); }},
    {"a link", "symbolic link", [](const std::string& f) { fs::create_symlink("../aim", f); }},
    {"a link, slash", "symbolic link", [](const std::string& f) { fs::create_symlink("../aim", f); }, "/"},
    {"a link, dot", "symbolic link", [](const std::string& f) { fs::create_symlink("../aim", f); }, "/."},
    {"below an open folder", "is writable by all",
     [](const std::string& f) {
         makeFolder(f, 0700);
         makeFolder(fs::path(f).parent_path().string(), 0777);
     }},
    {"through a link into an open folder", "is writable by all",
     [](const std::string& f) {
         makeFolder(beside(f, "real/deep"), 0755);
         makeFolder(beside(f, "real"), 0777);
         fs::remove(fs::path(f).parent_path());
         fs::create_symlink("real/deep", fs::path(f).parent_path());
     }},
    {"another's", "belongs to another user",
     [](const std::string& f) {
         makeFolder(f, 0700);
         ASSERT_EQ(chown(f.c_str(), nobody, nobody), 0);
     },
     "", true},
    {"below another's", "belongs to another user",
     [](const std::string& f) {
         makeFolder(f, 0700);
         ASSERT_EQ(chown(fs::path(f).parent_path().c_str(), nobody, nobody), 0);
     },
     "", true},
    {"through another's link", "belongs to another user",
     [](const std::string& f) {
         const fs::path above = fs::path(f).parent_path();
         makeFolder(beside(f, "real"), 0755);
         fs::remove(above);
         fs::create_symlink("real", above);
         ASSERT_EQ(lchown(above.c_str(), nobody, nobody), 0);
     },
     "", true},
};

TEST(TrustedFolders, ARunUsesNoContentDirectoryThatOthersHaveAHandIn) {
    for (const Place& place : places) {
        if (place.asRoot && geteuid() != 0) continue;
        SCOPED_TRACE(place.name);
        Road road;
        road.addScript("CCE-1", "mark", "touch '" + road.dir / "ran" + "'");
        const std::string folder = road.dir / "above/content";
        fs::create_directories(road.dir / "above");
        writeFile(road.dir / "aim/theirs", "kept");
        place.make(folder);
        const bool wanted = std::string(place.cause).empty();
        const unsigned mode = fs::is_directory(folder) ? modeOf(folder) : 0700;

        EXPECT_EQ(road.run({{"1||", "CCE-1"}}, folder + place.suffix),
                  (Road::Map{{"1||", wanted ? 4U : 12U}}));
        EXPECT_EQ(fs::exists(road.dir / "ran"), wanted);
        EXPECT_EQ(readFile(road.dir / "aim/theirs"), "kept") << "emptied through a link";
        if (wanted) {
            EXPECT_EQ(modeOf(folder), mode) << "made for this user alone, or left as it was";
            continue;
        }
        const std::string refused = "The content directory '" + folder + place.suffix + "' is ";
        EXPECT_TRUE(road.logged(refused + "refused: ")) << road.log();
        EXPECT_TRUE(road.logged(refused + "not emptied: ")) << road.log();
        EXPECT_TRUE(road.logged(place.cause)) << road.log();
        EXPECT_EQ(road.countAnswers("/patches/"), 0) << "nothing was put there";
    }
}

TEST(TrustedFolders, NothingIsInstalledFromAMountPointOfOthers) {
    Road road;
    writeFile(road.dir / "tools/hdiutil", "#!/bin/sh\nexit 1\n");
    writeFile(road.dir / "tools/installer", "#!/bin/sh\ntouch '" + road.dir / "ran" + "'\necho successful\n");
    for (const char* tool : {"tools/hdiutil", "tools/installer"})
        chmod((road.dir / tool).c_str(), 0755);
    setenv("PATH", (road.dir / "tools:" + getenv("PATH")).c_str(), 1);
    const std::string mountPoint = road.dir / "var/zelor/mountpoint";
    MacPatchManager manager;
    EXPECT_EQ(manager.install3rdPartyPatch("x.dmg", "Example", "dmg"), 0) << "an image without an installer";
    EXPECT_EQ(modeOf(mountPoint), 0700U);
    makeFolder(mountPoint, 0777);
    writeFile(mountPoint + "/Planted.pkg", "x");
    EXPECT_EQ(manager.install3rdPartyPatch("x.dmg", "Example", "dmg"), -1);
    fs::rename(mountPoint, road.dir / "planted");
    chmod((road.dir / "planted").c_str(), 0700);
    fs::create_symlink(road.dir / "planted", mountPoint);
    EXPECT_EQ(manager.install3rdPartyPatch("x.dmg", "Example", "dmg"), -1);
    EXPECT_FALSE(fs::exists(road.dir / "ran"));
    EXPECT_TRUE(road.logged("The mount point '" + mountPoint + "' is refused: it is a symbolic link"));
}

TEST(TrustedFolders, BuffersOfOthersAreNotUsed) {
    Road road;
    road.addContent("CCE-1", "tool.bsh");
    road.addArchive(
        "tool",
        ArchiveBuilder().file("tool.bsh", "exit 0").file("tool.sig", road.key.sign("exit 0")).finish());
    const std::string list = road.dir / "var/zelor/unzip/bufferdPatchesList.txt";
    for (const char* folder : {"var/zelor/unzip", "var/zelor/buffer"}) {
        SCOPED_TRACE(folder);
        RemediationManager job(road.dir / "opt");
        makeFolder(road.dir / folder, 0777);
        job.bufferPatches({{"1||", "CCE-1"}});
        EXPECT_FALSE(fs::exists(list));
        EXPECT_TRUE(road.logged("The folder '" + road.dir / folder + "' is refused: others may write to it"));
        makeFolder(road.dir / folder, 0755);
    }
    writeFile(list, "tool.bsh=00\n");
    writeFile(road.dir / "var/zelor/buffer/tool.zip", "planted");
    makeFolder(road.dir / "var/zelor/buffer", 0777);
    EXPECT_EQ(road.run({{"1||", "CCE-1"}}), (Road::Map{{"1||", 4}})) << "downloaded afresh";
    EXPECT_EQ(readFile(road.dir / "var/zelor/buffer/tool.zip"), "planted");
}

// The record may be linked elsewhere by root; a link, a file or a directory that others can change is
// refused.
TEST(TrustedFolders, TheRecordIsUsedThroughALinkThatOnlyWeCanChange) {
    struct {
        const char* name;
        const char* cause;  ///< "" when the record is used
        std::function<void(const std::string& link, const std::string& target)> change;
        bool asRoot = false;
    } const rows[] = {
        {"ours", "", [](const auto&, const auto&) {}},
        {"a relative link", "",
         [](const auto& link, const auto&) {
             fs::remove(link);
             fs::create_symlink("../../../kept/record", link);
         }},
        {"others may write to the file", "others may write to",
         [](const auto&, const auto& target) { chmod(target.c_str(), 0666); }},
        {"others may replace the file", "others may write to the directory of",
         [](const auto&, const auto& target) { chmod(fs::path(target).parent_path().c_str(), 0775); }},
        {"others may replace the link", "others may write to the directory of",
         [](const auto& link, const auto&) { chmod(fs::path(link).parent_path().c_str(), 0775); }},
        {"a link to a link", "is a link too",
         [](const auto&, const auto& target) {
             fs::rename(target, target + ".far");
             fs::create_symlink(target + ".far", target);
         }},
        {"nothing there", "No such file", [](const auto&, const auto& target) { fs::remove(target); }},
        {"a directory", "is no regular file",
         [](const auto&, const auto& target) {
             fs::remove(target);
             fs::create_directory(target);
         }},
        {"another's link", "the link belongs to another user",
         [](const auto& link, const auto&) { ASSERT_EQ(lchown(link.c_str(), nobody, nobody), 0); }, true},
        {"another's file", "belongs to another user",
         [](const auto&, const auto& target) { ASSERT_EQ(chown(target.c_str(), nobody, nobody), 0); }, true},
    };
    for (const auto& row : rows) {
        if (row.asRoot && geteuid() != 0) continue;
        SCOPED_TRACE(row.name);
        Road road;
        road.addScript("CCE-1", "mark", "exit 0");
        road.addScript("CCE-2", "second", "exit 0");
        const std::string target = road.dir / "kept/record";
        const std::string link = road.dir / "var/log/zelor/ZelorInstalledPatches.txt";
        writeFile(target, "ERI-CCE-1\n");
        fs::create_directories(road.dir / "var/log/zelor");
        fs::create_symlink(target, link);
        row.change(link, target);
        EXPECT_EQ(road.run({{"1||", "CCE-1"}, {"2||", "CCE-2"}}), (Road::Map{{"1||", 4}, {"2||", 4}}));
        const bool used = *row.cause == '\0';
        EXPECT_EQ(road.countAnswers("GET /patches/mark.zip"), used ? 0 : 1);
        EXPECT_TRUE(fs::is_symlink(link));
        if (used) {
            EXPECT_EQ(readFile(target), "ERI-CCE-1\nERI-CCE-2\n");
            EXPECT_FALSE(road.logged("ERROR [Remediation Manager]"));
        } else {
            EXPECT_TRUE(!fs::is_regular_file(target) || readFile(target) == "ERI-CCE-1\n");
            const std::string log = road.log();
            const auto at = log.find("The record " + link + " is not used: it is a symbolic link, and ");
            ASSERT_NE(at, std::string::npos) << log;
            EXPECT_NE(log.substr(at, log.find('\n', at) - at).find(row.cause), std::string::npos) << log;
            EXPECT_TRUE(road.logged("cannot be noted in " + link + ": it is a symbolic link"));
        }
    }
}

}  // namespace

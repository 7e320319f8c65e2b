#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/TrustedDirectory.h"
#include "platform/macos/MacPatchManager.h"
#include "tests/integration/IntegrationFixture.h"

using zelor::test::ArchiveBuilder;
using zelor::test::IntegrationFixture;
using zelor::test::readFile;
using zelor::test::writeFile;
namespace fs = boost::filesystem;

namespace {

constexpr uid_t kNobody = 65534;

unsigned modeOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : 0;
}

void makeDirectory(const std::string& path, mode_t mode) {
    fs::create_directories(path);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
}

std::string beside(const std::string& directory, const std::string& name) {
    return (fs::path(directory).parent_path().parent_path() / name).string();
}

struct Place {
    const char* name;
    const char* cause;  ///< "" when a run takes it
    std::function<void(const std::string& directory)> make;
    const char* suffix = "";
    bool asRoot = false;  ///< needs another user's files, which only root can make
};

/// What can be where a content directory is expected: "<base>/above/content".
const std::vector<Place> kPlaces = {
    {"missing", "", [](const std::string&) {}},
    {"closed", "", [](const std::string& f) { makeDirectory(f, 0700); }},
    {"readable", "", [](const std::string& f) { makeDirectory(f, 0755); }},
    {"below a sticky directory", "",
     [](const std::string& f) { makeDirectory(fs::path(f).parent_path().string(), 01777); }},
    {"through a link of our own", "",
     [](const std::string& f) {
         makeDirectory(beside(f, "real"), 0755);
         fs::remove(fs::path(f).parent_path());
         fs::create_symlink("real", fs::path(f).parent_path());
     }},
    {"group's", "others may write to it", [](const std::string& f) { makeDirectory(f, 0770); }},
    {"everybody's", "others may write to it", [](const std::string& f) { makeDirectory(f, 0777); }},
    {"sticky", "others may write to it", [](const std::string& f) { makeDirectory(f, 01777); }},
    {"a file", "no directory", [](const std::string& f) { writeFile(f, "kept"); }},
    {"a link", "symbolic link", [](const std::string& f) { fs::create_symlink("../aim", f); }},
    {"a link, slash", "symbolic link", [](const std::string& f) { fs::create_symlink("../aim", f); }, "/"},
    {"a link, dot", "symbolic link", [](const std::string& f) { fs::create_symlink("../aim", f); }, "/."},
    {"below an open directory", "is writable by all",
     [](const std::string& f) {
         makeDirectory(f, 0700);
         makeDirectory(fs::path(f).parent_path().string(), 0777);
     }},
    {"through a link into an open directory", "is writable by all",
     [](const std::string& f) {
         makeDirectory(beside(f, "real/deep"), 0755);
         makeDirectory(beside(f, "real"), 0777);
         fs::remove(fs::path(f).parent_path());
         fs::create_symlink("real/deep", fs::path(f).parent_path());
     }},
    {"another's", "belongs to another user",
     [](const std::string& f) {
         makeDirectory(f, 0700);
         ASSERT_EQ(chown(f.c_str(), kNobody, kNobody), 0);
     },
     "", true},
    {"below another's", "belongs to another user",
     [](const std::string& f) {
         makeDirectory(f, 0700);
         ASSERT_EQ(chown(fs::path(f).parent_path().c_str(), kNobody, kNobody), 0);
     },
     "", true},
    {"through another's link", "belongs to another user",
     [](const std::string& f) {
         const fs::path above = fs::path(f).parent_path();
         makeDirectory(beside(f, "real"), 0755);
         fs::remove(above);
         fs::create_symlink("real", above);
         ASSERT_EQ(lchown(above.c_str(), kNobody, kNobody), 0);
     },
     "", true},
};

TEST(TrustedDirectories, ARunUsesNoContentDirectoryThatOthersCanChange) {
    for (const Place& place : kPlaces) {
        if (place.asRoot && geteuid() != 0) continue;
        SCOPED_TRACE(place.name);
        IntegrationFixture fixture;
        fixture.addScript("CCE-1", "mark", "touch '" + fixture.dir / "ran" + "'");
        const std::string directory = fixture.dir / "above/content";
        fs::create_directories(fixture.dir / "above");
        writeFile(fixture.dir / "aim/theirs", "kept");
        place.make(directory);
        const bool wanted = std::string(place.cause).empty();
        const unsigned mode = fs::is_directory(directory) ? modeOf(directory) : 0700;

        EXPECT_EQ(fixture.run({{"1||", "CCE-1"}}, directory + place.suffix),
                  (IntegrationFixture::Map{{"1||", wanted ? 4U : 12U}}));
        EXPECT_EQ(fs::exists(fixture.dir / "ran"), wanted);
        EXPECT_EQ(readFile(fixture.dir / "aim/theirs"), "kept") << "emptied through a link";
        if (wanted) {
            EXPECT_EQ(modeOf(directory), mode) << "made for this user alone, or left as it was";
            continue;
        }
        const std::string refused = "The content directory '" + directory + place.suffix + "' is ";
        EXPECT_TRUE(fixture.logged(refused + "refused: ")) << fixture.log();
        EXPECT_TRUE(fixture.logged(refused + "not emptied: ")) << fixture.log();
        EXPECT_TRUE(fixture.logged(place.cause)) << fixture.log();
        EXPECT_EQ(fixture.countAnswers("/patches/"), 0) << "nothing was put there";
    }
}

TEST(TrustedDirectories, NothingIsInstalledFromAMountPointOfOthers) {
    IntegrationFixture fixture;
    writeFile(fixture.dir / "tools/hdiutil", "#!/bin/sh\nexit 1\n");
    writeFile(fixture.dir / "tools/installer",
              "#!/bin/sh\ntouch '" + fixture.dir / "ran" + "'\necho successful\n");
    for (const char* tool : {"tools/hdiutil", "tools/installer"})
        chmod((fixture.dir / tool).c_str(), 0755);
    setenv("PATH", (fixture.dir / "tools:" + getenv("PATH")).c_str(), 1);
    const std::string mountPoint = fixture.dir / "var/zelor/mountpoint";
    MacPatchManager manager;
    EXPECT_EQ(manager.install3rdPartyPatch("x.dmg", "Example", "dmg"), 0) << "an image without an installer";
    EXPECT_EQ(modeOf(mountPoint), 0700U);
    makeDirectory(mountPoint, 0777);
    writeFile(mountPoint + "/Planted.pkg", "x");
    EXPECT_EQ(manager.install3rdPartyPatch("x.dmg", "Example", "dmg"), -1);
    fs::rename(mountPoint, fixture.dir / "planted");
    chmod((fixture.dir / "planted").c_str(), 0700);
    fs::create_symlink(fixture.dir / "planted", mountPoint);
    EXPECT_EQ(manager.install3rdPartyPatch("x.dmg", "Example", "dmg"), -1);
    EXPECT_FALSE(fs::exists(fixture.dir / "ran"));
    EXPECT_TRUE(fixture.logged("The mount point '" + mountPoint + "' is refused: it is a symbolic link"));
}

TEST(TrustedDirectories, BuffersOfOthersAreNotUsed) {
    IntegrationFixture fixture;
    fixture.addContent("CCE-1", "tool.bsh");
    fixture.addArchive(
        "tool",
        ArchiveBuilder().file("tool.bsh", "exit 0").file("tool.sig", fixture.key.sign("exit 0")).finish());
    const std::string list = fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt";
    for (const char* directory : {"var/zelor/unzip", "var/zelor/buffer"}) {
        SCOPED_TRACE(directory);
        RemediationManager job(fixture.dir / "opt");
        makeDirectory(fixture.dir / directory, 0777);
        job.bufferPatches({{"1||", "CCE-1"}});
        EXPECT_FALSE(fs::exists(list));
        EXPECT_TRUE(fixture.logged("The directory '" + fixture.dir / directory +
                                   "' is refused: others may write to it"));
        makeDirectory(fixture.dir / directory, 0755);
    }
    writeFile(list, "tool.bsh=00\n");
    writeFile(fixture.dir / "var/zelor/buffer/tool.zip", "planted");
    makeDirectory(fixture.dir / "var/zelor/buffer", 0777);
    EXPECT_EQ(fixture.run({{"1||", "CCE-1"}}), (IntegrationFixture::Map{{"1||", 4}})) << "downloaded afresh";
    EXPECT_EQ(readFile(fixture.dir / "var/zelor/buffer/tool.zip"), "planted");
}

// The record may be linked elsewhere by root; a link, a file or a directory that others can change is
// refused.
TEST(TrustedDirectories, TheRecordIsUsedThroughALinkThatOnlyWeCanChange) {
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
         [](const auto& link, const auto&) { ASSERT_EQ(lchown(link.c_str(), kNobody, kNobody), 0); }, true},
        {"another's file", "belongs to another user",
         [](const auto&, const auto& target) { ASSERT_EQ(chown(target.c_str(), kNobody, kNobody), 0); },
         true},
    };
    for (const auto& row : rows) {
        if (row.asRoot && geteuid() != 0) continue;
        SCOPED_TRACE(row.name);
        IntegrationFixture fixture;
        fixture.addScript("CCE-1", "mark", "exit 0");
        fixture.addScript("CCE-2", "second", "exit 0");
        const std::string target = fixture.dir / "kept/record";
        const std::string link = fixture.dir / "var/log/zelor/ZelorInstalledPatches.txt";
        writeFile(target, "ERI-CCE-1\n");
        fs::create_directories(fixture.dir / "var/log/zelor");
        fs::create_symlink(target, link);
        row.change(link, target);
        EXPECT_EQ(fixture.run({{"1||", "CCE-1"}, {"2||", "CCE-2"}}),
                  (IntegrationFixture::Map{{"1||", 4}, {"2||", 4}}));
        const bool used = *row.cause == '\0';
        EXPECT_EQ(fixture.countAnswers("GET /patches/mark.zip"), used ? 0 : 1);
        EXPECT_TRUE(fs::is_symlink(link));
        if (used) {
            EXPECT_EQ(readFile(target), "ERI-CCE-1\nERI-CCE-2\n");
            EXPECT_FALSE(fixture.logged("ERROR [Remediation Manager]"));
        } else {
            EXPECT_TRUE(!fs::is_regular_file(target) || readFile(target) == "ERI-CCE-1\n");
            const std::string log = fixture.log();
            const auto at = log.find("The record " + link + " is not used: it is a symbolic link, and ");
            ASSERT_NE(at, std::string::npos) << log;
            EXPECT_NE(log.substr(at, log.find('\n', at) - at).find(row.cause), std::string::npos) << log;
            EXPECT_TRUE(fixture.logged("cannot be noted in " + link + ": it is a symbolic link"));
        }
    }
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <tuple>

#include "agent/archive/ArchiveExtractor.h"
#include "base/SystemRoot.h"
#include "collaborators/ZipUtils.h"
#include "support/ArchiveBuilder.h"
#include "support/TempDir.h"

namespace zelor::agent {
namespace {

namespace fs = boost::filesystem;
using test::ArchiveBuilder;
using test::patched;
using test::readFile;
using test::TempDir;
using test::withMode;
using test::writeFile;
using testing::HasSubstr;

struct ZipUtilsTest : testing::Test {
    TempDir dir;
    std::string archive = dir / "patch.zip", out = dir / "out";

    ZipUtilsTest() { setSystemRoot(dir / "root"); }
    bool unzip(const std::string& bytes) {
        writeFile(archive, bytes);
        return ZipUtils().Unzip(archive.data(), out.data());
    }
    std::string lastLine() {
        const std::string text = readFile(dir / "root/var/log/zelor/remediation.log");
        return text.substr(text.rfind("\n", text.size() - 2) + 1);
    }
    struct stat statusOf(const std::string& name) {
        struct stat status {};
        EXPECT_EQ(lstat((out + "/" + name).c_str(), &status), 0) << name;
        return status;
    }
    unsigned modeOf(const std::string& name) { return statusOf(name).st_mode & 07777U; }
};

TEST_F(ZipUtilsTest, KeepsContentModesTimesAndInnerLinks) {
    const std::string large(3U << 20U, 'l');
    ASSERT_TRUE(unzip(ArchiveBuilder()
                          .at(1500000000)
                          .file("patch.sig", "signature", 0600)
                          .file("lone.sh", "", 0777)
                          .file("Editor.app/open", "", 0666)
                          .file("Editor.app/Contents/MacOS/editor", large, 0755)
                          .directory("Editor.app/Contents/Locked", 0555)
                          .file("Editor.app/Contents/Locked/read", "only", 0444)
                          .link("Editor.app/Contents/Current", "MacOS/editor")
                          .link("Editor.app/Contents/MacOS/up", "../Locked")
                          .file("caf\xc3\xa9 \n.txt", "")
                          .directory("./")
                          .finish()))
        << lastLine();
    EXPECT_EQ(readFile(out + "/patch.sig"), "signature");
    EXPECT_EQ(readFile(out + "/Editor.app/Contents/Current"), large);
    EXPECT_EQ(readFile(out + "/Editor.app/Contents/MacOS/up/read"), "only");
    EXPECT_TRUE(fs::exists(out + "/caf\xc3\xa9 \n.txt"));
    EXPECT_EQ(modeOf("patch.sig"), 0600U);
    EXPECT_EQ(modeOf("lone.sh"), 0755U) << "no signature covers the mode of a single file";
    EXPECT_EQ(modeOf("Editor.app/open"), 0666U) << "a bundle's covers its modes";
    EXPECT_EQ(modeOf("Editor.app/Contents/MacOS/editor"), 0755U);
    EXPECT_EQ(modeOf("Editor.app/Contents/Locked"), 0555U);
    EXPECT_EQ(modeOf("Editor.app"), 0755U) << "a directory that the archive does not list";
    for (const char* name : {"patch.sig", "Editor.app/Contents/Locked", "Editor.app/Contents/Current"}) {
        EXPECT_EQ(statusOf(name).st_mtime, 1500000000) << name;
    }
    fs::permissions(out + "/Editor.app/Contents/Locked", fs::owner_all);
}

TEST_F(ZipUtilsTest, TakesStoredAndUtf8MarkedArchives) {
    EXPECT_TRUE(unzip(ArchiveBuilder("compression=store").file("s", "stored").finish())) << lastLine();
    EXPECT_EQ(readFile(out + "/s"), "stored");
    EXPECT_TRUE(unzip(ArchiveBuilder("hdrcharset=UTF-8").file("plain", "x").finish())) << lastLine();
    // Bit 11 of an entry's flags, in its own header and in the directory, marks the name as UTF-8.
    std::string marked = ArchiveBuilder().file("\xc3\xa4.pkg", "umlaut").finish();
    marked.at(7) = static_cast<char>(marked.at(7) | 8);
    const auto directory = marked.find("PK\x01\x02");
    marked.at(directory + 9) = static_cast<char>(marked.at(directory + 9) | 8);
    EXPECT_TRUE(unzip(marked)) << lastLine();
    EXPECT_EQ(readFile(out + "/\xc3\xa4.pkg"), "umlaut");
}

TEST_F(ZipUtilsTest, DropsTheBitsThatChangeIdentity) {
    for (const unsigned bits : {04755U, 02755U, 01755U}) {
        ASSERT_TRUE(unzip(withMode(ArchiveBuilder().file("tool", "t").finish(), S_IFREG | bits)));
        EXPECT_EQ(modeOf("tool"), 0755U);
    }
    unzip(withMode(ArchiveBuilder().file("fifo", "f").finish(), S_IFIFO | 0644));
    EXPECT_EQ(statusOf("fifo").st_mode & static_cast<mode_t>(S_IFMT), static_cast<mode_t>(S_IFREG))
        << "the zip reader takes such an entry for a file";
}

TEST_F(ZipUtilsTest, OverwritesFilesAndLinksInPlaceWithoutFollowingThem) {
    writeFile(dir / "outside", "untouched");
    writeFile(out + "/file", "old and longer");
    fs::create_symlink(dir / "outside", out + "/link");
    fs::create_directories(out + "/directory");
    ASSERT_TRUE(unzip(
        ArchiveBuilder().file("file", "new").file("link", "new").directory("directory", 0700).finish()));
    EXPECT_EQ(readFile(out + "/file"), "new");
    EXPECT_EQ(readFile(out + "/link"), "new");
    EXPECT_FALSE(fs::is_symlink(out + "/link"));
    EXPECT_EQ(readFile(dir / "outside"), "untouched");
}

TEST_F(ZipUtilsTest, RefusesHostileArchivesAndLeavesNothing) {
    const std::string two = ArchiveBuilder().file("first", "1").file("name-one", "2").finish();
    const std::string file = ArchiveBuilder().file("device", "").finish();
    const std::string text = "some text that deflate can shorten, shorten, shorten, shorten";
    const std::string stored = ArchiveBuilder("compression=store").file("a", "1").file("crc", text).finish();
    const std::string good = ArchiveBuilder().file("a", "1").file("b", text).finish();
    // The last compressed bytes are just before the data descriptor or the directory.
    const std::string inside = good.substr(good.find("PK\x01\x02") - 40, 8);
    struct Case {
        const char* name;
        std::string bytes;
        const char* reported;
    };
    std::string deep;
    for (int i = 0; i < 64; ++i)
        deep += "d/";
    const Case cases[] = {
        {"traversal", patched(two, "name-one", "../escap"), "\"..\""},
        {"inner traversal", patched(two, "name-one", "a/../../"), "\"..\""},
        {"absolute", patched(two, "name-one", "/escaped"), "absolute"},
        {"link out", ArchiveBuilder().file("a", "1").link("l", "../outside").finish(), "leads out"},
        {"absolute link", ArchiveBuilder().file("a", "1").link("l", "/etc").finish(), "absolute path"},
        {"through a link", ArchiveBuilder().directory("d").link("l", "d").file("l/f", "1").finish(),
         "\"l/f\""},
        {"a file as directory", ArchiveBuilder().file("f", "1").file("f/g", "2").finish(), "\"f/g\""},
        {"a directory as file", ArchiveBuilder().file("d/g", "1").file("d", "2").finish(), "replace"},
        {"device", withMode(file, S_IFCHR | 0644), "device"},
        {"socket", withMode(file, S_IFSOCK | 0644), "device"},
        {"repeated", ArchiveBuilder().file("a", "1").file("a", "2").finish(), "twice"},
        {"repeated otherwise", ArchiveBuilder().file("a/b", "1").file("./a//b", "2").finish(), "twice"},
        {"another case", ArchiveBuilder().file("a", "1").file("A", "2").finish(), "only in case"},
        {"directories' case", ArchiveBuilder().file("d/a", "1").file("D/b", "2").finish(), "only in case"},
        {"deep", ArchiveBuilder().file("a", "1").file(deep + "f", "2").finish(), "too deep"},
        {"encrypted", ArchiveBuilder("encryption=traditional").file("a", "1").finish(), "encrypted"},
        {"changed content", patched(stored, "some text", "SOME text"), "CRC"},
        {"changed compressed content", patched(good, inside, "\xff\xff\xff\xff\xff\xff\xff\xff"), "damaged"},
        {"cut at the end", good.substr(0, good.size() - 1), "damaged"},
        {"cut in the middle", good.substr(0, good.size() / 2), "damaged"},
        {"empty file", "", "damaged"},
        {"another format", "#!/bin/sh\necho not an archive\n", "damaged"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_FALSE(unzip(c.bytes));
        EXPECT_THAT(lastLine(), HasSubstr(c.reported));
        EXPECT_THAT(lastLine(), HasSubstr("[ZipUtils] " + archive));
        EXPECT_TRUE(fs::is_empty(out)) << "what had been created is removed again";
        EXPECT_FALSE(fs::exists(dir / "escap"));
        fs::remove_all(out);
    }
}

TEST_F(ZipUtilsTest, RefusalKeepsWhatWasThereBefore) {
    writeFile(out + "/kept/old", "old");
    const auto archiveBytes =
        ArchiveBuilder().file("kept/new", "1").file("more/x", "2").link("l", "..").finish();
    EXPECT_FALSE(unzip(archiveBytes));
    EXPECT_EQ(readFile(out + "/kept/old"), "old");
    EXPECT_FALSE(fs::exists(out + "/kept/new"));
    EXPECT_FALSE(fs::exists(out + "/more"));
}

TEST_F(ZipUtilsTest, NeverWritesThroughALinkThatStoodBefore) {
    fs::create_directories(dir / "outside");
    fs::create_directories(out);
    fs::create_symlink(dir / "outside", out + "/sub");
    EXPECT_TRUE(unzip(ArchiveBuilder().file("sub/f", "1").finish())) << lastLine();
    EXPECT_TRUE(fs::is_empty(dir / "outside"));
    EXPECT_FALSE(fs::is_symlink(out + "/sub"));
    EXPECT_EQ(readFile(out + "/sub/f"), "1");
}

TEST_F(ZipUtilsTest, ItsEntriesReplaceExistingOnesCompletely) {
    writeFile(out + "/patch.pkg/left/behind", "a directory in a file's place");
    writeFile(out + "/Editor.app", "a file in a directory's place");
    writeFile(out + "/Bundle.app/Contents/old", "no longer in the bundle");
    writeFile(out + "/Closed.app/in", "old");
    writeFile(out + "/other/stays", "stays");
    fs::permissions(out + "/Closed.app", fs::owner_read | fs::owner_exe);
    ASSERT_TRUE(unzip(ArchiveBuilder()
                          .file("patch.pkg", "package")
                          .file("Editor.app/Contents/editor", "editor")
                          .file("Bundle.app/Contents/new", "new")
                          .directory("Closed.app", 0555)
                          .file("Closed.app/in", "new")
                          .finish()))
        << lastLine();
    EXPECT_EQ(readFile(out + "/patch.pkg"), "package");
    EXPECT_EQ(readFile(out + "/Editor.app/Contents/editor"), "editor");
    EXPECT_EQ(readFile(out + "/Bundle.app/Contents/new"), "new");
    EXPECT_FALSE(fs::exists(out + "/Bundle.app/Contents/old"));
    EXPECT_EQ(readFile(out + "/Closed.app/in"), "new");
    EXPECT_EQ(modeOf("Closed.app"), 0555U);
    EXPECT_EQ(readFile(out + "/other/stays"), "stays");
    EXPECT_EQ(std::distance(fs::directory_iterator(out), fs::directory_iterator()), 5)
        << "nothing private is left";
    fs::permissions(out + "/Closed.app", fs::owner_all);
}

/// Changes the method of packing of the n-th entry: in its own header, in the directory, or both.
std::string withMethod(std::string zip, int entry, int method, bool header, bool directory) {
    for (const auto& [mark, at, change] :
         {std::tuple{"PK\x03\x04", 8, header}, std::tuple{"PK\x01\x02", 10, directory}}) {
        std::size_t found = zip.find(mark);
        for (int i = 0; i < entry; ++i)
            found = zip.find(mark, found + 1);
        if (change) zip.at(found + static_cast<std::size_t>(at)) = static_cast<char>(method);
    }
    return zip;
}

TEST_F(ZipUtilsTest, OnlyStoredAndDeflatedEntriesAreUnpacked) {
    const std::string files = ArchiveBuilder().file("a", "1").file("b", "2").finish();
    const std::string links = ArchiveBuilder().file("a", "1").link("l", "a").finish();
    for (const int method : {9, 12, 14, 93, 95, 98, 99}) {
        for (const std::string& zip : {files, links}) {
            EXPECT_FALSE(unzip(withMethod(zip, 1, method, true, true)));
            EXPECT_THAT(lastLine(), HasSubstr("is packed with method " + std::to_string(method)));
            EXPECT_TRUE(fs::is_empty(out));
        }
    }
    EXPECT_FALSE(unzip(withMethod(files, 1, 14, true, false)));
    EXPECT_THAT(lastLine(), HasSubstr("is packed with method 14"));
    EXPECT_FALSE(unzip(withMethod(files, 1, 14, false, true)));
    EXPECT_THAT(lastLine(), HasSubstr("is packed with method 14"));
    EXPECT_FALSE(unzip(withMethod(files, 0, 0, true, false)));
    EXPECT_THAT(lastLine(), HasSubstr("two methods"));
    // Readers look for the last end of a directory, and for a directory that may be moved.
    const std::string hidden = withMethod(files, 1, 14, true, true);
    for (const std::string& zip : {hidden + files, files + hidden, "x" + files, files + "x"}) {
        EXPECT_FALSE(unzip(zip));
        EXPECT_THAT(lastLine(), HasSubstr("damaged or no zip archive"));
    }
}

TEST_F(ZipUtilsTest, RefusesMissingAndLinkedArchives) {
    EXPECT_FALSE(ZipUtils().Unzip(archive.data(), out.data()));
    EXPECT_THAT(lastLine(), HasSubstr("No such file"));
    writeFile(dir / "real.zip", ArchiveBuilder().file("a", "1").finish());
    fs::create_symlink("real.zip", archive);
    EXPECT_FALSE(ZipUtils().Unzip(archive.data(), out.data()));
    EXPECT_FALSE(ZipUtils().Unzip(nullptr, out.data()));
}

TEST_F(ZipUtilsTest, KeepsToTheLimits) {
    ExtractionLimits limits;
    limits.entries = 3;
    limits.ratio = 2;
    limits.ratioAllowance = 1000;
    const auto refusal = [&](const std::string& bytes) -> std::string {
        writeFile(archive, bytes);
        try {
            ArchiveExtractor(limits).extract(archive, out);
            return "";
        } catch (const std::exception& e) {
            EXPECT_TRUE(fs::is_empty(out));
            return e.what();
        }
    };
    EXPECT_EQ(
        refusal(ArchiveBuilder().directory("1").file("1/2", "").file("3", std::string(900, 'z')).finish()),
        "");
    fs::remove_all(out);
    EXPECT_THAT(
        refusal(ArchiveBuilder().directory("1").file("1/2", "").directory("3").directory("4").finish()),
        HasSubstr("\"4/\" is one more"));
    EXPECT_THAT(refusal(ArchiveBuilder().file("1", "").file("bomb", std::string(1U << 20U, 'z')).finish()),
                HasSubstr("plausibly"));
    limits.ratio = 1U << 20U;
    limits.unpackedBytes = 10;
    EXPECT_THAT(refusal(ArchiveBuilder().file("1", "12345").file("2", "123456").finish()),
                HasSubstr("\"2\" unpacks to more than the limit"));
    limits.unpackedBytes = 1000;
    limits.freeMargin = ~0ULL;
    EXPECT_THAT(refusal(ArchiveBuilder().file("1", "1").finish()), HasSubstr("room"));
}

}  // namespace
}  // namespace zelor::agent

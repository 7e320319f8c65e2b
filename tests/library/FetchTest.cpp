#include <gtest/gtest.h>

#include "remediation/RemediationManager.h"
#include "remediation/buffer/BufferedList.h"
#include "tests/library/FakeAgent.h"

using zelor::test::readFile;
using zelor::test::writeFile;

namespace {

class Fetch : public testing::Test {
  protected:
    Fetch() { manager.setContentDownloadDir(agent.contentDir()); }
    std::string fetch(const std::string& name, const std::string& md5 = "0123") {
        return manager.getFileFromRepo(name, "key", md5, usedBuffer);
    }
    unsigned long progress() {
        const auto map = manager.getRemediationProgressMap();
        return map.count("key") == 0 ? 99 : map.at("key");
    }
    bool usedBuffer = true;
    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(Fetch, DownloadsUnpacksAndVerifies) {
    agent.addFile("a.b.c.sh", "text");
    const std::string path = fetch("a.b.c.sh");
    EXPECT_EQ(path, agent.contentDir() + "/a.b.c.sh");
    EXPECT_EQ(readFile(path), "text");
    EXPECT_TRUE(boost::filesystem::exists(agent.contentDir() + "/a.b.c.sig"));
    EXPECT_FALSE(usedBuffer);
    EXPECT_EQ(progress(), 2U);
    EXPECT_EQ(agent.calls, (std::vector<std::string>{"download a.b.c"}));
    EXPECT_TRUE(agent.logged(
        "DEBUG", " [Remediation Manager] Inside getFileFromRepo: File to download is : a.b.c.sh"));
}

TEST_F(Fetch, SaysWhyThereIsNoFile) {
    agent.addFile("bad.sh", "text", false);
    EXPECT_EQ(fetch("none.sh"), "");
    EXPECT_EQ(progress(), 1U);
    EXPECT_TRUE(
        agent.logged("ERROR", " [Remediation Manager] Inside getFileFromRepo: GetResource returned NULL. "));
    EXPECT_EQ(fetch("bad.sh"), "");
    EXPECT_EQ(progress(), 2U);
    EXPECT_TRUE(
        agent.logged("ERROR", "[Remediation Manager] File Signature Verfication Failed! File Name is: " +
                                  agent.contentDir() + "/bad.sh"));
    EXPECT_TRUE(boost::filesystem::exists(agent.contentDir() + "/bad.sh"));
}

TEST_F(Fetch, RefusesNamesThatCouldLeaveTheDirectory) {
    for (const char* name : {"noextension", "../../etc/x.sh", "a/b.sh", ".", "..", "", "a\nb.sh"}) {
        EXPECT_EQ(fetch(name), "") << name;
    }
    EXPECT_EQ(agent.countLogged("is refused: "), 7);
    EXPECT_TRUE(agent.calls.empty());
    EXPECT_EQ(progress(), 99U);
}

TEST_F(Fetch, TakesABufferedCopyOfTheSameVersion) {
    agent.bufferFile("tool.pkg", "buffered");
    writeFile(agent.listPath(), "tool.pkg=0123\n");
    EXPECT_EQ(readFile(fetch("tool.pkg")), "buffered");
    EXPECT_TRUE(usedBuffer);
    EXPECT_EQ(progress(), 2U);
    EXPECT_TRUE(agent.calls.empty());

    agent.addFile("tool.pkg", "downloaded");
    EXPECT_EQ(readFile(fetch("tool.pkg", "4567")), "downloaded");
    EXPECT_FALSE(usedBuffer);
}

// What was verified before does not pass for the content of an archive that has another file.
TEST_F(Fetch, TakesNoLeftoverForWhatAnArchiveShouldHold) {
    agent.addFile("tool.pkg", "older");
    ASSERT_EQ(readFile(fetch("tool.pkg")), "older");
    writeFile(agent.contentDir() + "/Edit.app/Contents/older", "x");
    writeFile(agent.contentDir() + "/Edit.sig", "good");
    writeFile(agent.listPath(), "tool.pkg=0123\nEdit.app=0123\n");
    for (const std::string stem : {"tool", "Edit"})
        writeFile(agent.bufferDir() + "/" + stem + ".zip", "other.sh\ngood\nx");
    EXPECT_EQ(fetch("tool.pkg"), "");
    EXPECT_EQ(fetch("Edit.app"), "");
    EXPECT_EQ(agent.countLogged("File Signature Verfication Failed"), 2);
}

TEST_F(Fetch, ADirectoryThatAnotherArchiveLeftGivesWay) {
    agent.addFile("tool.pkg", "text");
    for (const std::string name : {"tool.zip", "tool.pkg"})
        writeFile(agent.contentDir() + '/' + name + "/in/the/way", "x");
    EXPECT_EQ(readFile(fetch("tool.pkg")), "text");
}

TEST_F(Fetch, GivesUpWhenTheRunIsCancelled) {
    agent.addFile("tool.sh", "text");
    agent.beforeDownload = [this](const std::string&) { manager.setCancelAllRem(true); };
    EXPECT_EQ(fetch("tool.sh"), "");
    EXPECT_FALSE(boost::filesystem::exists(agent.contentDir() + "/tool.sh"));
}

TEST_F(Fetch, SurvivesADownloaderThatThrows) {
    agent.beforeDownload = [](const std::string&) { throw std::runtime_error("broken"); };
    EXPECT_EQ(fetch("tool.sh"), "");
    EXPECT_EQ(agent.countLogged("The download ended with an error: broken"), 1);
}

TEST(BufferedLines, Match) {
    struct {
        std::string line, name, md5;
        bool matches;
    } rows[] = {
        {"foo.pkg=01", "foo.pkg", "01", true},  {"barfoo.pkg=01", "foo.pkg", "01", true},
        {"foo.pkg=01", "foo.pkg", "02", false}, {"foo.pkg", "foo.pkg", "", false},
        {"foo.pkg==01", "foo.pkg", "01", true}, {"foo.pkg=01=02", "foo.pkg", "02", false},
        {"foo.pkg=AB", "foo.pkg", "ab", false}, {"foo.pk=01", "foo.pkg", "01", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(zelor::remediation::bufferedLineMatches(row.line, row.name, row.md5), row.matches)
            << row.line;
    }
}

class BufferedPatches : public Fetch {
  protected:
    bool buffered(const std::string& name, const std::string& md5) {
        return manager.patchIsAlreadyBuffered(name, md5, agent.listPath());
    }
};

TEST_F(BufferedPatches, AreFoundWhileTheirArchiveIsThere) {
    EXPECT_FALSE(buffered("foo.pkg", "01"));
    agent.bufferFile("foo.pkg", "x");
    manager.addPatchBufferedEntry("foo.pkg", "01", agent.listPath());
    EXPECT_TRUE(buffered("foo.pkg", "01"));
    EXPECT_FALSE(buffered("foo.pkg", "02"));
    boost::filesystem::remove(agent.bufferDir() + "/foo.zip");
    EXPECT_FALSE(buffered("foo.pkg", "01"));
}

TEST_F(BufferedPatches, AreReadAgainOnlyWhenTheListChanged) {
    agent.bufferFile("foo.pkg", "x");
    writeFile(agent.listPath(), "barfoo.pkg=01\n\nno entry\nfoo.pkg=02");
    boost::filesystem::last_write_time(agent.listPath(), 1);
    EXPECT_TRUE(buffered("foo.pkg", "01") && buffered("foo.pkg", "02"));
    EXPECT_FALSE(buffered("foo.pkg", "03") || buffered("foo.pkg\n", "01") || buffered("none.pkg", "01"));
    zelor::test::replaceUnseen(agent.listPath(), "barfoo.pkg=03\n\nno entry\nfoo.pkg=03");
    EXPECT_TRUE(buffered("foo.pkg", "01"));
    boost::filesystem::last_write_time(agent.listPath(), 2);
    EXPECT_TRUE(buffered("foo.pkg", "03")) << "changed by another process";
    ASSERT_EQ(chmod(agent.bufferDir().c_str(), 0777), 0);
    EXPECT_FALSE(buffered("foo.pkg", "03")) << "others can modify the archives since";
    ASSERT_EQ(chmod(agent.bufferDir().c_str(), 0755), 0);
    boost::filesystem::remove(agent.listPath());
    EXPECT_FALSE(buffered("foo.pkg", "03"));
}

TEST_F(BufferedPatches, HaveOneLineEachTheNewestLast) {
    manager.addPatchBufferedEntry("foo.pkg", "01", agent.listPath());
    manager.addPatchBufferedEntry("bar.pkg", "02", agent.listPath());
    manager.addPatchBufferedEntry("foo.pkg", "03", agent.listPath());
    EXPECT_EQ(readFile(agent.listPath()), "bar.pkg=02\nfoo.pkg=03\n");
    EXPECT_FALSE(boost::filesystem::exists(agent.unzipDirectory() + "/newTempFile"));
}

TEST_F(BufferedPatches, ShareTheFateOfNamesThatContainThem) {
    writeFile(agent.listPath(), "barfoo.pkg=01\nother.pkg=02\nfoo.pkg=03\n");
    agent.bufferFile("foo.pkg", "x");
    manager.cleanupBufferedPatch("foo.pkg", "/content/foo.pkg");
    EXPECT_EQ(readFile(agent.listPath()), "other.pkg=02\n");
    EXPECT_FALSE(boost::filesystem::exists(agent.bufferDir() + "/foo.zip"));
}

TEST_F(BufferedPatches, KeepWhatAnInterruptedRewriteLeft) {
    writeFile(agent.unzipDirectory() + "/newTempFile", "left.pkg=01\ntorn.p");
    writeFile(agent.listPath(), std::string("k\xe9pt.pkg=02\ngone.pkg=03\n\0\0\nalso to", 34));
    manager.removeEntryFromBufferedPatchesFile("gone.pkg");
    EXPECT_EQ(readFile(agent.listPath()), "left.pkg=01\nk\xe9pt.pkg=02\nalso to\n")
        << "every line is copied, in whatever encoding; a torn end of the temporary file is not";
    EXPECT_EQ(agent.countLogged(" has no end; it counts as it stands."), 1);
    EXPECT_EQ(agent.countLogged("had damaged lines; they are left out."), 1);
}

TEST_F(BufferedPatches, AMissingListIsTolerated) {
    manager.removeEntryFromBufferedPatchesFile("foo.pkg");
    EXPECT_TRUE(
        agent.logged("DEBUG",
                     "[Remediation Manager] (removeEntryFromBufferedPatchesFile) Exception while removing "
                     "entry from bufferedPatchesList.txt "));
    boost::filesystem::remove_all(agent.unzipDirectory());
    manager.addPatchBufferedEntry("foo.pkg", "01", agent.listPath());
    EXPECT_TRUE(
        agent.logged("DEBUG",
                     "[Remediation Manager] (addPatchBufferedEntry) Writing bufferedPatchesList.txt threw "
                     "exception "));
}

}  // namespace

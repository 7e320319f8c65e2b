#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <set>
#include <sstream>
#include <thread>

#include "base/Files.h"
#include "base/SystemCalls.h"
#include "remediation/RemediationManager.h"
#include "tests/library/FakeAgent.h"

using zelor::test::makeCre;
using zelor::test::readFile;
using zelor::test::writeFile;

namespace {

TEST(Records, StartEmptyAndCopyDeeply) {
    remediateMetadata row;
    EXPECT_EQ(row.getCveOrCceId() + row.getCombinedCpes() + row.getProductCpe() + row.getPlatformCpe() +
                  row.getPackageName(),
              "");
    EXPECT_FALSE(row.getCreEriDataPresent() || row.getOsRemediation());
    EXPECT_TRUE(row.getcreEriData().getEriIds().empty());

    row.setcreEriData(makeCre("CVE-1", {{"ERI-1", "a.pkg"}, {"ERI-2", "b.pkg"}}));
    remediateMetadata copy = row;
    creEriParsedData changed = copy.getcreEriData();
    changed.setInstalledSuccessfully(true);
    copy.setcreEriData(changed);
    EXPECT_FALSE(row.getcreEriData().getInstalledSuccessfully());
    EXPECT_TRUE(copy.getcreEriData().getInstalledSuccessfully());

    auto blocks = row.getcreEriData().getParsedEriDataBlocks();
    blocks.clear();
    EXPECT_EQ(row.getcreEriData().getParsedEriDataBlocks().size(), 2U);
    EXPECT_EQ(row.getcreEriData().getParsedEriDataBlocks()[1].getPatchId(), "b.pkg");
}

class InstalledPatches : public testing::Test {
  protected:
    bool applied(const std::vector<zelor::test::Eri>& eris) {
        creEriParsedData cre = makeCre("CVE-1", eris);
        return manager.verifyIfAlreadyAppliedRem(cre);
    }
    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(InstalledPatches, OnlySuccessesAreRecorded) {
    EXPECT_FALSE(applied({{"ERI-1", ""}}));
    manager.addEntryInInstalledPatchesFile(-1, "ERI-1");
    EXPECT_FALSE(boost::filesystem::exists(agent.recordPath()));
    manager.addEntryInInstalledPatchesFile(0, "ERI-1");
    manager.addEntryInInstalledPatchesFile(0, "ERI-2");
    EXPECT_EQ(readFile(agent.recordPath()), "ERI-1\nERI-2\n");
    EXPECT_TRUE(applied({{"ERI-1", ""}}));
    EXPECT_TRUE(applied({{"ERI-9", ""}, {"ERI-2", ""}})) << "any one of its ERIs counts";
}

TEST_F(InstalledPatches, LinesAreComparedWhole) {
    writeFile(agent.recordPath(), "abc\nspaced \nreturned\r\n");
    EXPECT_TRUE(applied({{"abc", ""}}));
    EXPECT_FALSE(applied({{"abcd", ""}}));
    EXPECT_FALSE(applied({{"ab", ""}}));
    EXPECT_FALSE(applied({{"spaced", ""}}));
    EXPECT_FALSE(applied({{"returned", ""}}));
}

// The record is only appended to, whatever a power loss or an editor left in it.
TEST_F(InstalledPatches, DamageOfAnOlderCrashIsReportedAndDoesNotSpread) {
    const std::string path = agent.recordPath();
    const std::string lone(1, '\xc3');  // half of a letter
    const std::string nul(1, '\0');
    struct {
        std::string damage;
        int torn, damaged;
        bool namesLast;
    } rows[] = {{"last", 1, 0, true},
                {"la\x80\xffst", 1, 0, false},
                {std::string(5000, '\0'), 1, 1, false},
                {lone, 1, 0, false},
                {std::string(8191, 'x'), 1, 0, false},
                {nul + nul + "\n" + lone + "\n\x1b[2J\nlast", 1, 1, true},
                {"tr\xc3\xa9s bien\n", 0, 0, false}};
    int torn = 0;
    int damaged = 0;
    for (const auto& row : rows) {
        writeFile(path, "first\n" + row.damage);
        RemediationManager fresh(agent.installPath());
        const auto has = [&](const std::string& id) {
            auto entry = zelor::test::makeCre("CRE", {{id, ""}});
            return fresh.verifyIfAlreadyAppliedRem(entry);
        };
        EXPECT_TRUE(has("first"));
        EXPECT_EQ(has("last"), row.namesLast);
        EXPECT_EQ(agent.countLogged(path + " has no end; it counts as it stands."), torn += row.torn)
            << "once";
        fresh.addEntryInInstalledPatchesFile(0, "next");
        EXPECT_EQ(readFile(path), "first\n" + row.damage + (row.torn != 0 ? "\n" : "") + "next\n");
        EXPECT_TRUE(has("next") && has("first"));
        EXPECT_EQ(has("last"), row.namesLast);
        EXPECT_EQ(agent.countLogged(" damaged lines, "), damaged += row.damaged) << "once";
    }
    EXPECT_EQ(agent.countLogged(" has 2 damaged lines"), 1);
}

TEST_F(InstalledPatches, SeesWhatOthersDidToTheFile) {
    writeFile(agent.recordPath(), "ERI-1\n");
    EXPECT_TRUE(applied({{"ERI-1", ""}}));
    writeFile(agent.recordPath(), "");
    EXPECT_FALSE(applied({{"ERI-1", ""}}));
    writeFile(agent.recordPath() + ".new", "ERI-8\nERI-9\n");
    boost::filesystem::rename(agent.recordPath() + ".new", agent.recordPath());
    EXPECT_TRUE(applied({{"ERI-9", ""}}));
    EXPECT_FALSE(applied({{"ERI-1", ""}}));
    writeFile(agent.recordPath(), "ERI-8\nERI-7\n");
    boost::filesystem::last_write_time(agent.recordPath(), 1);
    EXPECT_TRUE(applied({{"ERI-7", ""}})) << "another text of the same size in the same file";
    EXPECT_FALSE(applied({{"ERI-9", ""}}));
    boost::filesystem::remove(agent.recordPath());
    EXPECT_FALSE(applied({{"ERI-7", ""}}));
}

// A file that has grown need not be the same one with something appended.
TEST_F(InstalledPatches, CountsAsAppendedOnlyWhatItAppendedItself) {
    const std::string path = agent.recordPath();
    const auto rewrite = [&](const std::string& text) { writeFile(path, text); };
    manager.addEntryInInstalledPatchesFile(0, "ERI-1");
    manager.addEntryInInstalledPatchesFile(0, "ERI-2");
    EXPECT_TRUE(applied({{"ERI-1", ""}}));
    EXPECT_TRUE(applied({{"ERI-2", ""}}));
    rewrite("ERI-8\nERI-9\nERI-10\n");
    EXPECT_FALSE(applied({{"ERI-1", ""}})) << "rewritten in place, and longer";
    EXPECT_TRUE(applied({{"ERI-8", ""}}));

    RemediationManager other(agent.installPath());
    rewrite("");
    other.addEntryInInstalledPatchesFile(0, "ERI-11");
    manager.addEntryInInstalledPatchesFile(0, "ERI-12");
    EXPECT_TRUE(applied({{"ERI-11", ""}}));
    EXPECT_TRUE(applied({{"ERI-12", ""}}));
    EXPECT_FALSE(applied({{"ERI-8", ""}})) << "emptied and refilled by another manager";
    other.addEntryInInstalledPatchesFile(0, "ERI-13");
    EXPECT_TRUE(applied({{"ERI-13", ""}}));
}

TEST_F(InstalledPatches, ItsOwnLinesAreNotReadAgain) {
    writeFile(agent.recordPath(), "ERI-0\n");
    boost::filesystem::last_write_time(agent.recordPath(), 1);
    EXPECT_TRUE(applied({{"ERI-0", ""}}));
    manager.addEntryInInstalledPatchesFile(0, "ERI-1");
    struct stat info {};
    ASSERT_EQ(stat(agent.recordPath().c_str(), &info), 0);
    // Other text with the same modification time shows whether the file is read.
    writeFile(agent.recordPath(), "ERI-x\nERI-y\n");
    const struct timespec times[2] = {zelor::base::accessTime(info), zelor::base::modificationTime(info)};
    ASSERT_EQ(utimensat(AT_FDCWD, agent.recordPath().c_str(), times, 0), 0);
    EXPECT_TRUE(applied({{"ERI-0", ""}}));
    EXPECT_TRUE(applied({{"ERI-1", ""}}));
}

// One writer meets the limit in the middle of its line while another's short lines still fit.
TEST(AppendedLines, AFailedOneLeavesTheOthersWhole) {
    const zelor::test::TempDir dir;
    const std::string path = dir / "record";
    struct rlimit old {};
    getrlimit(RLIMIT_FSIZE, &old);
    struct rlimit small = old;
    small.rlim_cur = 40000;
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    std::atomic<bool> done{false};
    std::thread failing([&] {
        while (!done)
            EXPECT_FALSE(zelor::base::appendLine(path, std::string(100000, 'l')));
    });
    std::vector<std::string> written;
    for (int i = 0; i < 2000; ++i) {
        written.push_back("line " + std::to_string(i));
        while (!zelor::base::appendLine(path, written.back()))
            std::this_thread::yield();
    }
    done = true;
    failing.join();
    setrlimit(RLIMIT_FSIZE, &old);
    std::istringstream in(readFile(path));
    std::set<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.insert(line);
    for (const std::string& line : written)
        EXPECT_EQ(lines.count(line), 1U) << line;
}

TEST_F(InstalledPatches, TheTrailSaysWhatWasAskedOncePerCall) {
    writeFile(agent.recordPath(), "");
    applied({{"ERI-1", ""}});
    EXPECT_EQ(agent.countLogged("verifyIfAlreadyAppliedRem"), 0);
    writeFile(agent.recordPath(), "x\ny\n");
    applied({{"ERI-1", ""}, {"ERI-2", ""}});
    EXPECT_TRUE(agent.logged(
        "DEBUG",
        "[Remediation Manager] (verifyIfAlreadyAppliedRem) for creId = CRE-CVE-1 number of eris = 2"));
    EXPECT_EQ(agent.countLogged("verifyIfAlreadyAppliedRem"), 1);
}

TEST_F(InstalledPatches, AMissingDirectoryStaysSilent) {
    boost::filesystem::remove_all(boost::filesystem::path(agent.recordPath()).parent_path());
    manager.addEntryInInstalledPatchesFile(0, "ERI-1");
    EXPECT_TRUE(agent.logged("DEBUG",
                             "[Remediation Manager] Inside addEntryInInstalledPatchesFile: Added entry for "
                             "successfully installed eri: ERI-1"));
    EXPECT_FALSE(applied({{"ERI-1", ""}}));
}

}  // namespace

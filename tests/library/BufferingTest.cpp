#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <boost/thread/thread.hpp>
#include <chrono>
#include <thread>

#include "remediation/CallReport.h"
#include "remediation/RemediationManager.h"
#include "remediation/buffer/PatchSize.h"
#include "tests/library/FakeAgent.h"

using zelor::test::readFile;
using zelor::test::writeFile;
namespace fs = boost::filesystem;

namespace {

TEST(PatchSizes, AreReadAsPublished) {
    struct {
        std::string text;
        long bytes;
    } rows[] = {
        {"500 KB", 512000},
        {"1.5 MB", 1572864},
        {"2.25 mb", 2359296},
        {"2.05 MB", 2621440},
        {" 1 Mb \n", 1048576},
        {"2 GB", 2},
        {"1.2.3 MB", 1048576},
        {"1..5 KB", 1536},
        {"7", 0},
        {"", 0},
        {"12345 B", 12345},
        {"0.125 KB", 128},
        {"KB", 0},
        {"x MB", 0},
        {"-1 KB", -1024},
        {"3000 MB", 3145728000L},
    };
    for (const auto& row : rows)
        EXPECT_EQ(zelor::remediation::parsePatchSize(row.text).bytes, row.bytes) << row.text;
    EXPECT_EQ(zelor::remediation::parsePatchSize("12.5 MB").number, "12.5 ");
    EXPECT_EQ(zelor::remediation::parsePatchSize("12.5 MB").unit, "mb");
}

TEST(Budgets, WrapAtTwoGigabytes) {
    EXPECT_EQ(zelor::remediation::budgetBytes("100"), 104857600);
    EXPECT_EQ(zelor::remediation::budgetBytes("2047"), 2146435072);
    EXPECT_EQ(zelor::remediation::budgetBytes("2048"), -2147483648L);
    EXPECT_EQ(zelor::remediation::budgetBytes("4096"), 0);
    EXPECT_EQ(zelor::remediation::budgetBytes("none"), 0);
    EXPECT_EQ(zelor::remediation::shareOfBandwidth(1000001, 25), 250000U);
    EXPECT_EQ(zelor::remediation::shareOfBandwidth(1000, -5), 0U);
    EXPECT_EQ(zelor::remediation::shareOfBandwidth(333, 100), 333U);
}

class Buffering : public testing::Test {
  protected:
    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(Buffering, DownloadsWhatIsMissingAtTheConfiguredShare) {
    zelor::test::Eri os{"ERI-3", "os.pkg"};
    os.product = "cpe:/o:apple";
    os.instructions = "os remediation";
    agent.addContent("CVE-1", {{"ERI-1", " editor-2.1.pkg "}, {"ERI-2", "empty"}, {"ERI-4", "there.pkg"}});
    agent.addContent("CVE-2", {os});
    agent.addContent("CCE-1", {{"ERI-5", "lock.ksh"}, {"ERI-6", "../evil.pkg"}, {"ERI-7", "lost.pkg"}});
    for (const char* name : {"editor-2.1.pkg", "os.pkg", "lock.ksh"})
        agent.addFile(name, "x");
    agent.bufferFile("there.pkg", "x");
    writeFile(agent.listPath(), "there.pkg=0123\n");
    manager.bufferPatches({{"k1", "CVE-1"}, {"k2", "CVE-2"}, {"k3", "CCE-1"}, {"k4", "CVE-404"}});
    EXPECT_EQ(readFile(agent.listPath()), "there.pkg=0123\neditor-2.1.pkg=0123\nlock.ksh=0123\n");
    EXPECT_TRUE(boost::filesystem::exists(agent.bufferDir() + "/editor-2.1.zip"));
    std::vector<std::string> downloads;
    for (const std::string& call : agent.calls) {
        if (call.find("download") == 0) downloads.push_back(call);
    }
    EXPECT_EQ(downloads, (std::vector<std::string>{"download editor-2.1 at 250000", "download lock at 250000",
                                                   "download lost at 250000"}));
    EXPECT_TRUE(agent.logged("DEBUG", "  >>> [Remediation Manager] Inside bufferPatches ..."));
    EXPECT_TRUE(agent.logged(
        "DEBUG",
        "[Remediation Manager] (downloadPatchForBuffering) patch \"there.pkg\" is already buffered "
        "and is latest."));
    EXPECT_TRUE(
        agent.logged("DEBUG",
                     "[Remediation Manager] (downloadPatchForBuffering) Dowdnload patch failed for patch = "
                     "lost.pkg"));
    EXPECT_TRUE(agent.logged(
        "DEBUG",
        "[Remediation Manager] (getBpsInPercentOfBandwidth) speedPercent = 25. speedPercentStr = "
        "25. bytespersecond = 250000"));
}

TEST_F(Buffering, FillsTheBudgetToTheByteAndNoFurther) {
    agent.budgetMegabytes = "1";
    writeFile(agent.bufferDir() + "/a", std::string(524288, 'a'));
    writeFile(agent.bufferDir() + "/sub/b", std::string(262144, 'b'));
    EXPECT_FALSE(manager.downloadSizeExceedsAllotedSize("256 KB"));
    EXPECT_TRUE(manager.downloadSizeExceedsAllotedSize("257 KB"));
    EXPECT_TRUE(
        agent.logged("DEBUG",
                     "[Remediation Manager] (downloadSizeExceedsAllotedSize) allotedSize in conf = 1, "
                     "currentBufferDirSize = 786432"));
    EXPECT_TRUE(agent.logged(
        "DEBUG",
        "[Remediation Manager] (downloadSizeExceedsAllotedSize) patchSizeNumber = 256 , sizeUnit = "
        "kb, currentPatchSize (in bytes) = 262144"));
    long size = 7;
    manager.getFoldersize(agent.dir / "missing", size);
    EXPECT_EQ(size, 7);
    EXPECT_EQ(agent.countLogged("getting file size threw exception"), 1);
}

TEST_F(Buffering, CountsFilesOnceWhateverIsBesideThem) {
    writeFile(agent.bufferDir() + "/a", std::string(1000, 'a'));
    writeFile(agent.bufferDir() + "/sub/b", std::string(200, 'b'));
    writeFile(agent.dir / "elsewhere/c", std::string(30, 'c'));
    for (const char* name : {"/0", "/z"}) {
        fs::create_directory_symlink("sub", agent.bufferDir() + name + "inside");
        fs::create_directory_symlink(agent.dir / "elsewhere", agent.bufferDir() + name + "outside");
        fs::create_directory_symlink(".", agent.bufferDir() + "/sub" + name + "loop");
        fs::create_symlink("nowhere", agent.bufferDir() + name + "dangling");
    }
    ASSERT_EQ(mkfifo((agent.bufferDir() + "/pipe").c_str(), 0600), 0);
    long size = 0;
    manager.getFoldersize(agent.bufferDir(), size);
    EXPECT_EQ(size, 1230);
}

TEST_F(Buffering, SkipsWhatIsTooLargeButNotWhatFollows) {
    agent.budgetMegabytes = "1";
    zelor::test::Eri large{"ERI-1", "large.pkg"};
    large.size = "2 MB";
    agent.addContent("CVE-1", {large, {"ERI-2", "small.pkg"}});
    agent.addFile("small.pkg", "x");
    manager.bufferPatches({{"k", "CVE-1"}});
    EXPECT_EQ(readFile(agent.listPath()), "small.pkg=0123\n");
    EXPECT_EQ(agent.countLogged("\"large.pkg\" buffering skipped as it is exceeding the alloted size"), 1);
}

TEST_F(Buffering, FallsBackWhenTheSpeedCannotBeMeasured) {
    agent.speedStatus = 404;
    EXPECT_EQ(manager.getBpsInPercentOfBandwidth(), 1024U);
}

TEST_F(Buffering, EndsWhenItIsCancelledOrInterrupted) {
    agent.addContent("CVE-1", {{"ERI-1", "a.pkg"}, {"ERI-2", "b.pkg"}});
    agent.addContent("CCE-1", {{"ERI-3", "c.sh"}});
    for (const char* name : {"a.pkg", "b.pkg", "c.sh"})
        agent.addFile(name, "x");
    for (const bool throwing : {true, false}) {
        for (const std::string how : {"interrupted", "cancelled", "interrupted in content"}) {
            RemediationManager one(agent.installPath());
            agent.calls.clear();
            boost::filesystem::remove(agent.listPath());
            std::atomic<bool> atWork{false};
            const auto work = [&] {
                atWork = true;
                while (!boost::this_thread::interruption_requested() && !zelor::CallReport::stopAsked())
                    boost::this_thread::yield();
                if (throwing) boost::this_thread::interruption_point();
            };
            agent.beforeDownload = [&](const std::string&) { work(); };
            agent.beforeGetCre = [&](const std::string&) {
                if (how == "interrupted in content") work();
            };
            std::atomic<int> outcome{0};
            boost::thread job([&] {
                try {
                    one.bufferPatches({{"k1", "CVE-1"}, {"k2", "CCE-1"}});
                    outcome = 1;
                } catch (...) {
                    outcome = 2;
                }
            });
            while (!atWork)
                boost::this_thread::yield();
            if (how == "cancelled") {
                one.setCancelAllRem(true);
            } else {
                job.interrupt();
            }
            for (int i = 0; i < 2000 && outcome == 0; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            ASSERT_NE(outcome, 0) << how << ", throwing: " << throwing;
            job.join();
            EXPECT_EQ(outcome, 1) << how << ", throwing: " << throwing;
            for (const char* stem : {"b", "c"})
                EXPECT_EQ(std::count(agent.calls.begin(), agent.calls.end(),
                                     "download " + std::string(stem) + " at 250000"),
                          0)
                    << how << ", throwing: " << throwing;
        }
    }
}

}  // namespace

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include "remediation/RemediationManager.h"
#include "tests/library/FakeAgent.h"

using zelor::test::readFile;
using zelor::test::writeFile;

namespace {

using Map = std::map<std::string, unsigned long>;

class RunDriver : public testing::Test {
  protected:
    RunDriver() {
        manager.setContentDownloadDir(agent.contentDir());
        agent.addContent("CCE-1", {{"ERI-1", "ok.sh"}});
        agent.addFile("ok.sh", "exit 0");
    }
    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(RunDriver, RefusesToStartWithoutItsInputs) {
    struct {
        bool requests, contentDir;
        std::string installPath;
    } rows[] = {{false, true, "/opt"}, {true, false, "/opt"}, {true, true, "///"}};
    for (const auto& row : rows) {
        RemediationManager incomplete(row.installPath);
        if (row.requests) incomplete.setovalIdMap({{"k", "CCE-1"}});
        if (row.contentDir) incomplete.setContentDownloadDir(agent.contentDir());
        incomplete.setFirstRemediationAfterScan(true);
        incomplete.concertedRemediationStart();
        EXPECT_TRUE(incomplete.getRemDone());
        EXPECT_TRUE(incomplete.getRemediationProgressMap().empty());
        EXPECT_TRUE(RemediationManagerPeer::firstAfterScan(incomplete));
    }
    EXPECT_EQ(agent.countLogged("'ovalIdMap' and/or 'contentDownloadDir' and/or 'install path' is not set"),
              3);
}

TEST_F(RunDriver, RunsOnAThreadOfItsOwn) {
    manager.setovalIdMap({{"cpe:/o:x||", "CCE-1"}});
    EXPECT_FALSE(manager.getRemDone());
    manager.remediate(true);
    while (!manager.getRemDone())
        std::this_thread::yield();
    EXPECT_EQ(manager.getRemediationProgressMap(), (Map{{"cpe:/o:x||", 4}}));
    EXPECT_FALSE(manager.getAllRemFailed() || manager.getRebootNeeded() || manager.getScanNeeded());
    EXPECT_EQ(manager.getDefaultPlatformCpe() + manager.getCurrentOsName(), "");
    const auto lines = agent.logLines();
    EXPECT_TRUE(agent.logged(
        "INFO", " [Remediation Manager] *********** Zelor Concerted Remediation starts *********"));
    EXPECT_EQ(lines.back(),
              "INFO  [Remediation Manager] ********** Zelor Remediations Manager exiting ***********");
    EXPECT_TRUE(boost::filesystem::is_empty(agent.contentDir()));
}

TEST_F(RunDriver, EmptiesTheRecordAfterAScan) {
    struct {
        bool first, exists;
        std::string after;
    } rows[] = {{true, true, "ERI-1\n"}, {false, true, "old\nERI-1\n"}, {true, false, "ERI-1\n"}};
    for (const auto& row : rows) {
        RemediationManager run(agent.installPath());
        run.setContentDownloadDir(agent.contentDir());
        run.setovalIdMap({{"cpe:/o:x||", "CCE-1"}});
        run.setFirstRemediationAfterScan(row.first);
        boost::filesystem::remove(agent.recordPath());
        if (row.exists) writeFile(agent.recordPath(), "old\n");
        run.concertedRemediationStart();
        EXPECT_EQ(readFile(agent.recordPath()), row.after);
        EXPECT_FALSE(RemediationManagerPeer::firstAfterScan(run)) << "a normal end resets the flag";
    }
    manager.setovalIdMap({{"||", "CCE-1"}});
    manager.setFirstRemediationAfterScan(true);
    boost::filesystem::remove(agent.recordPath());
    manager.concertedRemediationStart();
    EXPECT_FALSE(boost::filesystem::exists(agent.recordPath()));
}

// A directory whose owner has made it read-only, so that nothing can be removed.
TEST_F(RunDriver, EmptiesARecordThatCannotBeRemoved) {
    const std::string directory = boost::filesystem::path(agent.recordPath()).parent_path().string();
    writeFile(agent.recordPath(), "old\n");
    ASSERT_EQ(chmod(directory.c_str(), 0555), 0);
    const bool root = geteuid() == 0;
    if (root) {
        ASSERT_EQ(chmod(agent.dir.path().c_str(), 0755), 0);
        ASSERT_EQ(chown(agent.recordPath().c_str(), 65534, 65534), 0);
        ASSERT_EQ(seteuid(65534), 0);
    }
    RemediationManagerPeer::resetRecord(manager);
    if (root) {
        ASSERT_EQ(seteuid(0), 0);
    }
    ASSERT_EQ(chmod(directory.c_str(), 0755), 0);
    EXPECT_TRUE(boost::filesystem::exists(agent.recordPath()));
    EXPECT_EQ(readFile(agent.recordPath()), "");
    EXPECT_EQ(agent.countLogged("neither removed nor emptied"), 0);

    boost::filesystem::remove(agent.recordPath());
    writeFile(agent.recordPath() + "/kept", "");
    RemediationManagerPeer::resetRecord(manager);
    EXPECT_EQ(agent.countLogged(agent.recordPath() + " can be neither removed nor emptied: "), 1);
}

TEST_F(RunDriver, AnInternalErrorFailsWhatIsNotDecided) {
    manager.setovalIdMap({{"cpe:/o:x||", "CCE-1"}, {"cpe:/o:y||", "CVE-1"}, {"a,b,c", "CVE-2"}});
    manager.setFirstRemediationAfterScan(true);
    RemediationManagerPeer::setInternalError(manager);
    manager.concertedRemediationStart();
    EXPECT_EQ(manager.getRemediationProgressMap(), (Map{{"cpe:/o:x||", 7}, {"cpe:/o:y||", 7}, {"a,b,c", 8}}));
    EXPECT_TRUE(agent.logged("ERROR",
                             " [Remediation Manager] Internal error occured in parsing the CREs, setting all "
                             "remediatons to false. "));
    EXPECT_TRUE(RemediationManagerPeer::firstAfterScan(manager));
    EXPECT_EQ(agent.countLogged("Manager exiting"), 0);
}

TEST_F(RunDriver, AnEscapedExceptionEndsTheRunNotTheProcess) {
    agent.addContent("CCE-2", {{"ERI-2", "ok.sh"}});
    agent.beforeGetCre = [this](const std::string& id) {
        if (id == "CCE-2") throw std::runtime_error("the cache broke");
        writeFile(agent.contentDir() + "/left", "x");
    };
    manager.setovalIdMap({{"a,b,c", "CCE-9"}, {"k1||", "CCE-1"}, {"k2||", "CCE-2"}, {"k3||oval:1", "CCE-1"}});
    manager.remediate(false);
    while (!manager.getRemDone())
        std::this_thread::yield();
    EXPECT_EQ(manager.getRemediationProgressMap(), (Map{{"a,b,c", 8}, {"k1||", 7}, {"k2||", 7}, {"k3", 7}}));
    EXPECT_EQ(agent.countLogged("the cache broke"), 1);
    EXPECT_TRUE(boost::filesystem::is_empty(agent.contentDir()));
}

TEST_F(RunDriver, OneSuccessOutweighsFailures) {
    manager.setovalIdMap({{"cpe:/o:x||", "CCE-1"}, {"cpe:/o:y||", "CCE-404"}});
    manager.concertedRemediationStart();
    EXPECT_FALSE(manager.getAllRemFailed());
    RemediationManager failing(agent.installPath());
    failing.setContentDownloadDir(agent.contentDir());
    failing.setovalIdMap({{"cpe:/o:y||", "CCE-404"}});
    failing.concertedRemediationStart();
    EXPECT_TRUE(failing.getAllRemFailed());
}

TEST_F(RunDriver, RefusesASecondRunWhileOneIsActive) {
    std::vector<int> downloads;
    agent.beforeDownload = [&](const std::string&) {
        downloads.push_back(0);
        manager.remediate(true);
        manager.concertedRemediationStart();
        EXPECT_FALSE(manager.getRemDone());
    };
    manager.setovalIdMap({{"cpe:/o:x||", "CCE-1"}});
    for (const int runs : {1, 2}) {
        manager.remediate(true);
        while (!manager.getRemDone() || agent.countLogged("Remediations Manager exiting") < runs)
            std::this_thread::yield();
        EXPECT_EQ(agent.countLogged("Concerted Remediation starts"), runs);
        EXPECT_EQ(agent.countLogged("ERROR  [Remediation Manager] (remediate) Refused: "), 2);
        agent.beforeDownload = nullptr;
    }
    EXPECT_EQ(downloads.size(), 1U);
}

// A success is recorded, then a failure: afterwards no read may return that all failed.
TEST_F(RunDriver, ASuccessIsSeenByEveryReadOfTheFlags) {
    std::atomic<bool> stop{false};
    std::atomic<int> turn{0};
    std::thread writer([&] {
        for (int round = 1; !stop; ++round) {
            RemediationManagerPeer::setFlags(manager, false, false);
            turn = round;
            RemediationManagerPeer::setFlags(manager, true, true);
            while (!stop && turn == round)
                std::this_thread::yield();
        }
    });
    int wrong = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    for (int seen = 0; std::chrono::steady_clock::now() < end; turn = -seen) {
        while ((seen = turn) <= 0)
            std::this_thread::yield();
        for (int i = 0; i < 20; ++i)
            wrong += manager.getAllRemFailed() ? 1 : 0;
    }
    stop = true;
    writer.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace

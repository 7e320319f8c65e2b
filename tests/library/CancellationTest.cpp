#include <gtest/gtest.h>

#include <atomic>
#include <boost/thread/thread.hpp>
#include <thread>
#include <vector>

#include "remediation/RemediationManager.h"
#include "tests/library/FakeAgent.h"

namespace {

using Map = std::map<std::string, unsigned long>;

class Cancellation : public testing::Test {
  protected:
    Cancellation() {
        manager.setContentDownloadDir(agent.contentDir());
        std::map<std::string, std::string> requests;
        for (int i = 1; i <= 3; ++i) {
            const std::string number = std::to_string(i);
            agent.addContent("CCE-" + number, {{"ERI-" + number, "s" + number + ".sh"}});
            agent.addFile("s" + number + ".sh", "exit 0");
            requests["k" + number + "||"] = "CCE-" + number;
        }
        manager.setovalIdMap(requests);
    }
    // A downloader that works until its thread is interrupted.
    void hangUntilInterrupted() {
        while (!boost::this_thread::interruption_requested())
            std::this_thread::yield();
    }
    Map run() {
        manager.concertedRemediationStart();
        return manager.getRemediationProgressMap();
    }

    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(Cancellation, BeforeTheRunLeavesNothingBut13) {
    manager.setCancelAllRem(true);
    EXPECT_EQ(run(), (Map{{"k1||", 13}, {"k2||", 13}, {"k3||", 13}}));
    EXPECT_TRUE(agent.calls.empty());
    EXPECT_TRUE(
        agent.logged("ERROR",
                     " [Remediation Manager] User has aborted all remediations, setting all remediatons to "
                     "Aborted. "));
    EXPECT_TRUE(agent.logged(
        "DEBUG", " [Remediation Manager] (terminateKillableThreads) Terminating download_thread."));
}

TEST_F(Cancellation, DuringParsingAppliesNothing) {
    agent.beforeGetCre = [this](const std::string& id) {
        if (id == "CCE-2") manager.setCancelAllRem(true);
    };
    EXPECT_EQ(run(), (Map{{"k1||", 13}, {"k2||", 13}, {"k3||", 13}}));
    EXPECT_EQ(agent.countLogged("(applyConfigs)"), 0);
}

TEST_F(Cancellation, OfTheRunStopsTheDownloadAndKeepsSuccesses) {
    agent.beforeDownload = [this](const std::string& stem) {
        if (stem != "s2") return;
        manager.setCancelAllRem(true);
        hangUntilInterrupted();
    };
    EXPECT_EQ(run(), (Map{{"k1||", 4}, {"k2||", 13}, {"k3||", 13}}));
}

TEST_F(Cancellation, OfTheRequestInHandStopsItsDownloadAlone) {
    agent.repository.erase("s2");
    agent.beforeDownload = [this](const std::string& stem) {
        if (stem != "s2") return;
        manager.setCancelRemMap({{"k2||", "by the user"}});
        hangUntilInterrupted();
    };
    EXPECT_EQ(run(), (Map{{"k1||", 4}, {"k2||", 13}, {"k3||", 4}}));
    EXPECT_TRUE(agent.logged("DEBUG", " [Remediation Manager] k2|| is Going to Get Aborted"));
    EXPECT_EQ(manager.getCancelRemMap().count("k2||"), 1U);
}

TEST_F(Cancellation, BetweenFetchAndApplyRunsNothing) {
    agent.addFile("s2.sh", "touch '" + agent.dir / "ran" + "'");
    agent.beforeDownload = [this](const std::string& stem) {
        if (stem == "s2") manager.setCancelRemMap({{"k2||", ""}});
    };
    EXPECT_EQ(run(), (Map{{"k1||", 4}, {"k2||", 13}, {"k3||", 4}}));
    EXPECT_FALSE(boost::filesystem::exists(agent.dir / "ran"));
}

TEST_F(Cancellation, WithdrawnInTimeCostsNothingButANewAttempt) {
    int attempts = 0;
    agent.beforeDownload = [&](const std::string& stem) {
        if (stem != "s2" || ++attempts > 1) return;
        agent.repository.erase("s2");
        manager.setCancelRemMap({{"k2||", ""}});
        hangUntilInterrupted();
        manager.setCancelRemMap({});
    };
    // The first attempt finds nothing; by the second the archive is there.
    agent.beforeGetCre = nullptr;
    const auto archive = agent.repository["s2"];
    const auto restore = agent.beforeDownload;
    agent.beforeDownload = [&](const std::string& stem) {
        if (stem == "s2" && attempts == 1) agent.repository["s2"] = archive;
        restore(stem);
    };
    EXPECT_EQ(run(), (Map{{"k1||", 4}, {"k2||", 4}, {"k3||", 4}}));
    EXPECT_EQ(attempts, 2);
}

TEST_F(Cancellation, OfRequestsNotYetReached) {
    manager.setCancelRemMap({{"k1||", ""}, {"k3||", ""}});
    EXPECT_EQ(run(), (Map{{"k1||", 13}, {"k2||", 4}, {"k3||", 13}}));
}

TEST_F(Cancellation, AfterTheEndChangesNothing) {
    const Map before = run();
    manager.setCancelAllRem(true);
    manager.setCancelAllRem(false);
    manager.setCancelRemMap({{"k1||", ""}});
    EXPECT_EQ(manager.getRemediationProgressMap(), before);
}

// Several controller threads pull at everything while runs go on; each run has to end, with every request
// decided.
TEST_F(Cancellation, StandsAnyNumberOfControllers) {
    agent.beforeDownload = [](const std::string&) {
        for (int i = 0; i < 200 && !boost::this_thread::interruption_requested(); ++i)
            std::this_thread::yield();
    };
    constexpr int kRuns = 12;
    for (int run = 0; run < kRuns; ++run) {
        RemediationManager stressed(agent.installPath());
        stressed.setContentDownloadDir(agent.contentDir());
        const auto requests = manager.getovalIdMap();
        stressed.setovalIdMap(requests);
        std::atomic<bool> stop{false};
        std::vector<std::thread> controllers;
        controllers.emplace_back([&] {
            for (int i = 0; !stop; ++i)
                stressed.setCancelRemMap(i % 2 == 0 ? requests : decltype(requests){});
        });
        controllers.emplace_back([&] {
            // A cancel that is taken back half way leaves requests as they are, so only the other runs get
            // this.
            while (!stop && run % 3 != 0)
                stressed.setCancelAllRem(false);
        });
        controllers.emplace_back([&] {
            while (!stop) {
                stressed.getRemediationProgressMap();
                stressed.getCancelRemMap();
                stressed.getovalIdMap();
                stressed.getAllRemFailed();
                stressed.getRebootNeeded();
                stressed.getScanNeeded();
                stressed.getCurrentOsName();
            }
        });
        controllers.emplace_back([&] {
            while (!stop)
                stressed.setovalIdMap(requests);
        });
        stressed.remediate(true);
        if (run % 3 == 0) stressed.setCancelAllRem(true);
        while (!stressed.getRemDone())
            std::this_thread::yield();
        stop = true;
        for (std::thread& controller : controllers)
            controller.join();
        for (const auto& [key, value] : stressed.getRemediationProgressMap())
            EXPECT_GE(value, 4U) << key << " in run " << run;
    }
}

}  // namespace

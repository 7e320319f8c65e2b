#include <gtest/gtest.h>

#include <atomic>
#include <boost/thread/thread.hpp>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include "remediation/CallReport.h"
#include "remediation/RemediationManager.h"
#include "support/Soon.h"
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

TEST_F(Cancellation, ReachesTheContentThatIsFetched) {
    const struct {
        const char* name;
        bool all;
        bool withdrawn;
        Map results;
    } cases[] = {{"the run", true, false, {{"k1||", 13}, {"k2||", 13}, {"k3||", 13}, {"k4||", 13}}},
                 {"one request", false, false, {{"k1||", 4}, {"k2||", 4}, {"k3||", 4}, {"k4||", 13}}},
                 {"withdrawn", true, true, {{"k1||", 4}, {"k2||", 4}, {"k3||", 4}, {"k4||", 6}}}};
    auto requests = manager.getovalIdMap();
    requests["k4||"] = "CCE-4";  // without content
    for (const auto& one : cases) {
        RemediationManager own(agent.installPath());
        own.setContentDownloadDir(agent.contentDir());
        own.setovalIdMap(requests);
        own.setFirstRemediationAfterScan(true);
        int asked = 0;
        agent.beforeGetCre = [&](const std::string& id) {
            if (id != "CCE-4" || ++asked > 1) return;
            if (one.all) own.setCancelAllRem(true);
            if (!one.all) own.setCancelRemMap({{"k4||", ""}});
            const auto late = std::chrono::steady_clock::now() + zelor::test::kSoon;
            while (!zelor::CallReport::stopAsked() && std::chrono::steady_clock::now() < late)
                std::this_thread::yield();
            EXPECT_LT(std::chrono::steady_clock::now(), late) << one.name;
            if (one.withdrawn) own.setCancelAllRem(false);
        };
        own.concertedRemediationStart();
        EXPECT_EQ(own.getRemediationProgressMap(), one.results) << one.name;
        EXPECT_EQ(asked, one.withdrawn ? 2 : 1) << one.name;
    }
    agent.beforeGetCre = {};
}

TEST_F(Cancellation, OfTheRunStopsTheDownloadAndKeepsSuccesses) {
    agent.beforeDownload = [this](const std::string& stem) {
        if (stem != "s2") return;
        manager.setCancelAllRem(true);
        hangUntilInterrupted();
    };
    EXPECT_EQ(run(), (Map{{"k1||", 4}, {"k2||", 13}, {"k3||", 13}}));
}

TEST_F(Cancellation, OfTheCurrentRequestStopsOnlyItsDownload) {
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

TEST_F(Cancellation, IsAskedForByTheWholeKeyOfARequest) {
    struct {
        const char* name;
        Map::key_type cancelled;
        Map after;
    } rows[] = {
        {"one of two requests with one entry", "a||oval:1", {{"a", 13}, {"b||", 4}}},
        {"the other one", "a||oval:2", {{"a", 13}, {"b||", 4}}},
        {"a request that is done", "b||", {{"a", 4}, {"b||", 13}}},
        {"the entry's key, which no request has", "a", {{"a", 4}, {"b||", 4}}},
        {"a longer key", "b|| ", {{"a", 4}, {"b||", 4}}},
    };
    for (const auto& row : rows) {
        for (const bool early : {true, false}) {
            RemediationManager one(agent.installPath());
            one.setContentDownloadDir(agent.contentDir());
            one.setovalIdMap({{"a||oval:1", "CCE-1"}, {"a||oval:2", "CCE-2"}, {"b||", "CCE-3"}});
            if (early) one.setCancelRemMap({{row.cancelled, ""}});
            one.concertedRemediationStart();
            if (!early) one.setCancelRemMap({{row.cancelled, ""}});
            if (!early) one.setAbortedRemStatusToAborted();
            EXPECT_EQ(one.getRemediationProgressMap(), row.after) << row.name << ", early: " << early;
        }
    }
}

TEST_F(Cancellation, OutlivesANewProgressMapAndLaterValues) {
    manager.setCancelRemMap({{"k1||", ""}});
    agent.beforeDownload = [this](const std::string& stem) {
        if (stem == "s2") manager.setRemediationProgressMap({{"k3||", 0}});
    };
    EXPECT_EQ(run(), (Map{{"k1||", 13}, {"k2||", 4}, {"k3||", 4}}));
    for (const auto value : {RemediationManager::REM_QUEUED, RemediationManager::REM_SUCCESS}) {
        manager.insertRemProgressInMap("k1||", value);
        manager.setAbortedRemStatusToAborted();
        EXPECT_EQ(manager.getRemediationProgressMap().at("k1||"), 13U);
    }
}

TEST_F(Cancellation, NotAskedForLeavesTheDownloadAlone) {
    int attempts = 0;
    agent.beforeDownload = [&](const std::string& stem) {
        ++attempts;
        manager.setCancelAllRem(false);
        manager.setCancelRemMap({{stem == "s2" ? "k1||" : "s2", ""}});
        manager.setCancelRemMap({});
        boost::this_thread::interruption_point();
    };
    EXPECT_EQ(run(), (Map{{"k1||", 4}, {"k2||", 4}, {"k3||", 4}}));
    EXPECT_EQ(attempts, 3);
    EXPECT_EQ(agent.countLogged("Terminating download_thread."), 3);
}

TEST_F(Cancellation, WithdrawnBeforeItIsSeenIsNoFailure) {
    for (const std::string kind : {"configuration", "patch"}) {
        RemediationManager one(agent.installPath());
        one.setContentDownloadDir(agent.contentDir());
        if (kind == "patch") agent.addContent("CVE-1", {{"ERI-9", "s9.sh"}});
        agent.addFile("s9.sh", "x");
        one.setovalIdMap({{"k2||", kind == "patch" ? "CVE-1" : "CCE-2"}});
        // On another thread, like a controller's: the log is locked meanwhile.
        const auto cancel = [&](const std::map<std::string, std::string>& cancelled) {
            std::thread([&] { one.setCancelRemMap(cancelled); }).join();
        };
        agent.onLogLine = [&](const std::string& line) {
            if (line.find("File to download is : ") != line.npos) cancel({{"k2||", ""}});
            if (line.find("GetResource returned NULL") == line.npos) return;
            cancel({});
            agent.onLogLine = nullptr;
        };
        one.concertedRemediationStart();
        EXPECT_EQ(one.getRemediationProgressMap(), (Map{{"k2||", kind == "patch" ? 5U : 4U}})) << kind;
    }
}

TEST_F(Cancellation, OfOneRequestIsNoErrorOfOurs) {
    agent.beforeDownload = [this](const std::string& stem) {
        if (stem != "s2") return;
        manager.setCancelRemMap({{"k2||", ""}});
        boost::this_thread::interruption_point();
    };
    EXPECT_EQ(run(), (Map{{"k1||", 4}, {"k2||", 13}, {"k3||", 4}}));
    EXPECT_EQ(agent.countLogged("ERROR  [Remediation Manager]"), 1);
    EXPECT_EQ(agent.countLogged("ERROR  [Remediation Manager] Inside getFileFromRepo: GetResource returned"),
              1);
}

// What the controller sets for a later run does not affect this one.
TEST_F(Cancellation, ConcernsTheRequestsOfTheRun) {
    for (const bool exception : {false, true}) {
        RemediationManager one(agent.installPath());
        one.setContentDownloadDir(agent.contentDir());
        one.setovalIdMap({{"a,b,c", "CCE-1"}, {"k1||", "CCE-1"}, {"k2||", "CCE-2"}});
        one.setCancelRemMap({{"k1||", ""}});
        agent.beforeGetCre = [&](const std::string&) {
            one.setovalIdMap({{"later||", "CCE-3"}});
            one.setCancelRemMap({{"k1||", ""}, {"later||", ""}});
            one.setAbortedRemStatusToAborted();
            if (exception) throw std::runtime_error("the cache broke");
            one.setCancelAllRem(true);
        };
        one.concertedRemediationStart();
        EXPECT_EQ(one.getRemediationProgressMap(),
                  (Map{{"a,b,c", 8}, {"k1||", 13}, {"k2||", exception ? 7U : 13U}}));
    }
}

// Several controller threads cancel, withdraw, poll and replace at once while runs go on. What is cancelled
// when a run ends reads 13; what only was cancelled meanwhile reads 4 or 13.
TEST_F(Cancellation, KeepsItsValuesUnderManyControllers) {
    agent.beforeDownload = [](const std::string&) {
        for (int i = 0; i < 200; ++i) {
            boost::this_thread::interruption_point();
            std::this_thread::yield();
        }
    };
    // Yields the processors to the run now and then.
    const auto pause = [](int i) {
        if (i % 200 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
    };
    const auto requests = manager.getovalIdMap();
    const std::map<std::string, std::string> always{{"k1||", ""}};
    const std::map<std::string, std::string> sometimes{{"k1||", ""}, {"k2||", ""}, {"k3", ""}};
    constexpr int kRuns = 24;
    for (int run = 0; run < kRuns; ++run) {
        const bool whole = run % 3 == 0;
        RemediationManager stressed(agent.installPath());
        stressed.setContentDownloadDir(agent.contentDir());
        stressed.setovalIdMap(requests);
        stressed.setCancelRemMap(always);
        if (whole) stressed.setCancelAllRem(true);
        std::atomic<bool> stop{false};
        std::vector<std::thread> controllers;
        controllers.emplace_back([&] {
            for (int i = 0; !stop; pause(++i))
                stressed.setCancelRemMap(i % 2 == 0 ? sometimes : always);
        });
        controllers.emplace_back([&] {
            for (int i = 0; !stop; pause(++i))
                stressed.setCancelAllRem(whole || (run % 3 == 1 && i % 50 == 0));
        });
        controllers.emplace_back([&] {
            for (int i = 0; !stop; pause(++i)) {
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
            for (int i = 0; !stop; pause(++i))
                stressed.setovalIdMap(requests);
        });
        stressed.remediate(true);
        while (!stressed.getRemDone())
            std::this_thread::yield();
        stop = true;
        for (std::thread& controller : controllers)
            controller.join();
        Map values = stressed.getRemediationProgressMap();
        ASSERT_EQ(values.size(), requests.size());
        EXPECT_EQ(values["k1||"], 13U) << "run " << run;
        EXPECT_TRUE(values["k2||"] == 13 || (values["k2||"] == 4 && !whole))
            << values["k2||"] << " in " << run;
        EXPECT_TRUE(values["k3||"] == 13 || values["k3||"] == 4) << values["k3||"] << " in " << run;
        const unsigned long undisturbed = whole ? 13 : 4;
        EXPECT_TRUE(run % 3 == 1 || values["k3||"] == undisturbed) << values["k3||"] << " in " << run;
    }
}

}  // namespace

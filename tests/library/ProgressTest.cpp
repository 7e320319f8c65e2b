#include <gtest/gtest.h>

#include <thread>

#include "remediation/RemediationManager.h"
#include "tests/library/FakeAgent.h"

namespace {

using Map = std::map<std::string, unsigned long>;
using Progress = RemediationManager::REM_PROGRESS;

class ProgressMap : public testing::Test {
  protected:
    void addRow(const std::string& key, bool present = true, bool os = false) {
        remediateMetadata row;
        row.setCombinedCpes(key);
        row.setCreEriDataPresent(present);
        row.setOsRemediation(os);
        RemediationManagerPeer::cveRows(manager).push_back(row);
        if (present && !os) RemediationManagerPeer::count(manager, row);
    }
    unsigned long value(const std::string& key) {
        const Map map = manager.getRemediationProgressMap();
        const auto entry = map.find(key);
        return entry == map.end() ? 99 : entry->second;
    }
    void insert(const std::string& key, int progress) {
        manager.insertRemProgressInMap(key, static_cast<Progress>(progress));
    }

    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(ProgressMap, HoldsResultsOfOneCpeBackUntilAllReported) {
    struct {
        std::vector<int> reports;
        unsigned long result;
    } rows[] = {{{4, 5, 4}, 5}, {{4, 4}, 4}, {{4, 11}, 5}, {{5, 5}, 5}, {{6, 4, 4, 4}, 5}};
    int key = 0;
    for (const auto& row : rows) {
        const std::string cpe = "cpe-" + std::to_string(++key);
        for (std::size_t i = 0; i < row.reports.size(); ++i)
            addRow(cpe);
        addRow(cpe, false);
        addRow(cpe, true, true);
        for (std::size_t i = 0; i < row.reports.size(); ++i) {
            EXPECT_EQ(value(cpe), 99U) << cpe << " after " << i;
            insert(cpe, row.reports[i]);
        }
        EXPECT_EQ(value(cpe), row.result) << cpe;
    }
    EXPECT_TRUE(agent.logged(
        "DEBUG",
        " [Remediation Manager] Inside evaluateCollectiveResult: Multiple (3) remediations needed "
        "for cpe= cpe-1"));
    EXPECT_TRUE(agent.logged(
        "DEBUG",
        " [Remediation Manager] Inside evaluateCollectiveResult: Evaluated collective result for "
        "cpe= cpe-1 as (5=FAILED, 4=SUCCESS) = 5"));
}

TEST_F(ProgressMap, LeavesTheResultAloneWhenNothingIsToBeStored) {
    addRow("two");
    addRow("two");
    bool store = true;
    auto result = RemediationManager::REM_INSTALLING;
    manager.evaluateCollectiveResult("two", RemediationManager::REM_FAILED, &store, &result);
    EXPECT_FALSE(store);
    EXPECT_EQ(result, RemediationManager::REM_INSTALLING);
    manager.evaluateCollectiveResult("two", RemediationManager::REM_SUCCESS, &store, &result);
    EXPECT_TRUE(store);
    EXPECT_EQ(result, RemediationManager::REM_FAILED);
}

TEST_F(ProgressMap, StoresEverythingElseAtOnce) {
    addRow("two");
    addRow("two");
    for (int progress : {1, 2, 3, 12, 13, 0}) {
        insert("two", progress);
        EXPECT_EQ(value("two"), static_cast<unsigned long>(progress));
    }
    addRow("one");
    insert("one", 5);
    EXPECT_EQ(value("one"), 5U);
}

TEST_F(ProgressMap, CopiesResultsToRemovedDuplicates) {
    RemediationManagerPeer::duplicates(manager).emplace("kept", "gone||oval:x");
    RemediationManagerPeer::duplicates(manager).emplace("kept", "also gone");
    insert("kept", 12);
    EXPECT_EQ(manager.getRemediationProgressMap(), (Map{{"kept", 12}, {"gone", 12}, {"also gone", 12}}));
    EXPECT_TRUE(
        agent.logged("DEBUG",
                     " [Remediation Manager] Mapping the result for removed duplicate ERIs. Key cpe= 'kept'. "
                     "Removed cpe= 'gone||oval:x'. Result = 12"));
}

TEST_F(ProgressMap, MassSettersKeepWhatIsDecided) {
    for (int i = 0; i <= 13; ++i) {
        addRow(std::to_string(i));
        insert(std::to_string(i), i);
    }
    addRow("missing");
    manager.setRemainingRemsStatusToFailed();
    EXPECT_EQ(value("missing"), 7U);
    EXPECT_EQ(value("0"), 0U) << "an entry stays as it is";

    addRow("missing too");
    manager.setAllRemainingRemStatusToAborted();
    for (int i = 0; i <= 13; ++i) {
        const bool decided = i >= 4 && i <= 11;
        EXPECT_EQ(value(std::to_string(i)), decided ? static_cast<unsigned long>(i) : 13U);
    }
    EXPECT_EQ(value("missing too"), 13U);

    manager.setAllRemsStatusToFailed();
    EXPECT_EQ(value("4"), 7U);
}

TEST_F(ProgressMap, SingleCancelsMarkKnownRequestsAgainAndAgain) {
    manager.setovalIdMap({{"a", "CVE-1"}, {"b", "CVE-1"}, {"c||oval:1", "CVE-1"}});
    insert("a", 1);
    insert("b", 1);
    insert("c||oval:1", 1);
    manager.setCancelRemMap({{"a", ""}, {"c||oval:1", ""}, {"unknown", ""}});
    manager.setAbortedRemStatusToAborted();
    EXPECT_EQ(manager.getRemediationProgressMap(), (Map{{"a", 13}, {"b", 1}, {"c", 13}}));
    insert("a", 0);
    insert("unknown", 0);
    insert("b", 2);
    manager.setAbortedRemStatusToAborted();
    EXPECT_EQ(manager.getRemediationProgressMap(), (Map{{"a", 13}, {"b", 2}, {"c", 13}, {"unknown", 0}}));
    manager.setCancelRemMap({});
    insert("a", 3);
    manager.setAbortedRemStatusToAborted();
    EXPECT_EQ(value("a"), 3U) << "an empty map withdraws the cancels";
}

// A poll updates its own copy: by the writes since the last poll or, when there are many, by a full copy.
TEST_F(ProgressMap, EveryPollShowsEveryWrite) {
    Map expected;
    unsigned random = 1;
    for (int poll = 0; poll < 60; ++poll) {
        if (poll == 30) manager.setRemediationProgressMap(expected = {{"another", 3}});
        for (int write = 0; write < poll * poll % 200; ++write) {
            random = random * 1103515245 + 12345;
            const std::string key = "key " + std::to_string(random / 65536 % 20);
            insert(key, static_cast<int>(expected[key] = random / 65536 % 3));
        }
        ASSERT_EQ(manager.getRemediationProgressMap(), expected) << poll;
    }
}

TEST_F(ProgressMap, PollsGoOnWhileOthersWriteAndReplace) {
    std::thread writer([&] {
        for (int i = 0; i < 3000; ++i) {
            if (i % 100 == 0) manager.setRemediationProgressMap({});
            insert("key " + std::to_string(i % 70), i % 4);
        }
        insert("last", 3);
    });
    while (value("last") != 3)
        std::this_thread::yield();
    writer.join();
    EXPECT_EQ(value("key 59"), 2999U % 4);
}

TEST_F(ProgressMap, IsACopyBothWays) {
    Map map{{"x", 4}};
    manager.setRemediationProgressMap(map);
    map["x"] = 5;
    EXPECT_EQ(value("x"), 4U);
}

}  // namespace

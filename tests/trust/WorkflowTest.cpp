// What a client must do in an update, rule by rule in the order of its steps, and the tests that show it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "tests/trust/Repository.h"

namespace zelor::trust {

namespace {

using testing::HasSubstr;

struct Rule {
    const char* rule;
    std::vector<const char*> tests;  ///< "Suite.Test", or "Suite/Row" of a table
};

const std::vector<Rule> kRules = {
    {"A failed update leaves a client that the next one brings up to date",
     {"Client.DoesWithoutDamagedFilesButNotWithoutARoot", "TrustClientProgram.FailsAndKeepsItsFiles",
      "Attacks/RootThatTheServerFailsToServe"}},
    {"Expiry is judged at one time for the whole update; a file is too old from its expiry on",
     {"Attacks/TimestampExpired", "Client.NoticesThatTheKeptStateExpired"}},
    {"An update begins from the kept root, whatever its age",
     {"Client.FollowsTheRootsThroughExpiredOnesInBoundedSteps"}},

    {"Root: every version between the kept and the newest one is fetched, in order, by its version",
     {"Workflow.KeepsEachRootOnTheWay", "Client.FollowsTheRootsThroughExpiredOnesInBoundedSteps"}},
    {"Root: of bounded size", {"Attacks/RootWithoutEnd"}},
    {"Root: in bounded number", {"Client.FollowsTheRootsThroughExpiredOnesInBoundedSteps"}},
    {"Root: signed by as many keys of the root before it as that asks for",
     {"Attacks/RootByItsNewKeysAlone"}},
    {"Root: and by as many of its own as it asks for itself", {"Attacks/RootByTheOldKeysAlone"}},
    {"Root: a key has the id that is computed from it",
     {"Attacks/RootWithAWrongKeyId", "Keys.MayHaveNotesAndOlderIds"}},
    {"Root: a key of a kind that is not known is no fault, and signs nothing",
     {"Workflow.KeysOfUnknownKindsAreNoFault", "Keys.OfEverySchemeAcceptTheirOwnSignaturesAlone"}},
    {"Any role: one key counts once, however often and under whatever ids it signs",
     {"Attacks/ThresholdByOneKeyTwice", "Attacks/ThresholdByOneKeyUnderTwoIds", "Attacks/ThresholdMissed"}},
    {"Root: exactly one version after the one before",
     {"Attacks/RootOfTheSameVersion", "Attacks/RootThatSkipsAVersion"}},
    {"Root: one that is refused leaves the last good one, from which the next update begins",
     {"Workflow.KeepsEachRootOnTheWay"}},
    {"Root: the age of those on the way does not count",
     {"Client.FollowsTheRootsThroughExpiredOnesInBoundedSteps"}},
    {"Root: kept as soon as it is accepted, byte for byte",
     {"Workflow.KeepsEachRootOnTheWay", "Client.KeepsFilesAsTheyWereServed"}},
    {"Root: the newest one must not have expired",
     {"Attacks/RootThatExpired", "Client.NoticesThatTheKeptStateExpired"}},
    {"Root: with other keys for timestamp or snapshot, the kept timestamp and snapshot are forgotten",
     {"Client.RecoversFromVersionsThatAThiefMadeHigh",
      "Workflow.ForgetsWhatKeysSignedThatWereAwayMeanwhile"}},
    {"Root: says whether the names of other files have a version or a digest",
     {"Client.AsksForUnversionedNamesWithoutConsistentSnapshots", "Client.AsksForLittleWhenNothingChanged"}},

    {"Timestamp: asked for under one name, of bounded size",
     {"Attacks/TimestampWithoutEnd", "Attacks/TimestampMissing"}},
    {"Timestamp: signed as the root says",
     {"Attacks/TimestampByAnotherRole", "Attacks/TimestampChangedAfterSigning"}},
    {"Timestamp: is one, in a version of the format that is known",
     {"Attacks/TimestampOfAnotherKind", "Attacks/TimestampOfAnotherFormat"}},
    {"Timestamp: not older than the kept one, even when that has expired",
     {"Attacks/TimestampOlder", "Workflow.ExpiredFilesStillSayWhatIsOlder"}},
    {"Timestamp: the same version again is no news and no failure",
     {"Client.AsksForLittleWhenNothingChanged"}},
    {"Timestamp: names no older snapshot than the kept one does",
     {"Attacks/TimestampOfAnOlderSnapshot", "Workflow.ExpiredFilesStillSayWhatIsOlder"}},
    {"Timestamp: must not have expired", {"Attacks/TimestampExpired"}},
    {"Timestamp: kept byte for byte", {"Client.KeepsFilesAsTheyWereServed", "Client.SaysThatTheStoreIsFull"}},

    {"Snapshot: asked for by the listed version, of the listed length, or of bounded size without one",
     {"Attacks/SnapshotWithoutEnd", "Attacks/SnapshotWithoutEndOrListedLength", "Attacks/SnapshotMissing"}},
    {"Snapshot: of the digests that the timestamp lists", {"Attacks/SnapshotOfAnotherPublication"}},
    {"Snapshot: signed as the root says", {"Attacks/SnapshotByAnotherRole"}},
    {"Snapshot: of the version that the timestamp lists", {"Attacks/SnapshotOfAnotherVersion"}},
    {"Snapshot: lists no targets file in an older version than the kept one, even when that has expired",
     {"Attacks/SnapshotWithOlderTargets", "Attacks/SnapshotWithAnOlderDelegatedRole",
      "Workflow.ExpiredFilesStillSayWhatIsOlder"}},
    {"Snapshot: lists every targets file that the kept one lists", {"Attacks/SnapshotWithoutAKnownRole"}},
    {"Snapshot: must not have expired", {"Attacks/SnapshotExpired"}},
    {"Snapshot: kept byte for byte", {"Client.KeepsFilesAsTheyWereServed"}},

    {"Targets: asked for by the listed version, of the listed length, or of bounded size without one",
     {"Attacks/TargetsWithoutEnd", "Attacks/TargetsWithoutEndOrListedLength"}},
    {"Targets: of the digests that the snapshot lists",
     {"Attacks/TargetsOfAnotherPublication", "Attacks/TargetsWithADigestOfAnUnknownKind",
      "DelegationAttacks/OfAnotherPublication"}},
    {"Targets: signed as the root says, or who delegates",
     {"Attacks/TargetsByAnotherRole", "DelegationAttacks/ByAnotherRole"}},
    {"Targets: of the version that the snapshot lists",
     {"Attacks/TargetsOfAnotherVersion", "DelegationAttacks/OfAnotherVersion",
      "DelegationAttacks/NotListed"}},
    {"Targets: must not have expired", {"Attacks/TargetsExpired", "DelegationAttacks/Expired"}},
    {"Targets: kept byte for byte", {"Client.KeepsFilesAsTheyWereServed"}},

    {"Search: depth first in the order of delegations, each role once",
     {"Delegations.AreSearchedDepthFirstInTheirOrder"}},
    {"Search: visits a bounded number of roles", {"Delegations.AreFollowedInABoundedNumber"}},
    {"Search: ends behind a terminating delegation", {"Delegations.EndAtATerminatingOne"}},
    {"Search: every role on the way must be trusted with the path, by pattern or by digest",
     {"Delegations.GiveNoMoreThanTheyCover", "Delegations.OfBinsAskForOneAlone",
      "Patterns.MatchWithinAPart"}},
    {"Search: ends at a role that cannot be had or is refused",
     {"DelegationAttacks/Missing", "DelegationAttacks/WithoutEnd"}},

    {"Target: one that nobody lists is not downloaded", {"TrustClientProgram.RefreshesAndDownloadsOnce"}},
    {"Target: of the listed length and digests", {"Downloads.HaveTheListedLengthAndDigests"}},
    {"Target: asked for by its digest where names have one, else by its path",
     {"Downloads.HaveTheListedLengthAndDigests", "Client.AsksForUnversionedNamesWithoutConsistentSnapshots"}},
    {"Target: written under its own name", {"TrustClientProgram.RefreshesAndDownloadsOnce"}},
};

/// The tests of this program as the table names them.
std::set<std::string> namesOfTests() {
    std::set<std::string> names;
    const auto& program = *testing::UnitTest::GetInstance();
    for (int i = 0; i < program.total_test_suite_count(); ++i) {
        const auto& suite = *program.GetTestSuite(i);
        const std::string suiteName = suite.name();
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const std::string test = suite.GetTestInfo(j)->name();
            const auto row = test.find('/');
            names.insert(row == std::string::npos
                             ? suiteName + "." + test
                             : suiteName.substr(suiteName.find('/') + 1) + test.substr(row));
        }
    }
    return names;
}

TEST(Workflow, HasATestForEveryRuleAndARuleForEveryAttack) {
    const std::set<std::string> known = namesOfTests();
    std::set<std::string> used;
    for (const Rule& row : kRules) {
        EXPECT_FALSE(row.tests.empty()) << row.rule;
        for (const char* test : row.tests)
            EXPECT_TRUE(known.count(test) == 1) << row.rule << ": there is no test " << test;
        used.insert(row.tests.begin(), row.tests.end());
    }
    for (const std::string& name : known)
        EXPECT_TRUE(name.find("Attacks/") == std::string::npos || used.count(name) == 1) << name;
}

TEST(Workflow, KeepsEachRootOnTheWay) {
    World world;
    Repository& r = world.repository;
    r.nextRoot();
    r.nextRoot();
    const std::string good = r.files["3.root.json"];
    r.files["3.root.json"] = r.files["1.root.json"];
    EXPECT_THAT(world.refresh(), HasSubstr("not the version after 2"));
    EXPECT_EQ(world.store.files["root"], r.files["2.root.json"]);
    r.files["3.root.json"] = good;
    EXPECT_EQ(world.refresh(), "");
    EXPECT_EQ(r.requests.front(), "3.root.json");
    EXPECT_EQ(world.store.files["root"], good);
}

TEST(Workflow, ForgetsWhatKeysSignedThatWereAwayMeanwhile) {
    World world;
    Repository& r = world.repository;
    const Repository honest = r;
    r.next(1000);
    ASSERT_EQ(world.refresh(), "");
    r = honest;
    // A client that saw the root between has forgotten what the first key signed.
    for (const std::size_t key : {30, 1}) {
        r.setKeys("timestamp", {testKey(key)});
        r.nextRoot();
    }
    r.next();
    EXPECT_EQ(world.refresh(), "");
    EXPECT_EQ(world.versions(), "root3 timestamp6 snapshot6 targets6");
}

TEST(Workflow, ExpiredFilesStillSayWhatIsOlder) {
    const std::vector<std::pair<std::string, std::function<void(Repository&)>>> kRows = {
        {"timestamp, version 4: version 4 is older than 5",
         [](Repository& r) { r.content["timestamp"]["version"] = 4; }},
        {"the listed version of the snapshot, 4 is older than 5",
         [](Repository& r) {
             r.raise("timestamp");
             r.content["snapshot"]["version"] = 4;
         }},
        {"the listed version of targets.json, 4 is older than 5",
         [](Repository& r) {
             r.raise("timestamp");
             r.raise("snapshot");
             r.content["targets"]["version"] = 4;
         }},
    };
    for (const auto& [cause, make] : kRows) {
        World world;
        Repository& r = world.repository;
        ASSERT_EQ(world.refresh(), "");
        for (auto& [role, json] : r.content)
            json["expires"] = timeText(kNow + 10'000);
        r.nextRoot();
        make(r);
        r.publish();
        Client later(r, world.store, {kNow + 5000, {}});
        const auto result = later.refresh();
        ASSERT_FALSE(result) << cause;
        EXPECT_THAT(result.error().text, HasSubstr(cause));
    }
}

TEST(Workflow, KeysOfUnknownKindsAreNoFault) {
    World world;
    Repository& r = world.repository;
    const Json key = {{"keytype", "certificate"}, {"scheme", "x"}, {"keyval", {{"issuer", "i"}}}};
    const std::string id = *digestOf("sha256", *canonicalJson(key));
    r.content["root"]["keys"][id] = key;
    r.content["root"]["roles"]["timestamp"]["keyids"].push_back(id);
    r.nextRoot();
    EXPECT_EQ(world.refresh(), "");
    r.content["root"]["roles"]["timestamp"]["threshold"] = 2;
    r.nextRoot();
    EXPECT_THAT(world.refresh(), HasSubstr("1 of 2 good"));
}

}  // namespace

}  // namespace zelor::trust

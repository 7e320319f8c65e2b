#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <ostream>

#include "tests/trust/Repository.h"

namespace zelor::trust {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// What somebody makes of a repository whose first publication the client has, and whose second one is out.
struct Attack {
    const char* name;
    const char* role;   ///< that the message names
    const char* cause;  ///< that it gives
    std::function<void(Repository&)> make;
};

void PrintTo(const Attack& attack, std::ostream* out) {
    *out << attack.name;
}

void expire(Repository& r, const char* role) {
    r.content[role]["expires"] = timeText(kNow);  // from this second on
}

/// The same valid file with blanks behind it.
void pad(Repository& r, const char* role, std::size_t bytes) {
    r.files[r.nameOf(role)] += std::string(bytes, ' ');
}

void replaceRootKey(Repository& r, const std::vector<PrivateKey>& signers) {
    r.setKeys("root", {testKey(4)});
    r.signers["root"] = signers;
    r.nextRoot();
}

/// The timestamp's keys, by a new root; the timestamp signed by `signers`.
void timestampKeys(Repository& r, const std::vector<PrivateKey>& keys,
                   const std::vector<PrivateKey>& signers) {
    r.setKeys("timestamp", keys, 2);
    r.nextRoot();
    r.signers["timestamp"] = signers;
    r.signTimestamp();
}

/// Two forms of one key under two ids.
std::vector<Json> twoForms(const PrivateKey& key) {
    Json upper = key.publicKey();
    std::string digits = upper["keyval"]["public"];
    for (char& c : digits)
        c = static_cast<char>(std::toupper(c));
    upper["keyval"]["public"] = digits;
    return {key.publicKey(), upper};
}

const std::vector<Attack> kAttacks = {
    {"RootByItsNewKeysAlone", "root", "0 of 1 good", [](Repository& r) { replaceRootKey(r, {testKey(4)}); }},
    {"RootByTheOldKeysAlone", "root", "0 of 1 good", [](Repository& r) { replaceRootKey(r, {testKey(0)}); }},
    {"RootOfTheSameVersion", "root", "not the version after 1",
     [](Repository& r) { r.files["2.root.json"] = r.files["1.root.json"]; }},
    {"RootThatSkipsAVersion", "root", "not the version after 1",
     [](Repository& r) {
         r.raise("root", 2);
         r.sign("root");
         r.files["2.root.json"] = r.files["3.root.json"];
     }},
    {"RootThatExpired", "root", "expired",
     [](Repository& r) {
         expire(r, "root");
         r.nextRoot();
     }},
    {"RootWithoutEnd", "root", "more bytes",
     [](Repository& r) {
         r.nextRoot();
         pad(r, "root", 1U << 20U);
     }},
    {"RootThatTheServerFailsToServe", "root", "500", [](Repository& r) { r.broken.insert("2.root.json"); }},
    {"RootWithAWrongKeyId", "root", "not the digest of its key",
     [](Repository& r) {
         r.content["root"]["keys"][testKey(5).id()] = testKey(6).publicKey();
         r.nextRoot();
     }},
    {"ThresholdMissed", "timestamp", "1 of 2 good",
     [](Repository& r) {
         timestampKeys(r, {testKey(1), testKey(7)}, {testKey(1), testKey(8)});
     }},
    {"ThresholdByOneKeyTwice", "timestamp", "two signatures",
     [](Repository& r) {
         timestampKeys(r, {testKey(1), testKey(7)}, {testKey(1), testKey(1)});
     }},
    {"ThresholdByOneKeyUnderTwoIds", "timestamp", "1 of 2 good",
     [](Repository& r) {
         Json ids = Json::array();
         for (const Json& form : twoForms(testKey(1))) {
             ids.push_back(keyId(form));
             r.content["root"]["keys"][keyId(form)] = form;
         }
         r.content["root"]["roles"]["timestamp"] = {{"keyids", ids}, {"threshold", 2}};
         r.nextRoot();
         Json file = Json::parse(r.files["timestamp.json"]);
         Json second = file["signatures"][0];
         second["keyid"] = ids[1];
         file["signatures"].push_back(second);
         r.files["timestamp.json"] = file.dump();
     }},
    {"TimestampByAnotherRole", "timestamp", "0 of 1 good",
     [](Repository& r) {
         r.signers["timestamp"] = {testKey(2)};
         r.sign("timestamp");
     }},
    {"TimestampChangedAfterSigning", "timestamp", "0 of 1 good",
     [](Repository& r) {
         std::string& bytes = r.files["timestamp.json"];
         bytes.replace(bytes.find("\"version\":6"), 11, "\"version\":7");
     }},
    {"TimestampOlder", "timestamp", "4 is older than 5",
     [](Repository& r) {
         r.content["timestamp"]["version"] = 4;
         r.sign("timestamp");
     }},
    {"TimestampOfAnOlderSnapshot", "timestamp", "snapshot, 4 is older than 5",
     [](Repository& r) {
         r.content["snapshot"]["version"] = 4;
         r.signSnapshot();
     }},
    {"TimestampExpired", "timestamp", "expired",
     [](Repository& r) {
         expire(r, "timestamp");
         r.sign("timestamp");
     }},
    {"TimestampWithoutEnd", "timestamp", "more bytes", [](Repository& r) { pad(r, "timestamp", 1U << 20U); }},
    {"TimestampMissing", "timestamp", "has no timestamp.json",
     [](Repository& r) { r.files.erase("timestamp.json"); }},
    {"TimestampOfAnotherKind", "timestamp", "not metadata of the kind",
     [](Repository& r) {
         r.content["timestamp"]["_type"] = "snapshot";
         r.sign("timestamp");
     }},
    {"TimestampOfAnotherFormat", "timestamp", "not 1.x",
     [](Repository& r) {
         r.content["timestamp"]["spec_version"] = "2.0.0";
         r.sign("timestamp");
     }},
    {"SnapshotOfAnotherPublication", "snapshot", "digest",
     [](Repository& r) {
         r.content["snapshot"]["expires"] = timeText(kNow + 2000);
         r.sign("snapshot");
     }},
    {"SnapshotByAnotherRole", "snapshot", "0 of 1 good",
     [](Repository& r) {
         r.signers["snapshot"] = {testKey(1)};
         r.signSnapshot();
     }},
    {"SnapshotOfAnotherVersion", "snapshot", "version 6 is listed",
     [](Repository& r) {
         r.listDigests = false;
         r.publish();
         r.files["6.snapshot.json"] = r.files["5.snapshot.json"];
     }},
    {"SnapshotWithOlderTargets", "snapshot", "targets.json, 4 is older than 5",
     [](Repository& r) {
         r.content["snapshot"]["meta"]["targets.json"]["version"] = 4;
         r.signSnapshot();
     }},
    {"SnapshotWithAnOlderDelegatedRole", "snapshot", "known.json, 4 is older than 5",
     [](Repository& r) {
         r.content["snapshot"]["meta"]["known.json"]["version"] = 4;
         r.signSnapshot();
     }},
    {"SnapshotWithoutAKnownRole", "snapshot", "known.json is no longer listed",
     [](Repository& r) {
         r.content["snapshot"]["meta"].erase("known.json");
         r.signSnapshot();
     }},
    {"SnapshotExpired", "snapshot", "expired",
     [](Repository& r) {
         expire(r, "snapshot");
         r.signSnapshot();
     }},
    {"SnapshotWithoutEnd", "snapshot", "more bytes", [](Repository& r) { pad(r, "snapshot", 1); }},
    {"SnapshotWithoutEndOrListedLength", "snapshot", "more bytes",
     [](Repository& r) {
         r.listDigests = false;
         r.publish();
         pad(r, "snapshot", 4U << 20U);
     }},
    {"SnapshotMissing", "snapshot", "has no 6.snapshot.json",
     [](Repository& r) { r.files.erase("6.snapshot.json"); }},
    {"TargetsOfAnotherPublication", "targets", "digest",
     [](Repository& r) {
         r.content["targets"]["expires"] = timeText(kNow + 2000);
         r.sign("targets");
     }},
    {"TargetsByAnotherRole", "targets", "0 of 1 good",
     [](Repository& r) {
         r.signers["targets"] = {testKey(2)};
         r.publish();
     }},
    {"TargetsOfAnotherVersion", "targets", "version 6 is listed",
     [](Repository& r) {
         r.listDigests = false;
         r.publish();
         r.files["6.targets.json"] = r.files["5.targets.json"];
     }},
    {"TargetsExpired", "targets", "expired",
     [](Repository& r) {
         expire(r, "targets");
         r.publish();
     }},
    {"TargetsWithoutEnd", "targets", "more bytes", [](Repository& r) { pad(r, "targets", 1); }},
    {"TargetsWithoutEndOrListedLength", "targets", "more bytes",
     [](Repository& r) {
         r.listDigests = false;
         r.publish();
         pad(r, "targets", 16U << 20U);
     }},
    {"TargetsWithADigestOfAnUnknownKind", "targets", "unknown kind",
     [](Repository& r) {
         r.content["snapshot"]["meta"]["targets.json"]["hashes"]["md5"] = "00";
         r.signSnapshot();
     }},
};

class Attacks : public testing::TestWithParam<Attack> {};

TEST_P(Attacks, IsRefusedAndTheKnownStateStays) {
    World world;
    Repository& r = world.repository;
    r.delegate("targets", "known", {{"paths", {"k/*"}}});
    r.publish();
    ASSERT_EQ(world.refresh(), "");
    r.next();
    const Repository honest = r;
    GetParam().make(r);

    const std::string why = world.refresh();
    EXPECT_THAT(why, HasSubstr("metadata role " + std::string(GetParam().role)));
    EXPECT_THAT(why, HasSubstr(GetParam().cause));
    EXPECT_EQ(why.find('\n'), std::string::npos);
    EXPECT_TRUE(world.client.findKept("a.xml").value().has_value());
    EXPECT_FALSE(world.client.find("a.xml"));

    if (world.store.files["root"] != honest.files.at("1.root.json")) return;  // a valid root stays
    r = honest;
    r.next(5);
    EXPECT_EQ(world.refresh(), "");
}

INSTANTIATE_TEST_SUITE_P(OnTheWorkflow, Attacks, testing::ValuesIn(kAttacks),
                         [](const auto& row) { return row.param.name; });

TEST(Client, AsksForLittleWhenNothingChanged) {
    World world;
    ASSERT_EQ(world.refresh(), "");
    EXPECT_THAT(world.repository.requests,
                ElementsAre("2.root.json", "timestamp.json", "5.snapshot.json", "5.targets.json"));
    // The same version again is no news, whatever else it says.
    world.repository.content["timestamp"]["meta"]["snapshot.json"]["version"] = 1;
    world.repository.sign("timestamp");
    EXPECT_EQ(world.refresh(), "");
    EXPECT_THAT(world.repository.requests, ElementsAre("2.root.json", "timestamp.json"));
    EXPECT_EQ(world.versions(), "root1 timestamp5 snapshot5 targets5");
}

TEST(Client, KeepsFilesAsTheyWereServed) {
    World world;
    ASSERT_EQ(world.refresh(), "");
    for (const char* role : {"root", "timestamp", "snapshot", "targets"})
        EXPECT_EQ(world.store.files[role], world.repository.files[world.repository.nameOf(role)]) << role;
}

TEST(Client, NoticesThatTheKeptStateExpired) {
    World world;
    ASSERT_EQ(world.refresh(), "");
    Client later(world.repository, world.store, {kNow + 1000, {}});
    const auto result = later.refresh();
    ASSERT_FALSE(result);
    EXPECT_THAT(result.error().text, HasSubstr("metadata role root, version 1: it expired at"));
    EXPECT_TRUE(later.findKept("a.xml").value().has_value());
}

TEST(Client, FollowsTheRootsThroughExpiredOnesInBoundedSteps) {
    World world;
    Repository& r = world.repository;
    for (std::size_t i = 0; i < 4; ++i) {
        r.content["root"]["expires"] = timeText(i < 3 ? kNow - 1 : kNow + 9);
        const std::vector<PrivateKey> old = r.signers["root"];
        r.setKeys("root", {testKey(20 + i)});
        r.signers["root"].push_back(old[0]);
        r.nextRoot();
        r.signers["root"].resize(1, old[0]);
    }
    ClientOptions options{kNow, {}};
    options.limits.roots = 2;
    Client bounded(r, world.store, options);
    EXPECT_THAT(bounded.refresh().error().text, HasSubstr("root, version 3: it expired"));
    EXPECT_EQ(world.refresh(), "");
    EXPECT_EQ(world.versions(), "root5 timestamp5 snapshot5 targets5");
    // An older configured root does not replace the kept one.
    EXPECT_TRUE(world.client.initialise(r.files["1.root.json"]));
    EXPECT_EQ(world.store.files["root"], r.files["5.root.json"]);
}

TEST(Client, RecoversFromVersionsThatAThiefMadeHigh) {
    for (const char* role : {"timestamp", "snapshot"}) {
        World world;
        Repository& r = world.repository;
        const Repository honest = r;
        r.raise(role, 1000);
        r.raise("targets", 1000);
        r.content["timestamp"]["version"] = 1005;
        r.publish();
        ASSERT_EQ(world.refresh(), "");
        r = honest;
        EXPECT_THAT(world.refresh(), HasSubstr("1005")) << role;
        r.setKeys(role, {testKey(30)});
        r.nextRoot();
        r.next();
        EXPECT_EQ(world.refresh(), "") << role;
        EXPECT_EQ(world.versions(), "root2 timestamp6 snapshot6 targets6") << role;
    }
}

TEST(Client, RecoversFromATimeThatAThiefMadeLate) {
    World world;
    Repository& r = world.repository;
    const Repository honest = r;
    r.content["timestamp"].update(
        {{"version", 1000}, {"expires", timeText(kNow + 10'000)}, {"signed_at", timeText(kNow + 9'000)}});
    r.signTimestamp();
    EXPECT_THAT(world.refresh(), HasSubstr("expired"));
    r = honest;
    EXPECT_THAT(world.refresh(), HasSubstr("expired")) << "a signed time counts while its key does";
    r.setKeys("timestamp", {testKey(30)});
    r.nextRoot();
    r.next();
    EXPECT_EQ(world.refresh(), "");
    EXPECT_EQ(world.versions(), "root2 timestamp6 snapshot6 targets6");
}

TEST(Client, DoesWithoutDamagedFilesButNotWithoutARoot) {
    for (const char* role : {"timestamp", "snapshot", "targets"}) {
        World world;
        ASSERT_EQ(world.refresh(), "");
        world.store.files[role] = "{\"signed\": ";
        EXPECT_EQ(world.refresh(), "") << role;
        EXPECT_EQ(world.versions(), "root1 timestamp5 snapshot5 targets5");
    }
    World world;
    ASSERT_EQ(world.refresh(), "");
    world.store.files["root"] = "?";
    EXPECT_THAT(world.refresh(), HasSubstr("metadata role root: it is not JSON"));
    EXPECT_TRUE(world.client.initialise(world.repository.files["1.root.json"]));
    EXPECT_EQ(world.refresh(), "");
}

TEST(Client, SaysThatTheStoreIsFull) {
    World world;
    world.store.full = true;
    EXPECT_THAT(world.refresh(), HasSubstr("metadata role timestamp, version 5: no space left; look at"));
}

TEST(Client, AsksForUnversionedNamesWithoutConsistentSnapshots) {
    World world;
    Repository& r = world.repository;
    r.content["root"]["consistent_snapshot"] = false;
    r.nextRoot();
    r.addTarget("targets", "d/b.xml", "second");
    r.next();
    ASSERT_EQ(world.refresh(), "");
    EXPECT_THAT(r.requests,
                ElementsAre("2.root.json", "3.root.json", "timestamp.json", "snapshot.json", "targets.json"));
    const auto target = world.client.find("d/b.xml").value();
    EXPECT_EQ(world.client.downloadPath(*target), "d/b.xml");
    EXPECT_EQ(world.client.download(*target, r).value(), "second");
}

}  // namespace

}  // namespace zelor::trust

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "tests/trust/Repository.h"

namespace zelor::trust {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const Json kEverything = {{"paths", {"*", "*/*"}}};

/// The delegated roles that the search for `path` asked for, and what came of it.
std::string searched(World& world, const std::string& path) {
    world.repository.publish();
    EXPECT_EQ(world.refresh(), "");
    world.repository.requests.clear();
    const auto found = world.client.find(path);
    std::string text;
    for (const std::string& request : world.repository.requests)
        text += request + " ";
    return text + (!found ? "failed" : *found ? "found" : "not listed");
}

TEST(Delegations, AreSearchedDepthFirstInTheirOrder) {
    World world;
    Repository& r = world.repository;
    r.delegate("targets", "A", kEverything);
    r.delegate("targets", "B", kEverything);
    r.delegate("A", "C", kEverything);
    r.delegate("C", "A", kEverything);  // a cycle
    r.delegate("B", "D", {{"paths", {"only/here"}}});
    r.addTarget("B", "f", "b's");
    EXPECT_EQ(searched(world, "f"), "5.A.json 5.C.json 5.B.json found");
    EXPECT_EQ(world.client.find("f").value()->length, 3U);
}

TEST(Delegations, EndAtATerminatingOne) {
    World world;
    Repository& r = world.repository;
    r.delegate("targets", "A", kEverything);
    r.delegate("targets", "B", kEverything);
    r.delegate("A", "C", kEverything, true);
    r.delegate("A", "D", kEverything);
    r.delegate("C", "E", kEverything);
    r.addTarget("B", "f", "not reached");
    r.addTarget("D", "f", "not reached");
    EXPECT_EQ(searched(world, "f"), "5.A.json 5.C.json 5.E.json not listed");
}

TEST(Delegations, GiveNoMoreThanTheyCover) {
    World world;
    Repository& r = world.repository;
    r.delegate("targets", "A", {{"paths", {"a/*"}}});
    r.delegate("A", "B", kEverything);
    r.addTarget("A", "other", "1");
    r.addTarget("B", "b/f", "2");
    r.addTarget("B", "a/f", "3");
    EXPECT_EQ(searched(world, "other"), "not listed");
    EXPECT_EQ(searched(world, "b/f"), "not listed");
    EXPECT_EQ(world.client.find("a/f").value()->length, 1U);
}

TEST(Delegations, OfBinsAskForOneAlone) {
    World world;
    Repository& r = world.repository;
    for (const char digit : std::string("0123456789abcdef"))
        r.delegate("targets", std::string("bin-") + digit, {{"path_hash_prefixes", {std::string(1, digit)}}});
    const std::string bin = std::string("bin-") + digestOf("sha256", "x.xml")->front();
    r.addTarget(bin, "x.xml", "x");
    EXPECT_EQ(searched(world, "x.xml"), "5." + bin + ".json found");
    world.repository.requests.clear();
    EXPECT_TRUE(world.client.find("x.xml").value());
    EXPECT_THAT(world.repository.requests, ElementsAre());
    EXPECT_TRUE(world.client.findKept("x.xml").value());
}

TEST(Delegations, AreFollowedInABoundedNumber) {
    World world;
    Repository& r = world.repository;
    std::string parent = "targets";
    for (int i = 0; i < 40; ++i) {
        const std::string role = "r" + std::to_string(i);
        r.delegate(parent, role, kEverything);
        parent = role;
    }
    r.addTarget(parent, "f", "deep");
    EXPECT_THAT(searched(world, "f"), HasSubstr("r30.json not listed"));
}

TEST(Delegations, HaveNamesThatAreNoPaths) {
    for (const char* name : {"../up", "/root", "a?b#c", "r\xc3\xb6le"}) {
        World world;
        world.repository.delegate("targets", name, kEverything);
        world.repository.addTarget(name, "f", "1");
        EXPECT_EQ(searched(world, "f"), "5." + percentEncoded(name) + ".json found");
        EXPECT_EQ(percentEncoded(name).find('/'), std::string::npos);
    }
}

/// What somebody makes of the role "A" of a valid repository that was published a second time.
struct DelegationAttack {
    const char* name;
    const char* cause;
    std::function<void(Repository&)> make;
};

void PrintTo(const DelegationAttack& attack, std::ostream* out) {
    *out << attack.name;
}

const std::vector<DelegationAttack> kDelegationAttacks = {
    {"Missing", "has no 6.A.json", [](Repository& r) { r.files.erase("6.A.json"); }},
    {"ByAnotherRole", "0 of 1 good",
     [](Repository& r) {
         r.signers["A"] = {testKey(3)};
         r.publish();
     }},
    {"OfAnotherPublication", "digest",
     [](Repository& r) {
         r.content["A"]["expires"] = timeText(kNow + 7);
         r.sign("A");
     }},
    {"OfAnotherVersion", "version 6 is listed",
     [](Repository& r) {
         r.listDigests = false;
         r.publish();
         r.files["6.A.json"] = r.files["5.A.json"];
     }},
    {"Expired", "expired",
     [](Repository& r) {
         r.content["A"]["expires"] = timeText(kNow);
         r.publish();
     }},
    {"WithoutEnd", "more bytes", [](Repository& r) { r.files["6.A.json"] += ' '; }},
    {"NotListed", "does not list it",
     [](Repository& r) {
         r.delegate("targets", "B", kEverything);
         r.content["targets"]["delegations"]["roles"].erase(0);
         r.publish();
         r.content["snapshot"]["meta"].erase("B.json");
         r.signSnapshot();
     }},
};

class DelegationAttacks : public testing::TestWithParam<DelegationAttack> {};

TEST_P(DelegationAttacks, EndTheSearch) {
    World world;
    Repository& r = world.repository;
    r.delegate("targets", "A", kEverything);
    r.addTarget("A", "f", "1");
    ASSERT_EQ(searched(world, "f"), "5.A.json found");
    r.raise("A");
    r.next();
    GetParam().make(r);
    ASSERT_EQ(world.refresh(), "");
    const auto found = world.client.find("f");
    ASSERT_FALSE(found);
    EXPECT_THAT(found.error().text, HasSubstr(GetParam().cause));
}

INSTANTIATE_TEST_SUITE_P(OnADelegatedRole, DelegationAttacks, testing::ValuesIn(kDelegationAttacks),
                         [](const auto& row) { return row.param.name; });

TEST(Downloads, HaveTheListedLengthAndDigests) {
    World world;
    Repository& r = world.repository;
    r.addTarget("targets", "d/two words.xml", "second");
    r.publish();
    ASSERT_EQ(world.refresh(), "");
    const TargetFile target = *world.client.find("d/two words.xml").value();
    const std::string name = target.digests.at("sha256") + ".two words.xml";
    EXPECT_EQ(world.client.downloadPath(target), "d/" + target.digests.at("sha256") + ".two%20words.xml");
    struct Served : Fetcher {
        Fetched file{true, ""};
        base::Result<Fetched> fetch(const std::string&, std::size_t) override { return file; }
    } served;
    for (const auto& [bytes, cause] : std::vector<std::pair<std::string, std::string>>{
             {"Second", "digest"}, {"secon", "5 bytes"}, {"second and more", "15 bytes"}}) {
        served.file.bytes = bytes;
        EXPECT_THAT(world.client.download(target, served).error().text, HasSubstr(cause));
    }
    served.file.bytes = "second";
    EXPECT_EQ(world.client.download(target, served).value(), "second");
    served.file.found = false;
    EXPECT_THAT(world.client.download(target, served).error().text, HasSubstr("does not have it"));
}

}  // namespace

}  // namespace zelor::trust

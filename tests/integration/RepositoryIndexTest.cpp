// The agent with the signed index of a repository on loopback.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <utility>

#include "agent/ContentCacheControl.h"
#include "agent/Prefetch.h"
#include "agent/RepositoryStatus.h"
#include "base/SystemRoot.h"
#include "collaborators/CreCacher.h"
#include "remediation/CallReport.h"
#include "tests/support/RepositoryServer.h"
#include "tests/support/SigningKey.h"
#include "tests/trust/Repository.h"

namespace zelor::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using trust::Json;

constexpr trust::Time kDay = 86400;

std::string expiry(int days) {
    return trust::timeText(std::time(nullptr) + days * kDay);
}

struct Fixture {
    TempDir root;
    RepositoryServer server;
    SigningKey key = SigningKey::ec();
    trust::Repository index;
    std::string url = server.url();

    Fixture() {
        setSystemRoot(root.path().string());
        writeFile(root / "etc/zelor/key.pem", key.publicPem());
        for (const char* role : {"root", "timestamp", "snapshot", "targets"})
            index.content[role]["expires"] = expiry(10);
        index.content["targets"]["targets"] = Json::object();
        index.sign("root");
        writeFile(root / "etc/zelor/root.json", index.files.at("1.root.json"));
    }

    void settings(const std::string& freshness) {
        writeFile(root / "etc/zelor/zelor.ini",
                  "[Repository]\nUrl = " + url +
                      "/\nTrustedKey = /etc/zelor/key.pem\nRoot = /etc/zelor/root.json\nFreshness = " +
                      freshness + "\n");
    }
    /// Content that hands out `cre`, signed as for agents without an index, and listed.
    void content(const std::string& identifier, const std::string& cre, const std::string& role = "targets") {
        const std::string xml = "<remediation identifier=\"" + identifier + "\"><cre id=\"" + cre +
                                "\" platform=\"o\"><eri id=\"E\"/></cre></remediation>";
        const std::string path = "content/" + identifier + ".xml";
        server.publish(path, xml);
        server.publish(path + ".sig", key.sign(xml));
        index.addTarget(role, path, xml);
    }
    /// Writes what the repository in memory has.
    void upload() { upload(server); }
    void upload(RepositoryServer& to) {
        for (const auto& [path, bytes] : index.files)
            to.publish((path.rfind("content/", 0) == 0 ? "" : "metadata/") + path, bytes);
    }
    void publish() {
        index.next();
        upload();
    }
    /// The timestamp as that of another kind, signed.
    void timestamp(const std::string& member, const Json& value) {
        index.content["timestamp"][member] = value;
        index.raise("timestamp");
        index.sign("timestamp");
        upload();
    }
    void file(const std::string& name, const std::string& bytes) {
        server.publish("metadata/" + name, bytes);
    }
    std::string kept(const std::string& name) { return root / ("opt/zelor/" + name); }

    std::string creOf(const std::string& identifier = "CVE-1") {
        parseOnlyMetadata metadata =
            CreCacher::GetInstance(root / "opt/zelor", "o")->getCre("o", "a", identifier);
        return metadata.getParsingFailed() ? "failed" : metadata.getcreEriData().getCreId();
    }
    /// A later run, of a new process where `forget`: nothing is in memory.
    std::string run(bool forget = true) {
        if (forget) CreCacher::GetInstance(root / "opt/zelor", "o")->removeCreFromCache("o", "a", "CVE-1");
        (void)server.takeLog();
        agent::startNewRun();
        return creOf();
    }
    std::vector<std::string> requests() {
        std::vector<std::string> all;
        for (const auto& line : server.takeLog())
            all.push_back(line.request.path + ' ' + std::to_string(line.status));
        return all;
    }
    std::string warnings() {
        std::string text;
        for (const std::string& warning : agent::indexWarnings(root / "opt/zelor"))
            text += warning + '\n';
        return text;
    }
    std::string log() { return readFile(root / "var/log/zelor/remediation.log"); }
};

struct Row {
    const char* name;
    void (*happens)(Fixture&);  ///< between a run that kept the content "one" and the next
    const char* cre;
    const char* required;  ///< the same with Freshness = require
    const char* warning;   ///< "" for none
    int requests;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

const Row kRows[] = {
    {"UpToDate", [](Fixture&) {}, "one", "one", "", 2},
    {"OneFileChanged",
     [](Fixture& f) {
         f.content("CVE-1", "two");
         f.publish();
     },
     "two", "two", "", 5},
    {"AnotherFileChanged",
     [](Fixture& f) {
         f.content("CVE-2", "two");
         f.publish();
     },
     "one", "one", "", 4},
    {"ContentWithdrawn",
     [](Fixture& f) {
         f.index.content["targets"]["targets"].erase("content/CVE-1.xml");
         f.publish();
     },
     "failed", "failed", "", 4},
    {"NoAnswer", [](Fixture& f) { f.server.stop(); }, "one", "one", "", 0},
    {"OlderIndexAndContent",
     [](Fixture& f) {
         const auto old = f.index.files;
         f.content("CVE-1", "two");
         f.publish();
         ASSERT_EQ(f.run(), "two");
         f.index.files = old;
         f.upload();
         f.server.publish("content/CVE-1.xml", "<the old one/>");
     },
     "two", "failed", "timestamp, version 6: version 6 is older than 7", 2},
    {"OldRepositoryWithoutIndex",
     [](Fixture& f) { boost::filesystem::remove_all(f.server.path("metadata")); }, "one", "failed",
     "the server has no timestamp.json", 2},
    {"ExpiredIndex", [](Fixture& f) { f.timestamp("expires", expiry(-3)); }, "one", "failed",
     "timestamp, version 7: it expired at", 2},
    {"ExpiredWhileNobodyAnswers",
     [](Fixture& f) {
         f.timestamp("expires", expiry(-3));
         writeFile(f.kept("metadata/timestamp.json"), f.index.files.at("timestamp.json"));
         f.server.stop();
     },
     "one", "failed", ", 3 days ago; ask the publisher to sign anew", 0},
    {"ClockSetBack",
     [](Fixture& f) {
         f.index.content["snapshot"]["expires"] = expiry(20);
         f.index.content["targets"]["expires"] = expiry(20);
         f.index.content["timestamp"]["expires"] = expiry(20);
         f.publish();
         ASSERT_EQ(f.run(), "one");
         // Signed when the root, which says 10 days, has expired.
         f.timestamp("signed_at", expiry(12));
         ASSERT_EQ(f.run(), "one");
     },
     "one", "failed", "root, version 1: it expired at", 1},
    {"MixedPublications",
     [](Fixture& f) {
         const std::string snapshot = f.index.files.at("6.snapshot.json");
         f.publish();
         f.file("7.snapshot.json", snapshot);
     },
     "one", "failed", "snapshot, version 7:", 3},
    {"EndlessData", [](Fixture& f) { f.file("timestamp.json", std::string(70'000, ' ')); }, "one", "failed",
     "is larger than the 65536 bytes allowed", 2},
    {"Malformed", [](Fixture& f) { f.file("timestamp.json", "{\"signed\": "); }, "one", "failed",
     "metadata role timestamp", 2},
    {"AnotherSigner",
     [](Fixture& f) {
         f.index.signers["timestamp"] = {trust::testKey(12)};
         f.timestamp("version", 9);
     },
     "one", "failed", "timestamp, version 10:", 2},
    {"TheListedFileIsNotServed",
     [](Fixture& f) {
         f.content("CVE-1", "two");
         f.publish();
         boost::filesystem::remove_all(f.server.path("content"));
     },
     "one", "failed", "an older copy is used of CVE-1", 5},
    {"AnotherFileIsServed",
     [](Fixture& f) {
         f.content("CVE-1", "two");
         f.publish();
         for (const auto& [name, bytes] : f.index.files)
             if (name.rfind("content/", 0) == 0) f.server.publish(name, std::string(bytes.size(), 'x'));
     },
     "one", "failed", "is not the file that the index lists", 5},
    {"DamagedMetadata",
     [](Fixture& f) {
         for (const char* role : {"root", "timestamp", "snapshot", "targets"})
             writeFile(f.kept("metadata/" + std::string(role) + ".json"), "damaged");
     },
     "one", "one", "", 4},
    {"AnotherRepositorysRootIsConfigured",
     [](Fixture& f) {
         f.index.setKeys("root", {trust::testKey(40)});
         f.index.sign("root");
         writeFile(f.root / "etc/zelor/root.json", f.index.files.at("1.root.json"));
         for (const char* role : {"timestamp", "snapshot", "targets"})
             f.index.content[role]["version"] = 1;
         f.content("CVE-1", "two");
         f.publish();
     },
     "two", "two", "earlier versions are accepted again", 5},
    {"ALaterRootIsConfiguredAndOldFilesAreServed",
     [](Fixture& f) {
         f.index.nextRoot();
         writeFile(f.root / "etc/zelor/root.json", f.index.files.at("2.root.json"));
         f.timestamp("version", 4);
     },
     "one", "failed", "timestamp, version 5: version 5 is older than 6", 2},
    {"DamagedCopy", [](Fixture& f) { writeFile(f.kept("content/CVE-1.xml"), "<remediation/>"); }, "one",
     "one", "", 3},
};

struct RepositoryIndexTest : testing::TestWithParam<Row> {
    Fixture f;

    RepositoryIndexTest() {
        f.content("CVE-1", "one");
        f.publish();
    }
};

TEST_P(RepositoryIndexTest, WhatIsKnownAndVerifiedServesAndTheRestIsNoticed) {
    const Row& row = GetParam();
    f.settings("warn");
    ASSERT_EQ(f.run(), "one") << f.log();
    ASSERT_EQ(f.warnings(), "");
    row.happens(f);
    EXPECT_EQ(f.run(), row.cre) << f.log();
    EXPECT_EQ(f.requests().size(), static_cast<std::size_t>(row.requests));
    EXPECT_EQ(f.warnings().empty(), *row.warning == '\0') << f.warnings();
    EXPECT_THAT(f.warnings(), HasSubstr(row.warning));
    EXPECT_THAT(f.log(), HasSubstr(row.warning));
    const bool failed = row.cre == std::string("failed");
    EXPECT_EQ(boost::filesystem::exists(f.kept("content/CVE-1.xml")), !failed);
    // The run after it gives the same: nothing on disk was lost.
    EXPECT_EQ(f.run(), row.cre);
    f.settings("require");
    CallReport report;
    EXPECT_EQ(f.run(), row.required);
    EXPECT_EQ(report.reason().empty(), row.required != std::string("failed")) << report.reason();
}

INSTANTIATE_TEST_SUITE_P(Table, RepositoryIndexTest, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.name; });

// The kept index is that of the second of two mirrors, which has newer content; the first is behind, or down.
TEST(RepositoryIndexMirrorsTest, WhatTheFirstDoesNotHaveComesFromTheNext) {
    const struct {
        const char* name;
        void (*happens)(Fixture&, RepositoryServer& first);
        const char* logged;
    } rows[] = {
        {"older index", [](Fixture&, RepositoryServer&) {}, "is older than"},
        {"newer index, older file",
         [](Fixture& f, RepositoryServer& first) {
             f.upload(first);
             for (const auto& [name, bytes] : f.index.files)
                 if (name.rfind("content/", 0) == 0) first.publish(name, std::string(bytes.size(), 'x'));
         },
         "is not the file that the index lists"},
        {"down", [](Fixture&, RepositoryServer& first) { first.stop(); }, "connect"},
    };
    for (const bool ahead : {false, true}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(row.name) + (ahead ? ", ahead" : ""));
            Fixture f;
            RepositoryServer first;
            const std::string both = first.url() + ' ' + f.url;
            f.content("CVE-1", "one");
            f.publish();
            f.upload(first);
            f.publish();
            f.settings("require");
            ASSERT_EQ(f.run(), "one");
            f.content("CVE-1", "two");
            f.publish();
            row.happens(f, first);
            const std::string second = std::exchange(f.url, both);
            f.settings("require");
            agent::startNewRun();
            agent::Prefetch prefetch(f.root / "opt/zelor");
            if (ahead) prefetch.contentNeeded({{"key", "o", "a", "CVE-1"}});
            EXPECT_EQ(f.creOf(), "two") << f.log();
            EXPECT_EQ(f.warnings(), "");
            EXPECT_THAT(f.log(),
                        testing::ContainsRegex("//127.*" + std::string(row.logged) + ".*; asking " + second));
            prefetch.ended();
        }
    }
}

// A new agent and a repository without an index; then it gets one.
TEST(RepositoryIndexFirstTest, WithoutAnIndexSignaturesCountUnlessFreshnessIsRequired) {
    const struct {
        const char *freshness, *cre, *warning;
    } rows[] = {{"warn", "one", "there is no index of the repository yet: metadata role timestamp"},
                {"off", "one", ""},
                {"require", "failed", "there is no index of the repository yet"}};
    for (const auto& row : rows) {
        Fixture f;
        f.settings(row.freshness);
        f.content("CVE-1", "one");
        EXPECT_EQ(f.run(), row.cre) << row.freshness;
        EXPECT_THAT(f.warnings(), HasSubstr(row.warning));
        EXPECT_EQ(f.warnings().empty(), *row.warning == '\0');
        f.publish();
        EXPECT_EQ(f.run(), "one") << row.freshness;
        EXPECT_EQ(f.warnings(), "");
        // What has expired counts where freshness is off, and what is older never does.
        f.content("CVE-1", "two");
        f.index.content["timestamp"]["expires"] = expiry(-1);
        f.publish();
        const bool off = row.freshness == std::string("off");
        EXPECT_EQ(f.run(), off ? "two" : row.cre) << row.freshness;
        EXPECT_EQ(f.warnings().empty(), off);
        f.index.raise("timestamp", -2);
        f.index.sign("timestamp");
        f.upload();
        EXPECT_EQ(f.run(), off ? "two" : row.cre) << row.freshness;
    }
}

TEST(RepositoryIndexRunTest, AnIdleRunAsksTwiceAndAChangeCostsWhatChanged) {
    Fixture f;
    f.settings("warn");
    std::vector<NeededContent> needed;
    for (const char* prefix :
         {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "a", "b", "c", "d", "e", "f"}) {
        const std::string role = std::string("bin-") + prefix;
        f.index.delegate("targets", role, {{"path_hash_prefixes", {prefix}}});
        f.index.content[role]["expires"] = expiry(10);
    }
    const auto add = [&](int number, const std::string& cre) {
        const std::string identifier = "CVE-" + std::to_string(number);
        const std::string digest = *trust::digestOf("sha256", "content/" + identifier + ".xml");
        f.content(identifier, cre, "bin-" + digest.substr(0, 1));
        return "bin-" + digest.substr(0, 1);
    };
    for (int i = 0; i < 200; ++i) {
        add(i, "one");
        needed.push_back({"key" + std::to_string(i), "o", "a", "CVE-" + std::to_string(i)});
    }
    f.publish();
    const auto run = [&] {
        agent::Prefetch prefetch(f.root / "opt/zelor");
        (void)f.server.takeLog();
        agent::startNewRun();
        prefetch.contentNeeded(needed);
        std::size_t good = 0;
        for (const NeededContent& one : needed) {
            CreCacher::GetInstance(f.root / "opt/zelor", "o")->removeCreFromCache("o", "a", one.identifier);
            good += f.creOf(one.identifier) != "failed" ? 1 : 0;
        }
        prefetch.ended();
        return good;
    };
    EXPECT_EQ(run(), 200U);
    EXPECT_EQ(f.requests().size(), 2U + 2U + 16U + 200U);
    for (const NeededContent& one : needed)  // as for what was applied
        CreCacher::GetInstance(f.root / "opt/zelor", "o")->removeCreFile("o", "a", one.identifier);
    EXPECT_EQ(run(), 200U);
    EXPECT_THAT(f.requests(), ElementsAre("/metadata/2.root.json 404", "/metadata/timestamp.json 200"));
    EXPECT_LE(f.index.files.at("timestamp.json").size(), 1024U);

    const std::string bin = add(7, "two");
    f.index.raise(bin);
    f.publish();
    EXPECT_EQ(run(), 200U);
    EXPECT_EQ(f.requests().size(), 2U + 2U + 1U + 1U);
    EXPECT_EQ(f.creOf("CVE-7"), "two");

    // A mirror without the new part of the index: its content is not known to be the newest.
    add(7, "three");
    f.index.raise(bin);
    f.publish();
    boost::filesystem::remove(f.server.path("metadata/" + f.index.nameOf(bin)));
    EXPECT_EQ(run(), 200U);
    EXPECT_EQ(f.creOf("CVE-7"), "two");
    EXPECT_THAT(f.warnings(), HasSubstr(bin));

    struct stat status {};
    ASSERT_EQ(::stat(f.kept("metadata").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    EXPECT_EQ(agent::keptIndex(f.root / "opt/zelor").roles.size(), 4U);
    EXPECT_THAT(agent::keptIndex(f.root / "opt/zelor").warnings, IsEmpty());
    f.timestamp("expires", expiry(-2));
    writeFile(f.kept("metadata/timestamp.json"), f.index.files.at("timestamp.json"));
    EXPECT_THAT(agent::keptIndex(f.root / "opt/zelor").warnings, ElementsAre(HasSubstr("2 days ago")));
}

}  // namespace
}  // namespace zelor::test

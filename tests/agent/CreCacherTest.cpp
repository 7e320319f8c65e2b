#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "agent/ContentCacheControl.h"
#include "agent/content/ContentLibrary.h"
#include "base/SystemRoot.h"
#include "collaborators/CreCacher.h"
#include "remediation/CallReport.h"
#include "support/DripServer.h"
#include "support/RepositoryServer.h"
#include "support/SigningKey.h"
#include "support/Soon.h"

namespace zelor::agent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kCve = "CVE-2014-4459";

struct CreCacherTest : testing::Test {
    test::TempDir root;
    test::RepositoryServer server;
    test::SigningKey key = test::SigningKey::ec();

    CreCacherTest() {
        setSystemRoot(root.path().string());
        test::writeFile(root / "etc/zelor/key.pem", key.publicPem());
        test::writeFile(root / "etc/zelor/zelor.ini",
                        "[Repository]\nUrl = " + server.url() + "/\nTrustedKey = /etc/zelor/key.pem\n");
    }

    static std::string content(const std::string& cre, const std::string& identifier = kCve) {
        return "<remediation identifier=\"" + identifier + "\"><cre id=\"" + cre +
               "\" platform=\"o\"><eri id=\"E\"/></cre></remediation>";
    }
    void publish(const std::string& xml) {
        server.publish("content/" + kCve + ".xml", xml);
        server.publish("content/" + kCve + ".xml.sig", key.sign(xml));
    }
    /// The CRE that the cache hands out, "failed" when none.
    std::string creOf(const std::string& identifier = kCve, const std::string& platform = "o") {
        parseOnlyMetadata metadata = cacher()->getCre(platform, "a", identifier);
        return metadata.getParsingFailed() ? "failed" : metadata.getcreEriData().getCreId();
    }
    CreCacher* cacher() { return CreCacher::GetInstance(root / "opt/zelor/", "o"); }
    void forget() { cacher()->removeCreFromCache("o", "a", kCve); }
    std::string kept(const std::string& suffix = ".xml") {
        return root / ("opt/zelor/content/" + kCve + suffix);
    }
    std::vector<int> statuses() {
        std::vector<int> all;
        for (const auto& line : server.takeLog())
            all.push_back(line.status);
        return all;
    }
    std::string logText() { return test::readFile(root / "var/log/zelor/remediation.log"); }
};

TEST_F(CreCacherTest, ContentIsFetchedOnceAndConfirmedOncePerRun) {
    publish(content("one"));
    EXPECT_EQ(creOf(), "one");
    EXPECT_THAT(statuses(), ElementsAre(200, 200));
    EXPECT_EQ(creOf(), "one");
    EXPECT_EQ(creOf(kCve, "other"), "failed");
    EXPECT_THAT(statuses(), IsEmpty());
    EXPECT_THAT(logText(), HasSubstr("no cre for platform 'other'"));
    startNewRun();
    EXPECT_EQ(creOf(), "one");
    EXPECT_EQ(creOf(), "one");
    EXPECT_THAT(statuses(), ElementsAre(304));
    startNewRun();
    publish(content("other"));
    EXPECT_EQ(creOf(), "other");
    EXPECT_THAT(statuses(), ElementsAre(200, 200));

    struct stat status {};
    ASSERT_EQ(::stat(kept().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_EQ(::stat((root / "opt/zelor/content").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(CreCacherTest, NoRepositoryHoldsContentForLong) {
    using std::chrono::milliseconds;
    RetryPolicy retry = contentRetryPolicy();
    retry.firstPause = milliseconds(50);
    for (const test::DripServer::Drip& drip : test::DripServer::all()) {
        const test::DripServer slow(drip);
        HttpClient client;
        const auto start = std::chrono::steady_clock::now();
        RepositoryTurn turn;
        const ContentAnswer answer =
            fetchContent(client, {slow.url(), "", nullptr}, kCve, {}, retry, milliseconds(300), turn);
        EXPECT_EQ(answer.kind, ContentAnswer::Kind::noAnswer) << drip.name;
        EXPECT_THAT(answer.problem, HasSubstr("it takes longer than ContentSeconds")) << drip.name;
        EXPECT_LT(std::chrono::steady_clock::now() - start, test::kSoon) << drip.name;
    }
}

TEST_F(CreCacherTest, ACancelEndsTheWaitForContent) {
    const std::string ini = test::readFile(root / "etc/zelor/zelor.ini");
    for (const test::DripServer::Drip& drip : test::DripServer::all()) {
        const test::DripServer slow(drip);
        test::writeFile(root / "etc/zelor/zelor.ini",
                        "[Repository]\nUrl = " + slow.url() + "\nTrustedKey = /etc/zelor/key.pem\n");
        const auto start = std::chrono::steady_clock::now();
        const CallReport report({}, [&] { return slow.connections() > 0; });
        EXPECT_EQ(creOf(), "failed") << drip.name;
        EXPECT_LT(std::chrono::steady_clock::now() - start, test::kSoon) << drip.name;
        EXPECT_EQ(report.reason(), "") << drip.name;
    }
    // Without an answer nothing is cached: the next call asks as usual.
    test::writeFile(root / "etc/zelor/zelor.ini", ini);
    publish(content("one"));
    EXPECT_EQ(creOf(), "one");
}

TEST_F(CreCacherTest, EveryCallThatFailsSaysWhy) {
    publish(content("one"));
    const struct {
        std::string identifier, platform, reason;
    } calls[] = {
        {kCve, "o", ""},
        {kCve, "other", "no cre for platform 'other'"},
        {"CVE-404", "o", "the repository answered 404; publish the content there"},
        {"CVE-404", "o", "the repository answered 404; publish the content there"},  // from memory
        {"CVE/1", "o", "an identifier has at most"},
    };
    for (const auto& call : calls) {
        CallReport report;
        EXPECT_EQ(creOf(call.identifier, call.platform), call.reason.empty() ? "one" : "failed");
        EXPECT_THAT(report.reason(), HasSubstr(call.reason));
        EXPECT_EQ(report.reason().empty(), call.reason.empty());
    }
}

TEST_F(CreCacherTest, TheCopyOnDiskSparesTheTransferAndServesWhenNobodyAnswers) {
    publish(content("one"));
    EXPECT_EQ(creOf(), "one");
    forget();
    statuses();
    EXPECT_EQ(creOf(), "one");
    EXPECT_THAT(statuses(), ElementsAre(304));
    forget();
    startNewRun();
    server.answerAll(503);
    EXPECT_EQ(creOf(), "one");
    EXPECT_THAT(statuses(), ElementsAre(503, 503, 503));
    forget();
    EXPECT_EQ(creOf(), "one");
    EXPECT_THAT(statuses(), IsEmpty()) << "a silent repository is not asked again at once";
    forget();
    startNewRun();
    server.stop();
    EXPECT_EQ(creOf(), "one");
    forget();
    cacher()->removeCreFile("o", "a", kCve);
    EXPECT_FALSE(boost::filesystem::exists(kept()));
    EXPECT_FALSE(boost::filesystem::exists(kept(".xml.sig")));
    EXPECT_EQ(creOf(), "failed");
    EXPECT_THAT(logText(), HasSubstr("check that the repository can be reached"));
}

TEST_F(CreCacherTest, ADamagedCopyIsFetchedAgain) {
    publish(content("one"));
    EXPECT_EQ(creOf(), "one");
    // As after a crash between the two renames, in the worst case with the old version file.
    for (const std::string& suffix : {std::string(".xml"), std::string(".xml.sig")}) {
        const std::string good = test::readFile(kept(suffix));
        test::writeFile(kept(suffix), suffix == ".xml" ? content("evil") : key.sign("other"));
        forget();
        statuses();
        EXPECT_EQ(creOf(), "one") << suffix;
        EXPECT_THAT(statuses(), ElementsAre(200, 200)) << suffix;
        EXPECT_EQ(test::readFile(kept(".xml")), content("one")) << suffix;
    }
    test::writeFile(kept(), content("evil"));
    forget();
    startNewRun();
    server.stop();
    EXPECT_EQ(creOf(), "failed");
}

TEST_F(CreCacherTest, WithdrawnContentIsForgotten) {
    publish(content("one"));
    EXPECT_EQ(creOf(), "one");
    startNewRun();
    server.withdraw("content/" + kCve + ".xml");
    EXPECT_EQ(creOf(), "failed");
    EXPECT_FALSE(boost::filesystem::exists(kept()));
    EXPECT_EQ(creOf(), "failed");
    EXPECT_THAT(statuses(), ElementsAre(200, 200, 404));
    startNewRun();
    publish(content("two"));
    EXPECT_EQ(creOf(), "two");
}

TEST_F(CreCacherTest, WhatIsNotSignedAsPublishedIsNeverUsed) {
    const std::string xml = content("one");
    const std::string other = content("other", "CVE-2014-0001");
    struct Case {
        std::string what, xml, signature;
    };
    const Case cases[] = {
        {"empty signature", xml, ""},
        {"garbage", xml, "garbage"},
        {"another key", xml, test::SigningKey::ec().sign(xml)},
        {"another content's signature", xml, key.sign(other)},
        {"signed content of another identifier", other, key.sign(other)},
        {"malformed but signed", "<remediation", key.sign("<remediation")},
        {"changed after signing", content("evil"), key.sign(xml)},
    };
    for (const Case& one : cases) {
        startNewRun();
        server.publish("content/" + kCve + ".xml", one.xml);
        server.publish("content/" + kCve + ".xml.sig", one.signature);
        EXPECT_EQ(creOf(), "failed") << one.what;
        EXPECT_FALSE(boost::filesystem::exists(kept())) << one.what;
    }
    startNewRun();
    server.withdraw("content/" + kCve + ".xml.sig");
    EXPECT_EQ(creOf(), "failed");
    startNewRun();
    server.publish("content/" + kCve + ".xml", std::string(5U << 20U, ' '));
    EXPECT_EQ(creOf(), "failed");
    EXPECT_THAT(logText(), HasSubstr("is larger than the 4194304 bytes allowed"));
    startNewRun();
    publish(xml);
    EXPECT_EQ(creOf(), "one");
}

TEST_F(CreCacherTest, HostileIdentifiersReachNeitherDiskNorNetwork) {
    for (const std::string& hostile :
         std::vector<std::string>{"", "..", "../../etc/zelor/key.pem", "a/b", "a\nb", "%2e%2e"}) {
        EXPECT_EQ(creOf(hostile), "failed");
        cacher()->removeCreFile("o", "a", hostile);
    }
    EXPECT_THAT(server.takeLog(), IsEmpty());
    EXPECT_FALSE(boost::filesystem::exists(root / "opt/zelor/content"));
    EXPECT_TRUE(boost::filesystem::exists(root / "etc/zelor/key.pem"));
}

TEST(ContentCacheTest, WhatWasNotUsedForLongestGoesFirst) {
    const auto documentOf = [](const std::string& identifier) {
        const std::string xml = "<remediation identifier='" + identifier + "'><!--" +
                                std::string(10'000, 'x') + "--></remediation>";
        return std::make_shared<const ContentDocument>(ContentDocument::parse(xml, identifier));
    };
    ContentCache cache(35'000);
    for (const char* name : {"a", "b", "c"})
        cache.put(name, {documentOf(name), {}, 1, {}});
    EXPECT_TRUE(cache.get("a"));
    cache.put("d", {documentOf("d"), {}, 1, {}});
    EXPECT_TRUE(cache.get("a"));
    EXPECT_FALSE(cache.get("b"));
    cache.put("a", {nullptr, {}, 1, {}});
    EXPECT_FALSE(cache.get("a")->document);
    cache.remove("d");
    EXPECT_FALSE(cache.get("d"));
    EXPECT_TRUE(cache.get("c"));
}

}  // namespace
}  // namespace zelor::agent

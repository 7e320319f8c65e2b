#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/download/PatchDownload.h"
#include "agent/http/RepositoryOutage.h"
#include "base/SystemRoot.h"
#include "collaborators/CreCacher.h"
#include "collaborators/RemediationResourceDownloader.h"
#include "remediation/CallReport.h"
#include "support/DripServer.h"
#include "support/RepositoryServer.h"
#include "support/Soon.h"

namespace zelor::agent {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::StartsWith;
using Turn = RepositoryOutage::Turn;

constexpr int kRequests = 200;

HttpResult answer(long status) {
    HttpResult result;
    result.outcome = status == 0 ? HttpOutcome::transient : HttpOutcome::answered;
    result.head.status = status;
    return result;
}

TEST(RepositoryOutageTest, ASeriesHasItsPatienceAndProbesComeMoreAndMoreSeldom) {
    RepositoryOutage outage;
    const RepositoryOutage::Time start = std::chrono::steady_clock::now();
    const auto at = [&](int time) { return start + seconds(time); };
    EXPECT_EQ(outage.begin("a", at(0)), Turn::series);
    EXPECT_EQ(outage.bounded(Turn::series, {}, at(0)).firstAnswer, seconds(10));
    EXPECT_TRUE(outage.learn("a", answer(0), at(0)));
    EXPECT_EQ(outage.bounded(Turn::series, {}, at(11)).firstAnswer, seconds(4));
    EXPECT_TRUE(outage.mayGoOn(Turn::series, at(14), {}));
    EXPECT_FALSE(outage.mayGoOn(Turn::series, at(15), {}));
    EXPECT_TRUE(outage.mayGoOn(Turn::series, at(50), seconds(40))) << "the server asked for it";
    EXPECT_FALSE(outage.mayGoOn(Turn::series, at(50), seconds(40))) << "once";
    int now = 15;
    for (const int pause : {5, 10, 20, 30, 30}) {
        outage.gaveUp("a", at(now), {});
        EXPECT_EQ(outage.begin("b", at(now + pause - 1)), Turn::none) << pause;
        EXPECT_EQ(outage.begin("a", at(now + pause)), Turn::probe) << pause;
        EXPECT_EQ(outage.begin("a", at(now + pause)), Turn::none) << "one probe at a time";
        EXPECT_EQ(outage.bounded(Turn::probe, {}, at(now)).firstAnswer, seconds(3));
        EXPECT_FALSE(outage.mayGoOn(Turn::probe, at(now), {}));
        now += pause;
    }
    outage.gaveUp("a", at(now), seconds(100));
    EXPECT_EQ(outage.begin("a", at(now + 99)), Turn::none) << "Retry-After counts for all";
    EXPECT_EQ(outage.begin("a", at(now + 100)), Turn::probe);
    EXPECT_FALSE(outage.learn("a", answer(404), at(now + 100)));
    EXPECT_EQ(outage.begin("a", at(now + 100)), Turn::series) << "any answer ends it";
    EXPECT_TRUE(outage.learn("a", answer(503), at(now)));
    outage.gaveUp("a", at(now), {});
    EXPECT_EQ(outage.begin("a", at(now)), Turn::none);
    EXPECT_EQ(outage.begin("b", at(now)), Turn::probe) << "it may be the file's trouble alone";
    EXPECT_TRUE(outage.isOneFile());
    outage.gaveUp("b", at(now), {});
    EXPECT_EQ(outage.begin("c", at(now + 4)), Turn::none);
    EXPECT_EQ(outage.begin("c", at(now + 5)), Turn::probe) << "the pauses begin now";
    EXPECT_EQ(outage.begin("a", at(now + 601)), Turn::series) << "nobody met it for ten minutes";
}

TEST(RepositoryOutageTest, OneRequestMeetsItAndTheOthersEndAtOnceWhateverItsKind) {
    const test::TempDir root;
    setSystemRoot(root.path().string());
    HttpClient client;
    test::RepositoryServer gone;
    const std::string refused = gone.url();
    gone.stop();
    test::RepositoryServer ill;
    ill.answerAll(503);
    const test::DripServer mute(test::DripServer::all().at(0));
    const test::DripServer continues(test::DripServer::all().at(2));
    for (const std::string& url : {refused, ill.url(), mute.url(), continues.url()}) {
        DownloadPolicy policy;
        policy.retry.firstPause = policy.retry.longestPause = milliseconds(1);
        policy.limits.firstAnswer = milliseconds(100);
        policy.outage = std::make_shared<RepositoryOutage>();
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kRequests; ++i) {
            const std::string name = std::to_string(i) + ".zip";
            const CallReport report;
            const DownloadJob job{url + "/patches/" + name, name, root / "partial", root / name};
            ASSERT_EQ(PatchDownload(job, policy, client).run(), DownloadResult::failed);
            EXPECT_THAT(report.reason(), StartsWith("the repository does not answer since "));
        }
        EXPECT_LT(std::chrono::steady_clock::now() - start, test::kSoon) << url;
    }
    EXPECT_EQ(ill.takeLog().size(), 5U + 1U)
        << "the next file confirms that it is not the first one's trouble";
    EXPECT_EQ(mute.connections(), 5);
}

TEST(RepositoryOutageTest, AFileThatTheServerCannotGiveKeepsNoOtherFromBeingServed) {
    const test::TempDir root;
    setSystemRoot(root.path().string());
    test::RepositoryServer server;
    server.onRequest([](const authoring::ServerRequest& request, int) {
        authoring::ServerFault fault;
        if (request.path.find("ill") != std::string::npos) {
            fault.status = 503;
            fault.headers = {{"Retry-After", "600"}};
        }
        return fault;
    });
    DownloadPolicy policy;
    policy.retry.firstPause = policy.retry.longestPause = milliseconds(1);
    policy.outage = std::make_shared<RepositoryOutage>();
    HttpClient client;
    for (const char* name : {"a.zip", "ill.zip", "b.zip", "ill.zip", "ill-too.zip"}) {
        if (*name != 'i') server.publish(std::string("patches/") + name, "archive");
        const DownloadJob job{server.url() + "/patches/" + name, name, root / "partial", root / name};
        EXPECT_EQ(PatchDownload(job, policy, client).run(),
                  *name == 'i' ? DownloadResult::failed : DownloadResult::done)
            << name;
    }
    EXPECT_EQ(server.takeLog().size(), 1U + 2U + 1U + 2U + 1U) << "two in a row: the second is a probe";
}

TEST(RepositoryOutageTest, ContentAndArchivesShareWhatTheyKnow) {
    const test::TempDir root;
    setSystemRoot(root.path().string());
    test::RepositoryServer server;
    test::writeFile(root / "etc/zelor/zelor.ini", "[Repository]\nUrl = " + server.url() + "\n");
    server.answerAll(503);
    const auto contentFails = [&](const std::string& identifier) {
        return CreCacher::GetInstance(root / "opt", "o")->getCre("o", "a", identifier).getParsingFailed();
    };
    EXPECT_TRUE(contentFails("CVE-1"));
    EXPECT_EQ(server.takeLog().size(), 3U);
    EXPECT_TRUE(contentFails("CVE-2"));
    EXPECT_EQ(server.takeLog().size(), 1U) << "another file confirms it";
    EXPECT_TRUE(contentFails("CVE-3"));
    std::string archive = root / "a.zip";
    EXPECT_NE(RemediationResourceDownloader::GetInstance()->getResource("a", archive, "pkg", root / "opt",
                                                                        false, 0),
              0);
    EXPECT_EQ(server.takeLog().size(), 0U);
}

}  // namespace
}  // namespace zelor::agent

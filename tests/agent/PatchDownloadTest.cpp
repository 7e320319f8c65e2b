#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/thread/thread.hpp>
#include <condition_variable>
#include <mutex>

#include "agent/DownloadProgress.h"
#include "agent/download/PatchDownload.h"
#include "agent/download/RangeHeaders.h"
#include "base/SystemRoot.h"
#include "collaborators/DownloadManager.h"
#include "collaborators/RemediationResourceDownloader.h"
#include "support/DripServer.h"
#include "support/RawServer.h"
#include "support/RepositoryServer.h"
#include "support/Soon.h"

namespace zelor::agent {
namespace {

using std::chrono::milliseconds;
using test::readFile;
using test::writeFile;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

std::string randomBytes(std::size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>((seed = seed * 1103515245U + 12345U) >> 16U);
    return bytes;
}

struct PatchDownloadTest : testing::Test {
    test::TempDir root;
    test::RepositoryServer server;
    HttpClient client;
    DownloadPolicy policy;
    std::string bytes = randomBytes(300'000, 1);

    PatchDownloadTest() {
        setSystemRoot(root.path().string());
        configure(server.url());
        server.publish("patches/editor 2.1.zip", bytes);
        policy.retry.firstPause = milliseconds(1);
        policy.retry.longestPause = milliseconds(2);
    }
    void configure(const std::string& url) {
        writeFile(root / "etc/zelor/zelor.ini", "[Repository]\nUrl = " + url + "\n");
    }
    DownloadResult run() { return runFrom(server.url()); }
    DownloadResult runFrom(const std::string& url) {
        return PatchDownload(
                   {url + "/patches/editor%202.1.zip", "editor 2.1.zip", root / "opt/partial", archive(), 0},
                   policy, client)
            .run();
    }
    std::string archive() { return root / "content/editor 2.1.zip"; }
    std::string partial() { return root / "opt/partial/editor 2.1.zip.part"; }
    bool arrived() { return readFile(archive()) == bytes; }
    std::string logText() { return readFile(root / "var/log/zelor/remediation.log"); }

    /// Only the first request gets the fault.
    void firstMeets(const authoring::ServerFault& fault) {
        server.onRequest([=](const authoring::ServerRequest&, int number) {
            return number == 0 ? fault : authoring::ServerFault();
        });
    }
    static authoring::ServerFault dropAfter(std::uint64_t sent) {
        authoring::ServerFault fault;
        fault.dropAfter = sent;
        return fault;
    }
    /// Leaves the first `sent` bytes behind as a partial file.
    void leavePartial(std::uint64_t sent) {
        const int attempts = std::exchange(policy.retry.attempts, 1);
        server.onRequest([=](const authoring::ServerRequest&, int) { return dropAfter(sent); });
        ASSERT_EQ(run(), DownloadResult::failed);
        ASSERT_TRUE(readFile(partial()) == bytes.substr(0, sent));
        policy.retry.attempts = attempts;
        server.behave();
        server.takeLog();
    }
    static mode_t modeOf(const std::string& path) {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0;
    }
};

TEST_F(PatchDownloadTest, ACompleteArchiveIsMovedIntoPlaceForThisUserAlone) {
    EXPECT_EQ(run(), DownloadResult::done);
    EXPECT_TRUE(arrived());
    EXPECT_EQ(modeOf(archive()), 0600U);
    EXPECT_EQ(modeOf(root / "opt/partial"), 0700U);
    EXPECT_TRUE(boost::filesystem::is_empty(root / "opt/partial"));
    const DownloadSnapshot progress = DownloadProgress::instance().snapshot();
    EXPECT_FALSE(progress.active);
    EXPECT_EQ(progress.resource, "editor 2.1.zip");
    EXPECT_EQ(progress.bytesDone, bytes.size());
    EXPECT_EQ(progress.bytesTotal, bytes.size());
}

TEST_F(PatchDownloadTest, StatusesThatMayPassAreTriedAgain) {
    for (const int status : {408, 429, 500, 502, 503}) {
        authoring::ServerFault fault;
        fault.status = status;
        fault.headers = {{"Retry-After", status == 429 ? "3600" : "Sun, 06 Nov 1994 08:49:37 GMT"}};
        firstMeets(fault);
        EXPECT_EQ(run(), DownloadResult::done) << status;
        EXPECT_EQ(server.takeLog().size(), 2U) << status;
    }
    server.answerAll(500);
    EXPECT_EQ(run(), DownloadResult::failed);
    EXPECT_EQ(server.takeLog().size(), 5U);
    EXPECT_THAT(logText(), HasSubstr("answered 500; gave up after 5 attempts"));
}

TEST_F(PatchDownloadTest, StatusesThatStayFailAtOnceAndNameTheRemedy) {
    for (const int status : {400, 401, 403, 404, 410, 416, 304}) {
        server.answerAll(status);
        EXPECT_EQ(run(), DownloadResult::failed) << status;
        EXPECT_EQ(server.takeLog().size(), 1U) << status;
        EXPECT_FALSE(boost::filesystem::exists(archive()));
        EXPECT_TRUE(boost::filesystem::is_empty(root / "opt/partial")) << status;
    }
    EXPECT_THAT(logText(),
                AllOf(HasSubstr("[Downloader] cannot fetch " + server.url() + "/patches/editor%202.1.zip"),
                      HasSubstr("answered 404; publish the archive")));
}

TEST_F(PatchDownloadTest, ADroppedTransferIsResumed) {
    firstMeets(dropAfter(100'000));
    EXPECT_EQ(run(), DownloadResult::done);
    EXPECT_TRUE(arrived());
    const auto log = server.takeLog();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_EQ(log[1].request.range, "bytes=100000-");
    EXPECT_THAT(log[1].request.ifRange, testing::StartsWith("\""));
    EXPECT_EQ(log[1].status, 206);
}

TEST_F(PatchDownloadTest, ProgressAllowsMoreAttempts) {
    server.onRequest([](const authoring::ServerRequest&, int) { return dropAfter(20'000); });
    EXPECT_EQ(run(), DownloadResult::done);
    EXPECT_EQ(server.takeLog().size(), 15U);
    EXPECT_TRUE(arrived());
}

TEST_F(PatchDownloadTest, ATransferThatCannotBeResumedIsNotBegunWithoutEnd) {
    const std::string file = server.path("patches/editor 2.1.zip");
    boost::filesystem::last_write_time(file,
                                       std::time(nullptr) + 3600);  // too recent to distinguish two versions
    authoring::ServerFault weak = dropAfter(20'000);
    weak.etag = "W/\"v1\"";
    server.onRequest([=](const authoring::ServerRequest&, int) { return weak; });
    EXPECT_EQ(run(), DownloadResult::failed);
    const auto log = server.takeLog();
    EXPECT_EQ(log.size(), 5U);
    for (const auto& line : log)
        EXPECT_EQ(line.request.range, "");
}

TEST_F(PatchDownloadTest, ALaterRunResumesOrStartsOverForAnotherVersion) {
    leavePartial(100'000);
    EXPECT_EQ(run(), DownloadResult::done);
    EXPECT_EQ(server.takeLog().at(0).status, 206);
    EXPECT_TRUE(arrived());

    leavePartial(100'000);
    bytes = randomBytes(250'000, 2);
    server.publish("patches/editor 2.1.zip", bytes);
    EXPECT_EQ(run(), DownloadResult::done);
    const auto log = server.takeLog();
    EXPECT_EQ(log.at(0).request.range, "bytes=100000-");
    EXPECT_EQ(log.at(0).status, 200);
    EXPECT_TRUE(arrived());
}

TEST_F(PatchDownloadTest, ACompletePartialFileIsConfirmedWithItsLastByte) {
    leavePartial(100'000);
    PartialFile(root / "opt/partial", "editor 2.1.zip").append(std::string_view(bytes).substr(100'000));
    EXPECT_EQ(run(), DownloadResult::done);
    EXPECT_EQ(server.takeLog().at(0).request.range, "bytes=299999-");
    EXPECT_TRUE(arrived());
}

TEST_F(PatchDownloadTest, APartThatCannotBelongToTheseBytesIsFetchedFromItsStart) {
    struct Case {
        const char* what;
        authoring::ServerFault fault;
    };
    std::vector<Case> cases(4);
    cases[0].what = "range not satisfiable";
    cases[0].fault.status = 416;
    cases[1].what = "starts elsewhere";
    cases[1].fault.contentRange = "bytes 0-199999/300000";
    cases[2].what = "no range said";
    cases[2].fault.contentRange = "nonsense";
    cases[3].what = "another size";
    cases[3].fault.contentRange = "bytes 100000-299999/300001";
    for (const Case& one : cases) {
        leavePartial(100'000);
        firstMeets(one.fault);
        EXPECT_EQ(run(), DownloadResult::done) << one.what;
        const auto log = server.takeLog();
        ASSERT_EQ(log.size(), 2U) << one.what;
        EXPECT_EQ(log[1].request.range, "") << one.what;
        EXPECT_TRUE(arrived()) << one.what;
    }
    leavePartial(100'000);
    server.answerAll(416);
    EXPECT_EQ(run(), DownloadResult::failed);
    EXPECT_EQ(server.takeLog().size(), 2U);
}

TEST_F(PatchDownloadTest, ABodyShorterThanAnnouncedIsNoArchive) {
    authoring::ServerFault longer;
    longer.announcedLength = bytes.size() + 5;
    server.onRequest([=](const authoring::ServerRequest&, int) { return longer; });
    policy.retry.attempts = 3;
    EXPECT_EQ(run(), DownloadResult::failed);
    EXPECT_FALSE(boost::filesystem::exists(archive()));
}

TEST_F(PatchDownloadTest, AnAnswerWithoutALengthEndsWithItsLastChunk) {
    authoring::ServerFault chunked;
    chunked.withoutLength = true;
    server.onRequest([=](const authoring::ServerRequest&, int) { return chunked; });
    EXPECT_EQ(run(), DownloadResult::done);
    EXPECT_TRUE(arrived());

    chunked.dropAfter = 1000;
    firstMeets(chunked);
    EXPECT_EQ(run(), DownloadResult::done);
    EXPECT_TRUE(arrived());
}

TEST_F(PatchDownloadTest, HeadersAreBoundedAndBelongToOneAnswer) {
    test::RawServer raw;
    const std::string line = "X-Header: " + std::string(4000, 'x') + "\r\n";
    for (const std::string& begin :
         {"HTTP/1.1 200 OK\r\n" + line, std::string("HTTP/1.1 100 Continue\r\n\r\n")}) {
        std::string endless;
        while (endless.size() < 1'000'000)
            endless += begin;
        raw.setAnswers({endless});
        EXPECT_EQ(runFrom(raw.url()), DownloadResult::failed);
    }
    EXPECT_THAT(logText(), HasSubstr("headers are larger than 128 KiB"));

    // A folded header continues the one before it, which must not be from the earlier answer. Some versions
    // of libcurl refuse it.
    raw.setAnswers({"HTTP/1.1 503 Busy\r\nX: y\r\n\r\n",
                    "HTTP/1.1 200 OK\r\n folded: z\r\nContent-Length: 5\r\n\r\nbytes"});
    const bool done = runFrom(raw.url()) == DownloadResult::done;
    EXPECT_EQ(readFile(archive()), done ? "bytes" : "");
}

TEST_F(PatchDownloadTest, TransferCodingsOtherThanChunkedAreRefused) {
    // gzip of 64 KiB of zeros
    static constexpr unsigned char kPacked[] = {0x1f, 0x8b, 0x08, 0,    0,    0,    0,   0, 0x02,
                                                0x03, 0xed, 0xc1, 0x31, 0x01, 0,    0,   0, 0xc2,
                                                0xa0, 0xf5, 0x4f, 0x6d, 0x0a, 0x3f, 0xa0};
    const std::string body(reinterpret_cast<const char*>(kPacked), sizeof kPacked);
    test::RawServer raw;
    for (const char* coding : {"gzip", "gzip, chunked", "deflate", "identity", "chunked, chunked"}) {
        raw.setAnswers({std::string("HTTP/1.1 200 OK\r\nTransfer-Encoding: ") + coding + "\r\n\r\n" + body});
        EXPECT_EQ(runFrom(raw.url()), DownloadResult::failed) << coding;
        EXPECT_THAT(logText(), HasSubstr(std::string("the transfer coding \"") + coding)) << coding;
        EXPECT_FALSE(boost::filesystem::exists(partial())) << coding;
    }
    raw.setAnswers({"HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n5\r\nbytes\r\n0\r\n\r\n"});
    EXPECT_EQ(runFrom(raw.url()), DownloadResult::done) << logText();
}

struct DigestTest : PatchDownloadTest {
    DownloadResult fetch(const std::string& wantedBytes) {
        DownloadJob job{server.url() + "/patches/editor%202.1.zip", "editor 2.1.zip", root / "opt/partial",
                        archive()};
        Sha256 sha256;
        sha256.add(wantedBytes);
        job.digest = sha256.finish();
        return PatchDownload(job, policy, client).run();
    }
};

TEST_F(DigestTest, OnlyTheWantedArchiveArrivesHoweverItComes) {
    EXPECT_EQ(fetch(bytes), DownloadResult::done);
    EXPECT_TRUE(arrived());
    boost::filesystem::remove(archive());

    leavePartial(100'000);
    EXPECT_EQ(fetch(bytes), DownloadResult::done) << "what was there is hashed too";
    EXPECT_TRUE(arrived());
    boost::filesystem::remove(archive());

    // A part with other bytes of the same version is noticed at the end, and fetched from its start once.
    leavePartial(100'000);
    writeFile(partial(), std::string(100'000, 'x'));
    EXPECT_EQ(fetch(bytes), DownloadResult::done);
    EXPECT_TRUE(arrived());
    boost::filesystem::remove(archive());

    struct Case {
        const char* name;
        std::string wanted;
        const char* why;
    };
    std::string flipped = bytes;
    flipped.back() = static_cast<char>(flipped.back() ^ 1);
    const Case cases[] = {
        {"other bytes", flipped, "is not the archive that the content asks for"},
        {"a longer one", bytes + "x", "the content asks for one of 300001"},
        {"a shorter one", bytes.substr(1), "the content asks for one of 299999"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        for (const bool withPart : {false, true}) {
            if (withPart) leavePartial(100'000);
            EXPECT_EQ(fetch(c.wanted), DownloadResult::failed);
            EXPECT_FALSE(boost::filesystem::exists(archive()));
            EXPECT_FALSE(boost::filesystem::exists(partial()));
            EXPECT_THAT(logText(), HasSubstr(c.why));
        }
    }
}

TEST_F(DigestTest, AnAnswerOfUnknownLengthIsBoundedByTheContents) {
    authoring::ServerFault chunked;
    chunked.withoutLength = true;
    server.onRequest([=](const authoring::ServerRequest&, int) { return chunked; });
    EXPECT_EQ(fetch(bytes), DownloadResult::done);
    EXPECT_EQ(fetch(bytes.substr(0, 1000)), DownloadResult::failed);
    EXPECT_FALSE(boost::filesystem::exists(partial()));
    policy.retry.attempts = 1;
    EXPECT_EQ(fetch(bytes + "and more"), DownloadResult::failed);
}

TEST_F(PatchDownloadTest, AStalledTransferIsAbortedAndResumed) {
    authoring::ServerFault stall;
    stall.stallAfter = 50'000;
    firstMeets(stall);
    policy.limits.stallTime = milliseconds(200);
    EXPECT_EQ(run(), DownloadResult::done);
    EXPECT_EQ(server.takeLog().at(1).request.range, "bytes=50000-");
}

TEST_F(PatchDownloadTest, NoRepositoryHoldsADownloadForLong) {
    policy.limits.firstAnswer = milliseconds(300);
    policy.limits.stallTime = std::chrono::seconds(20);
    policy.pace = {4096, milliseconds(600)};
    policy.retry.attempts = 2;
    for (const test::DripServer::Drip& drip : test::DripServer::all()) {
        const test::DripServer slow(drip);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(runFrom(slow.url()), DownloadResult::failed) << drip.name;
        EXPECT_LT(std::chrono::steady_clock::now() - start, test::kSoon) << drip.name;
    }
    EXPECT_THAT(logText(), HasSubstr("no answer came in time; check that"));
    EXPECT_THAT(logText(), HasSubstr("it is slower than 4096 bytes a second"));
}

TEST_F(PatchDownloadTest, MirrorsShareTheTimeOfADownload) {
    policy.pace = {4096, milliseconds(4000)};
    const test::DripServer slow(test::DripServer::all().at(4));
    const auto download = [&](const std::string& url) {
        const std::string name = "editor 2.1.zip";
        return PatchDownload({url + "/patches/editor%202.1.zip", name, root / "partial", archive()}, policy,
                             client);
    };
    for (const bool served : {false, true}) {
        const auto start = std::chrono::steady_clock::now();
        PatchDownload first = download(slow.url());
        PatchDownload second = download(served ? server.url() : slow.url());
        first.shareTime(nullptr, 0, 2);
        EXPECT_EQ(first.run(), DownloadResult::failed);
        second.shareTime(&first, 1, 2);
        EXPECT_EQ(second.run(), served ? DownloadResult::done : DownloadResult::failed);
        EXPECT_LT(std::chrono::steady_clock::now() - start, test::kSoon);
    }
}

TEST(PatchPaceTest, GivesTheBytesTheirTimeAndAGrace) {
    using std::chrono::seconds;
    constexpr std::uint64_t kMany = 100 << 20;
    const PaceLimit usual;
    const struct {
        const char* name;
        PaceLimit limit;
        std::uint64_t rate, begin, now;
        long lastGood;  ///< seconds; 0: no end
    } cases[] = {
        {"nothing came", usual, 0, 0, 0, 600},
        {"4 MiB came", usual, 0, 0, 4 << 20, 1024 + 600},
        {"those of an earlier download do not count", usual, 0, 1 << 20, (1 << 20) + 4096, 601},
        {"slow on purpose", usual, 1024, 0, kMany, (kMany / 512) + 600},
        {"faster on purpose", usual, 1 << 20, 0, kMany, (kMany / 4096) + 600},
        {"no limit", {0, seconds(1)}, 0, 0, 0, 0},
    };
    for (const auto& one : cases) {
        const PatchPace::Time start;
        PatchPace pace(one.limit, one.rate, start);
        pace.startAt(one.begin);
        pace.reached(one.now);
        EXPECT_FALSE(pace.isLate(start + seconds(one.lastGood))) << one.name;
        EXPECT_EQ(pace.isLate(start + seconds(one.lastGood + 1)), one.lastGood != 0) << one.name;
    }
    // What is fetched again because it changed counts once.
    PatchPace pace(usual, 0, {});
    pace.reached(4096);
    pace.startAt(0);
    pace.reached(4096);
    EXPECT_TRUE(pace.isLate(PatchPace::Time() + seconds(602)));
}

TEST_F(PatchDownloadTest, RedirectsAreBoundedAndLeadOnlyToWebServers) {
    test::RepositoryServer other;
    other.publish("elsewhere.zip", bytes);
    authoring::ServerFault moved;
    moved.status = 302;
    moved.headers = {{"Location", other.url() + "/elsewhere.zip"}};
    firstMeets(moved);
    EXPECT_EQ(run(), DownloadResult::done);
    EXPECT_TRUE(arrived());
    boost::filesystem::remove(archive());

    writeFile(root / "secret", "not for fetching");
    for (const std::string& target : {"file://" + (root / "secret"), std::string("ftp://127.0.0.1/x")}) {
        server.answerAll(301, {{"Location", target}});
        EXPECT_EQ(run(), DownloadResult::failed) << target;
        EXPECT_FALSE(boost::filesystem::exists(archive()));
    }
    EXPECT_THAT(logText(), HasSubstr("only http and https are fetched"));
    server.takeLog();
    server.answerAll(302, {{"Location", "/patches/editor%202.1.zip"}});
    EXPECT_EQ(run(), DownloadResult::failed);
    EXPECT_EQ(server.takeLog().size(), 6U);
    EXPECT_THAT(logText(), HasSubstr("more than 5 redirects"));
}

TEST_F(PatchDownloadTest, InterruptionStopsAStalledTransferAndAPauseAndKeepsThePartialFile) {
    authoring::ServerFault stall;
    stall.stallAfter = 50'000;
    authoring::ServerFault later;
    later.status = 503;
    later.headers = {{"Retry-After", "3000"}};
    policy.retry.longestPause = std::chrono::hours(1);
    for (const authoring::ServerFault& second : {stall, later}) {
        server.onRequest([=](const authoring::ServerRequest&, int number) {
            return number == 0 ? dropAfter(40'000) : second;
        });
        DownloadResult result = DownloadResult::done;
        boost::thread thread([&] { result = run(); });
        std::size_t requests = 0;
        while ((requests += server.takeLog().size()) < 2)
            boost::this_thread::yield();
        thread.interrupt();
        thread.join();
        EXPECT_EQ(result, DownloadResult::interrupted);
        EXPECT_GE(readFile(partial()).size(), 40'000U);
        boost::filesystem::remove(partial());
    }
}

TEST_F(PatchDownloadTest, AFullDiskIsSeenBeforeTheFirstByte) {
    policy.freeBytes = [this](const std::string&) -> std::uint64_t { return bytes.size() - 1; };
    EXPECT_EQ(run(), DownloadResult::failed);
    EXPECT_THAT(logText(), HasSubstr("needs 300000 free bytes and has 299999; make room there"));
    EXPECT_TRUE(boost::filesystem::is_empty(root / "opt/partial"));

    authoring::ServerFault endless;
    endless.withoutLength = true;
    firstMeets(endless);
    policy.freeBytes = [this](const std::string&) {
        struct stat status {};
        return (64U << 20U) + 200'000U - (::stat(partial().c_str(), &status) == 0 ? status.st_size : 0U);
    };
    EXPECT_EQ(run(), DownloadResult::failed);
    EXPECT_TRUE(boost::filesystem::is_empty(root / "opt/partial"));

    policy.freeBytes = &freeBytes;
    leavePartial(100'000);
    policy.freeBytes = [](const std::string&) -> std::uint64_t { return 200'000; };
    EXPECT_EQ(run(), DownloadResult::done) << "only what is missing needs room";
}

TEST_F(PatchDownloadTest, APartialFileIsNeitherALinkNorShared) {
    writeFile(root / "victim", "untouched");
    boost::filesystem::create_directories(root / "opt/partial");
    ASSERT_EQ(::symlink((root / "victim").c_str(), partial().c_str()), 0);
    EXPECT_EQ(run(), DownloadResult::failed);
    ::unlink(partial().c_str());
    ASSERT_EQ(::link((root / "victim").c_str(), partial().c_str()), 0);
    EXPECT_EQ(run(), DownloadResult::failed);
    EXPECT_EQ(readFile(root / "victim"), "untouched");
    ::unlink(partial().c_str());
    {
        const PartialFile held(root / "opt/partial", "editor 2.1.zip");
        EXPECT_EQ(run(), DownloadResult::failed);
        EXPECT_THAT(logText(), HasSubstr("is being downloaded by another process or thread"));
    }
    EXPECT_THAT(server.takeLog(), IsEmpty());

    boost::filesystem::rename(root / "opt/partial", root / "opt/elsewhere");
    boost::filesystem::create_directory_symlink(root / "opt/elsewhere", root / "opt/partial");
    EXPECT_EQ(run(), DownloadResult::failed);
}

TEST_F(PatchDownloadTest, TheDownloaderNamesTheArchiveAndRefusesOtherNames) {
    auto* downloader = RemediationResourceDownloader::GetInstance();
    std::string path = archive();
    EXPECT_EQ(downloader->getResource("editor 2.1", path, ".pkg", root / "opt/", false, 0), 0);
    EXPECT_TRUE(arrived());
    server.takeLog();
    for (const std::string& stem :
         std::vector<std::string>{"", ".", "..", "a/b", "../a", "a\nb", "a\x7f", std::string("a\0b", 3)}) {
        EXPECT_EQ(downloader->getResource(stem, path, ".pkg", root / "opt", false, 0), -1);
    }
    configure("");
    EXPECT_EQ(downloader->getResource("editor", path, ".pkg", root / "opt", false, 0), -1);
    EXPECT_THAT(logText(), HasSubstr("Repository.Url is not set"));
    EXPECT_THAT(server.takeLog(), IsEmpty());
}

TEST_F(PatchDownloadTest, BandwidthIsMeasuredFromSpeedBin) {
    DownloadManager manager(root / "opt", false);
    int status = -1;
    EXPECT_EQ(manager.GetDownloadSpeed(status), 0U);
    EXPECT_EQ(status, 404);
    server.publish("speed.bin", "");
    EXPECT_EQ(manager.GetDownloadSpeed(status), 0U);
    EXPECT_NE(status, 200);
    server.publish("speed.bin", bytes);
    EXPECT_GT(manager.GetDownloadSpeed(status), 0U);
    EXPECT_EQ(status, 200);
    server.stop();
    EXPECT_EQ(manager.GetDownloadSpeed(status), 0U);
    EXPECT_EQ(status, 0);
}

TEST(DownloadDecisionsTest, PausesGrowAndHonourTheServerWithinBounds) {
    const RetryPolicy policy;
    EXPECT_EQ(pauseAfter(1, milliseconds(0), policy, 0.5), milliseconds(1000));
    EXPECT_EQ(pauseAfter(3, milliseconds(0), policy, 0.5), milliseconds(4000));
    EXPECT_EQ(pauseAfter(1, milliseconds(0), policy, 0), milliseconds(800));
    EXPECT_EQ(pauseAfter(2, milliseconds(30'000), policy, 0), milliseconds(30'000));
    EXPECT_EQ(pauseAfter(500, milliseconds(0), policy, 0.99), milliseconds(60'000));
    const std::time_t now = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT
    const std::pair<const char*, int> asked[] = {{"", 0},
                                                 {"0", 0},
                                                 {"7", 7},
                                                 {"-7", 0},
                                                 {"7x", 0},
                                                 {"soon", 0},
                                                 {"99999999999999999999", 86400},
                                                 {"Sun, 06 Nov 1994 08:49:50 GMT", 13},
                                                 {"Sun, 06 Nov 1994 08:40:00 GMT", 0}};
    for (const auto& [header, seconds] : asked)
        EXPECT_EQ(retryAfter(header, now), std::chrono::seconds(seconds)) << header;
}

TEST(DownloadDecisionsTest, OnlyAValidatorOfOneVersionBindsAResumption) {
    const auto validator = [](const std::string& etag, const std::string& modified, const std::string& date) {
        return resumptionValidator({200, {{"etag", etag}, {"last-modified", modified}, {"date", date}}});
    };
    const std::string old = "Sun, 06 Nov 1994 08:49:37 GMT";
    const std::string later = "Sun, 06 Nov 1994 09:49:37 GMT";
    EXPECT_EQ(validator("\"x\"", old, later), "\"x\"");
    EXPECT_EQ(validator("W/\"x\"", old, later), old);
    EXPECT_EQ(validator("", old, later), old);
    EXPECT_EQ(validator("", old, old), "");
    EXPECT_EQ(validator("", old, ""), "");
    EXPECT_EQ(validator("W/\"x\"", "", later), "");
    for (const char* control : {"\"a\tb\"", "\"a\x1b[2J\"", "\"a\rX: y\"", "\"a\x7f\""})
        EXPECT_EQ(validator(control, old, later), old) << "the next request would send it";
}

}  // namespace
}  // namespace zelor::agent

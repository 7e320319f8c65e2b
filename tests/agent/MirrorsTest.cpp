#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/AgentSettings.h"
#include "agent/ContentCacheControl.h"
#include "agent/Prefetch.h"
#include "agent/content/PatchDigests.h"
#include "agent/http/Mirrors.h"
#include "agent/http/RepositoryUrl.h"
#include "base/SystemRoot.h"
#include "collaborators/CreCacher.h"
#include "collaborators/DownloadManager.h"
#include "collaborators/RemediationResourceDownloader.h"
#include "support/DripServer.h"
#include "support/RepositoryServer.h"
#include "support/SigningKey.h"
#include "support/Soon.h"

namespace zelor::agent {
namespace {

using authoring::ServerFault;
using testing::ElementsAre;
using testing::HasSubstr;

struct MirrorsTest : testing::Test {
    test::TempDir root;
    test::RepositoryServer one;
    test::RepositoryServer two;
    test::SigningKey key = test::SigningKey::ec();

    MirrorsTest() {
        setSystemRoot(root.path().string());
        test::writeFile(root / "etc/zelor/key.pem", key.publicPem());
        use(one.url() + ", " + two.url());
    }
    void use(const std::string& urls, const std::string& before = "") {
        test::writeFile(root / "etc/zelor/zelor.ini",
                        before + "[Repository]\nUrl = " + urls + "\nTrustedKey = /etc/zelor/key.pem\n");
    }
    static std::string contentOf(const std::string& identifier, const std::string& cre) {
        return "<remediation identifier=\"" + identifier + "\"><cre id=\"" + cre +
               "\" platform=\"o\"><eri id=\"E\"/></cre></remediation>";
    }
    void publish(test::RepositoryServer& server, const std::string& identifier, const std::string& cre) {
        const std::string xml = contentOf(identifier, cre);
        server.publish("content/" + identifier + ".xml", xml);
        server.publish("content/" + identifier + ".xml.sig", key.sign(xml));
    }
    /// The CRE that is handed out, "failed" when none.
    std::string creOf(const std::string& identifier) {
        parseOnlyMetadata metadata = CreCacher::GetInstance(root / "opt", "o")->getCre("o", "a", identifier);
        return metadata.getParsingFailed() ? "failed" : metadata.getcreEriData().getCreId();
    }
    /// From now on, content asks for that archive.
    static void want(const std::string& stem, const std::string& archive) {
        Sha256 sha256;
        sha256.add(archive);
        const FileDigest wanted = sha256.finish();
        WantedPatches::instance().say({"", stem, "o", "a"}, {{stem + ".pkg", wanted, wanted}});
    }
    std::string fetched(const std::string& stem) {
        std::string archive = root / (stem + ".zip");
        const int result = RemediationResourceDownloader::GetInstance()->getResource(stem, archive, "pkg",
                                                                                     root / "opt", false, 0);
        return result == 0 ? test::readFile(archive) : "failed";
    }
    static std::vector<std::string> asked(test::RepositoryServer& server) {
        std::vector<std::string> all;
        for (const auto& line : server.takeLog())
            all.push_back(line.request.path + (line.request.range.empty() ? "" : " part") +
                          (line.request.ifNoneMatch.empty() ? "" : " if changed"));
        return all;
    }
    std::string logText() { return test::readFile(root / "var/log/zelor/remediation.log"); }
};

ServerFault answer(int status) {
    ServerFault fault;
    fault.status = status;
    return fault;
}

TEST_F(MirrorsTest, ContentThatOneDoesNotGiveWellComesFromTheOther) {
    const struct {
        const char* name;
        std::function<void(const std::string& identifier)> spoil;
        const char* logged;
    } cases[] = {
        {"missing", [&](const std::string& id) { one.withdraw("content/" + id + ".xml"); }, "answered 404"},
        {"ill", [&](const std::string&) { one.answerAll(503); }, "answered 503"},
        {"barred", [&](const std::string&) { one.answerAll(403); }, "answered 403"},
        {"unsigned", [&](const std::string& id) { one.withdraw("content/" + id + ".xml.sig"); },
         "answered 404"},
        {"forged", [&](const std::string& id) { one.publish("content/" + id + ".xml", "<remediation/>"); },
         "signature"},
        {"breaks off",
         [&](const std::string&) {
             ServerFault fault;
             fault.dropAfter = 3;
             one.onRequest([=](const authoring::ServerRequest&, int) { return fault; });
         },
         "content"},
        {"gone", [&](const std::string&) { one.stop(); }, "connect"},
    };
    const std::string first = one.url();
    for (const bool ahead : {true, false}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.name) + (ahead ? " ahead" : ""));
            if (ahead && c.name == std::string("gone")) continue;
            startNewRun();
            const std::string id = std::string("CVE-") + c.name[0] + c.name[1] + (ahead ? "-1" : "-2");
            publish(one, id, "bad");
            publish(two, id, "good");
            publish(two, id + "-next", "good");
            one.behave();
            c.spoil(id);
            const std::size_t logged = logText().size();
            Prefetch prefetch(root / "opt");
            if (ahead) prefetch.contentNeeded({{"k", "o", "a", id}});
            EXPECT_EQ(creOf(id), "good");
            const std::string log = logText().substr(logged);
            EXPECT_THAT(log, HasSubstr(c.logged));
            EXPECT_THAT(log, HasSubstr(id + ": " + first)) << "it names the mirror";
            (void)one.takeLog();
            EXPECT_EQ(creOf(id + "-next"), "good");
            EXPECT_THAT(asked(one), ElementsAre()) << "the other is asked first from now on";
        }
    }
}

TEST_F(MirrorsTest, OnlyAllOfThemCanTakeContentBack) {
    publish(one, "CVE-1", "kept");
    EXPECT_EQ(creOf("CVE-1"), "kept");
    const std::string file = root / "opt/content/CVE-1.xml";
    (void)asked(one);
    // The other one has another version under the same name.
    startNewRun();
    one.answerAll(503);
    publish(two, "CVE-1", "other");
    EXPECT_EQ(creOf("CVE-1"), "other");
    EXPECT_THAT(asked(one), ElementsAre("/content/CVE-1.xml if changed"));
    EXPECT_THAT(asked(two), ElementsAre("/content/CVE-1.xml", "/content/CVE-1.xml.sig"))
        << "a version that another mirror named is no condition";
    startNewRun();
    two.withdraw("content/CVE-1.xml");
    EXPECT_EQ(creOf("CVE-1"), "failed") << "one says so";
    EXPECT_TRUE(boost::filesystem::exists(file)) << "the other one does not answer";
    startNewRun();
    two.answerAll(503);
    EXPECT_EQ(creOf("CVE-1"), "other") << "nobody answers";
    startNewRun();
    one.answerAll(404);
    two.answerAll(404);
    EXPECT_EQ(creOf("CVE-1"), "failed");
    EXPECT_FALSE(boost::filesystem::exists(file));
}

TEST_F(MirrorsTest, AnArchiveIsWhatTheContentAsksFor) {
    const std::string good = "the archive that is wanted";
    const struct {
        const char* name;
        std::string there;  ///< at the first mirror
        int status;         ///< 0: it is served
        bool digest;        ///< the content has one
        const char* logged;
    } cases[] = {
        {"older", "an older archive", 0, true, "the content asks for"},
        {"forged", "the archive that is forged", 0, true, "the content asks for"},
        {"missing", good, 404, true, "answered 404"},
        {"ill", good, 503, false, "answered 503"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        startNewRun();
        const std::string archive = std::string(c.name) + ".zip";
        one.behave();
        if (c.status != 0) one.answerAll(c.status);
        one.publish("patches/" + archive, c.there);
        two.publish("patches/" + archive, good);
        if (c.digest) want(c.name, good);
        EXPECT_EQ(fetched(c.name), good);
        EXPECT_THAT(logText(), HasSubstr(one.url() + "/patches/" + archive + ": "));
        EXPECT_THAT(logText(), HasSubstr(c.logged));
        EXPECT_THAT(asked(two), ElementsAre("/patches/" + archive));
    }
}

// The first mirror breaks off and is gone.
TEST_F(MirrorsTest, APartIsContinuedAtAnotherWhereADigestDecides) {
    using Asked = std::vector<std::string>;
    const std::string good = std::string(3000, '1') + std::string(2000, '2');
    const struct {
        const char* name;
        std::string there;  ///< at the first mirror
        bool digest;
        Asked asked;  ///< of the second
    } cases[] = {
        {"unknown", good, false, {"/patches/unknown.zip"}},
        {"continued", good, true, {"/patches/continued.zip part"}},
        {"forged", std::string(5000, 'x'), true, {"/patches/forged.zip part", "/patches/forged.zip"}},
        {"older", std::string(4999, '1'), true, {"/patches/older.zip"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        startNewRun();
        const std::string archive = std::string("patches/") + c.name + ".zip";
        one.publish(archive, c.there);
        two.publish(archive, good);
        one.onRequest([](const authoring::ServerRequest&, int number) {
            ServerFault fault = answer(number == 0 ? 0 : 404);
            fault.dropAfter = 3000;
            return fault;
        });
        if (c.digest) want(c.name, good);
        EXPECT_EQ(fetched(c.name), good);
        EXPECT_EQ(asked(two), c.asked);
    }
}

TEST_F(MirrorsTest, TheyShareTheTimeOfContent) {
    const test::DripServer slow(test::DripServer::all().at(4));
    const test::DripServer slowToo(test::DripServer::all().at(4));
    publish(two, "CVE-1", "good");
    const struct { std::string second, cre; } cases[] = {{two.url(), "good"}, {slowToo.url(), "failed"}};
    for (const auto& c : cases) {
        startNewRun();
        use(slow.url() + ' ' + c.second, "[Limits]\nContentSeconds = 4\n");
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(creOf(c.cre == "good" ? "CVE-1" : "CVE-2"), c.cre);
        EXPECT_LT(std::chrono::steady_clock::now() - start, test::kSoon);
    }
}

TEST_F(MirrorsTest, TheSpeedIsThatOfTheMirrorThatServes) {
    one.answerAll(503);
    two.publish("speed.bin", std::string(100000, 's'));
    int status = 0;
    EXPECT_GT(DownloadManager("", false).GetDownloadSpeed(status), 0U);
    EXPECT_EQ(status, 200);
    EXPECT_EQ(Mirrors::ofRun(*AgentSettings::current())->inOrder().front().url, two.url());
}

TEST_F(MirrorsTest, AddressesAreReadAndShownWithoutPasswords) {
    const struct {
        std::string setting;
        std::vector<std::string> urls;  ///< none: refused
        const char* shown;
    } cases[] = {
        {"http://a/x/", {"http://a/x"}, "http://a/x/"},
        {"https://a, http://b/ ,http://c",
         {"https://a", "http://b", "http://c"},
         "https://a, http://b/, http://c"},
        {"http://a http://a/", {"http://a"}, "http://a, http://a/"},
        {"http://u:p@a http://u:p@b", {"http://u:p@a", "http://u:p@b"}, "http://a, http://b"},
        {"http://u:p,w@a", {}, "http://a"},
        {"http://a ftp://b", {}, "http://a, ftp://b"},
        {"http://a?x", {}, "http://a?x"},
        {"http://1 http://2 http://3 http://4 http://5 http://6 http://7 http://8 http://9", {}, nullptr},
        {" , ", {}, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.setting);
        use(c.setting);
        const auto settings = AgentSettings::load(root / "etc/zelor/zelor.ini");
        std::vector<std::string> urls;
        std::string problem;
        try {
            urls = repositoryUrls(*settings);
        } catch (const std::runtime_error& e) {
            problem = e.what();
        }
        EXPECT_EQ(urls, c.urls);
        EXPECT_EQ(problem.empty(), !c.urls.empty());
        EXPECT_THAT(problem, testing::Not(HasSubstr("p,w")));
        if (c.shown == nullptr) continue;
        EXPECT_EQ(shownAddresses(settings->values().repositoryUrl), c.shown);
    }
}

}  // namespace
}  // namespace zelor::agent

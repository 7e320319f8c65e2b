#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <regex>
#include <thread>

#include "agent/Prefetch.h"
#include "support/DripServer.h"
#include "support/Soon.h"
#include "tests/integration/IntegrationFixture.h"

namespace zelor::test {
namespace {

using std::chrono::steady_clock;

/// What a run left to see.
struct Seen {
    IntegrationFixture::Map values;
    std::vector<std::string> log;       ///< without times
    std::vector<std::string> requests;  ///< of the repository, sorted
};

struct AheadOfNeedTest : testing::Test {
    IntegrationFixture fixture;
    std::map<std::string, std::string> requests;

    void request(const std::string& identifier) { requests["cpe:/a:example:" + identifier] = identifier; }

    Seen run(const std::string& installPath, AheadOfNeed* ahead, const std::string& cancelled) {
        const std::size_t logged = fixture.log().size();
        (void)fixture.takeAnswers();
        agent::startNewRun();
        RemediationManager manager(installPath);
        manager.setAheadOfNeed(ahead);
        manager.setContentDownloadDir(fixture.dir / "content");
        manager.setFirstRemediationAfterScan(true);
        manager.setovalIdMap(requests);
        manager.setCancelRemMap({{cancelled, ""}});
        manager.remediate(true);
        while (!manager.getRemDone())
            boost::this_thread::yield();
        Seen seen{manager.getRemediationProgressMap(), {}, fixture.takeAnswers()};
        std::sort(seen.requests.begin(), seen.requests.end());
        std::istringstream lines(fixture.log().substr(logged));
        // The second install path, the times, and the pauses of attempts differ.
        for (std::string line; std::getline(lines, line);)
            seen.log.push_back(std::regex_replace(line.substr(24), std::regex("opt-[ab]"), "opt"));
        return seen;
    }
};

TEST_F(AheadOfNeedTest, ARunGivesTheSameAndAsksTheSameWithAndWithoutIt) {
    for (int i = 0; i < 6; ++i) {
        const std::string number = std::to_string(10000 + i);
        fixture.addScript("CCE-" + number, "script-" + number, "exit " + std::to_string(i % 3) + "\n");
        request("CCE-" + number);
    }
    for (int i = 0; i < 40; ++i) {
        const std::string identifier = "CCE-" + std::to_string(20000 + i);
        fixture.addContent(identifier, "nowhere.sh");
        request(identifier);
    }
    for (const char* identifier :
         {"CCE-unsigned", "CCE-forged", "CCE-broken", "CCE-nowhere", "CCE/../1", "CCE-moved"})
        request(identifier);
    requests["cpe:/a:example:again"] = "CCE-10001";
    // Archives: of another author, damaged, and with an end that comes too soon at first.
    fixture.addContent("CCE-30000", "evil.sh");
    fixture.addArchive("evil", ArchiveBuilder().file("evil.sh", "x").file("evil.sig", "x").finish());
    fixture.addContent("CCE-30001", "damaged.sh");
    fixture.addArchive("damaged", "PK");
    fixture.addScript("CCE-30002", "cut", "exit 0\n");
    for (const char* identifier : {"CCE-30000", "CCE-30001", "CCE-30002"})
        request(identifier);
    authoring::ServerFault cut;
    cut.dropAfter = 100;
    fixture.addContent("CCE-unsigned", "a.sh");
    boost::filesystem::remove(fixture.dir / "repo/content/CCE-unsigned.xml.sig");
    fixture.addContent("CCE-forged", "a.sh");
    fixture.addContent("CCE-forged-too", "b.sh");
    boost::filesystem::rename(fixture.dir / "repo/content/CCE-forged-too.xml",
                              fixture.dir / "repo/content/CCE-forged.xml");
    fixture.addContentText("CCE-broken", "<remediation");
    // A redirect is followed by who needs the content: for it and its signature, after one look ahead.
    const auto move = [&](int times) {
        authoring::ServerFault moved;
        moved.status = 302;
        moved.headers = {{"Location", "/content/CCE-10000.xml"}};
        fixture.clearFaults();
        for (int i = 0; i < times; ++i)
            fixture.addFault("CCE-moved", moved);
        fixture.addFault("/cut.zip", cut);
    };
    const std::string a = fixture.dir / "opt-a";
    const std::string b = fixture.dir / "opt-b";
    const std::string cancelled = "cpe:/a:example:CCE-20007";
    agent::Prefetch prefetch(b);
    for (const char* round : {"cold", "warm"}) {
        move(2);
        Seen without = run(a, nullptr, cancelled);
        move(3);
        Seen with = run(b, &prefetch, cancelled);
        EXPECT_EQ(with.values, without.values) << round;
        EXPECT_EQ(with.log, without.log) << round;
        // A redirect is seen ahead, and followed by who needs the content.
        for (Seen* seen : {&without, &with}) {
            const auto other = [](const std::string& line) {
                return line.find("CCE-moved") != std::string::npos;
            };
            seen->requests.erase(std::remove_if(seen->requests.begin(), seen->requests.end(), other),
                                 seen->requests.end());
        }
        EXPECT_EQ(with.requests, without.requests) << round;
        EXPECT_GE(with.requests.size(), 50U) << round;
    }
}

TEST_F(AheadOfNeedTest, ArchivesComeWhileScriptsRunAndEachOnce) {
    const std::string all = fixture.dir / "all-were-asked-for";
    fixture.addScript("CCE-10000", "first",
                      "for i in $(seq 200); do test -e '" + all + "' && exit 0; sleep .05; done; exit 1\n");
    request("CCE-10000");
    std::vector<std::string> expected = {"GET /patches/first.zip 200"};
    for (int i = 1; i < 20; ++i) {
        const std::string number = std::to_string(10000 + i);
        fixture.addScript("CCE-" + number, "script-" + number, "exit 0\n");
        request("CCE-" + number);
        expected.push_back("GET /patches/script-" + number + ".zip 200");
    }
    boost::thread watcher([&] {
        while (fixture.countAnswers("/patches/") < 20) {
            boost::this_thread::interruption_point();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        writeFile(all, "");
    });
    agent::Prefetch prefetch(fixture.dir / "opt");
    Seen seen = run(fixture.dir / "opt", &prefetch, "");
    watcher.interrupt();
    watcher.join();
    EXPECT_THAT(seen.values,
                testing::Each(testing::Field(&std::pair<const std::string, unsigned long>::second, 4)));
    const auto archive = [](const std::string& line) { return line.find("/patches/") == std::string::npos; };
    seen.requests.erase(std::remove_if(seen.requests.begin(), seen.requests.end(), archive),
                        seen.requests.end());
    EXPECT_EQ(seen.requests, expected);
    EXPECT_TRUE(boost::filesystem::is_empty(fixture.dir / "opt/partial"));
}

TEST_F(AheadOfNeedTest, ACancelEndsEveryTransfer) {
    std::vector<NeededContent> content;
    std::vector<NeededArchive> needed;
    for (int i = 0; i < 100; ++i) {
        const std::string number = std::to_string(i);
        content.push_back({"key-" + number, "o", "a", "CCE-" + number});
        needed.push_back({"key-" + number, "CCE-" + number, ".sh"});
    }
    for (const std::string how : {"one by one", "all", "end", "destruction"}) {
        for (const bool archives : {false, true}) {
            const DripServer mute(DripServer::all().at(3));
            writeFile(fixture.dir / "etc/zelor/zelor.ini", "[Repository]\nUrl = " + mute.url() + "\n");
            agent::startNewRun();
            const std::string installPath = fixture.dir / ("opt-" + how);
            auto prefetch = std::make_unique<agent::Prefetch>(installPath);
            archives ? prefetch->archivesNeeded(needed) : prefetch->contentNeeded(content);
            // Archives of an unknown length are begun four at a time.
            const int most = archives ? 4 : 16;
            while (mute.connections() < most)
                boost::this_thread::yield();
            const auto start = steady_clock::now();
            if (how == "one by one") {
                // From the last: else another could begin in the place of the first.
                for (auto one = content.rbegin(); one != content.rend(); ++one)
                    prefetch->notNeeded(one->key);
            }
            if (how == "all") prefetch->cancelled();
            if (how == "end") prefetch->ended();
            prefetch.reset();
            EXPECT_LT(steady_clock::now() - start, test::kSoon) << how;
            EXPECT_EQ(mute.connections(), most) << how;
            EXPECT_EQ(boost::filesystem::exists(installPath + "/partial"), archives) << how;
            EXPECT_TRUE(!archives || boost::filesystem::is_empty(installPath + "/partial")) << how;
        }
    }
}

TEST_F(AheadOfNeedTest, ARepositoryThatIsDownIsFoundOutOnce) {
    for (int i = 0; i < 100; ++i)
        request("CCE-" + std::to_string(10000 + i));
    for (int i = 0; i < 1000; ++i) {
        authoring::ServerFault down;
        down.status = 503;
        fixture.addFault("content", down);
    }
    agent::Prefetch prefetch(fixture.dir / "opt-b");
    const Seen seen = run(fixture.dir / "opt-b", &prefetch, "");
    EXPECT_THAT(seen.values,
                testing::Each(testing::Field(&std::pair<const std::string, unsigned long>::second, 6)));
    EXPECT_LE(seen.requests.size(), 16U + 3U);
}

TEST_F(AheadOfNeedTest, ContentThatTheServerCannotGiveFailsAlone) {
    authoring::ServerFault down;
    down.status = 503;
    for (int i = 0; i < 100; ++i)
        fixture.addFault("CCE-10003", down);
    for (int i = 0; i < 60; ++i) {
        const std::string identifier = "CCE-" + std::to_string(10000 + i);
        fixture.addContent(identifier, "nowhere.sh");
        request(identifier);
    }
    agent::Prefetch prefetch(fixture.dir / "opt-b");
    for (AheadOfNeed* ahead : {static_cast<AheadOfNeed*>(nullptr), static_cast<AheadOfNeed*>(&prefetch)}) {
        const Seen seen = run(fixture.dir / (ahead != nullptr ? "opt-b" : "opt-a"), ahead, "");
        for (const auto& [key, value] : seen.values)
            EXPECT_EQ(value == 6, key == "cpe:/a:example:CCE-10003") << key << ' ' << value;
        EXPECT_THAT(seen.requests,
                    testing::Contains(testing::HasSubstr("CCE-10003.xml 503")).Times(testing::Le(4)));
    }
}

}  // namespace
}  // namespace zelor::test

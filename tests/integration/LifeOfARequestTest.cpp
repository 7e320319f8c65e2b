#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tests/integration/IntegrationFixture.h"

using zelor::authoring::ServerFault;
using zelor::test::ArchiveBuilder;
using zelor::test::IntegrationFixture;

namespace {

using Map = IntegrationFixture::Map;

ServerFault status(int code) {
    ServerFault fault;
    fault.status = code;
    return fault;
}

ServerFault dropAfter(std::uint64_t bytes) {
    ServerFault fault;
    fault.dropAfter = bytes;
    return fault;
}

TEST(LifeOfARequest, FromTheMapToAScriptThatRan) {
    IntegrationFixture fixture;
    const std::string mark = fixture.dir / "mark";
    fixture.addScript("CCE-1", "harden-1.0", "echo done >> '" + mark + "'");
    fixture.addScript("CCE-2", "fails", "exit 1");
    EXPECT_EQ(fixture.run(
                  {{"cpe:/o:apple:mac_os_x||", "CCE-1"}, {"cpe:/o:x||", "CCE-2"}, {"cpe:/o:y||", "CCE-404"}}),
              (Map{{"cpe:/o:apple:mac_os_x||", 4}, {"cpe:/o:x||", 5}, {"cpe:/o:y||", 6}}));
    EXPECT_EQ(zelor::test::readFile(mark), "done\n");
    EXPECT_EQ(fixture.record(), "ERI-CCE-1\n");
    EXPECT_TRUE(boost::filesystem::is_empty(fixture.dir.path() / "content"));

    fixture.takeAnswers();
    EXPECT_EQ(fixture.run({{"cpe:/o:apple:mac_os_x||", "CCE-1"}}), (Map{{"cpe:/o:apple:mac_os_x||", 4}}));
    EXPECT_EQ(fixture.countAnswers("/patches/"), 0) << "what is applied is not fetched again";
    EXPECT_EQ(zelor::test::readFile(mark), "done\n");
}

TEST(LifeOfARequest, SurvivesAnUnsteadyNetwork) {
    IntegrationFixture fixture;
    std::string large = "exit 0\n#";
    for (unsigned seed = 1; large.size() < 400000; seed = seed * 1664525U + 1013904223U) {
        large += static_cast<char>('!' + (seed >> 16U) % 90);
    }
    fixture.addScript("CCE-1", "busy", "exit 0");
    fixture.addScript("CCE-2", "dropped", large);
    fixture.addScript("CCE-3", "short", large);
    fixture.addFault("/patches/busy.zip", status(500));
    fixture.addFault("/patches/dropped.zip", dropAfter(100000));
    ServerFault lie;
    lie.announcedLength = 9000000;
    for (int i = 0; i < 10; ++i)
        fixture.addFault("/patches/short.zip", lie);
    EXPECT_EQ(fixture.run({{"1||", "CCE-1"}, {"2||", "CCE-2"}, {"3||", "CCE-3"}}),
              (Map{{"1||", 4}, {"2||", 4}, {"3||", 12}}));
    EXPECT_EQ(fixture.countAnswers("GET /patches/busy.zip"), 2);
    EXPECT_EQ(fixture.countAnswers("GET /patches/dropped.zip 206 range bytes=100000- bound"), 1)
        << fixture.log();
}

TEST(LifeOfARequest, TrustsNoContentWithoutItsSignature) {
    IntegrationFixture fixture;
    fixture.addScript("CCE-1", "one", "exit 0");
    fixture.addScript("CCE-2", "two", "exit 0");
    zelor::test::writeFile(fixture.dir / "repo/content/CCE-1.xml.sig",
                           zelor::test::readFile(fixture.dir / "repo/content/CCE-2.xml.sig"));
    EXPECT_EQ(fixture.run({{"1||", "CCE-1"}, {"2||", "CCE-2"}, {"3||", "../CCE-2"}}),
              (Map{{"1||", 6}, {"2||", 4}, {"3||", 6}}));
}

TEST(LifeOfARequest, BuffersThenAppliesWithoutADownload) {
    IntegrationFixture fixture;
    fixture.addContent("CCE-1", "tool.bsh");
    fixture.addArchive(
        "tool",
        ArchiveBuilder().file("tool.bsh", "exit 0").file("tool.sig", fixture.key.sign("exit 0")).finish());
    RemediationManager job(fixture.dir / "opt");
    job.bufferPatches({{"1||", "CCE-1"}});
    EXPECT_EQ(zelor::test::readFile(fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt"), "tool.bsh=00\n")
        << fixture.log();
    fixture.takeAnswers();
    EXPECT_EQ(fixture.run({{"1||", "CCE-1"}}), (Map{{"1||", 4}}));
    EXPECT_EQ(fixture.countAnswers("/patches/"), 0);
    EXPECT_EQ(zelor::test::readFile(fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt"), "");
    EXPECT_TRUE(boost::filesystem::is_empty(fixture.dir.path() / "var/zelor/buffer"));
}

// Shared record, repository and content cache; separate content directories. A buffering job runs meanwhile.
TEST(LifeOfARequest, SeveralManagersInOneProcess) {
    IntegrationFixture fixture;
    constexpr int kManagers = 4, kRequests = 5;
    std::vector<std::unique_ptr<RemediationManager>> managers;
    std::multiset<std::string> expected;
    std::map<std::string, std::string> buffered;
    for (int number = 0; number < kManagers; ++number) {
        std::map<std::string, std::string> requests;
        for (int i = 0; i < kRequests; ++i) {
            const std::string name = std::to_string(number) + "-" + std::to_string(i);
            fixture.addScript("CCE-" + name, "s" + name + "-", "exit 0");
            requests[name + "||"] = "CCE-" + name;
            expected.insert("ERI-CCE-" + name);
            fixture.addContent("CCE-9" + name, "b" + name + "-.bsh");
            fixture.addArchive("b" + name + "-", ArchiveBuilder().file("x", "").finish());
            buffered[name + "||"] = "CCE-9" + name;
        }
        const std::string content = fixture.dir / ("content" + std::to_string(number));
        boost::filesystem::create_directory(content);
        boost::filesystem::permissions(content, boost::filesystem::owner_all);
        managers.push_back(std::make_unique<RemediationManager>(fixture.dir / "opt"));
        managers.back()->setContentDownloadDir(content);
        managers.back()->setovalIdMap(requests);
    }
    RemediationManager job(fixture.dir / "opt");
    boost::thread buffering([&] { job.bufferPatches(buffered); });
    for (const auto& manager : managers)
        manager->remediate(true);
    for (const auto& manager : managers) {
        while (!manager->getRemDone())
            boost::this_thread::yield();
        for (const auto& [key, value] : manager->getRemediationProgressMap())
            EXPECT_EQ(value, 4U) << key << fixture.log();
    }
    buffering.join();
    std::multiset<std::string> recorded;
    std::istringstream record(fixture.record());
    for (std::string line; std::getline(record, line);)
        recorded.insert(line);
    EXPECT_EQ(recorded, expected);
    const std::string list = zelor::test::readFile(fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt");
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), kManagers * kRequests) << list;
}

// Polls several getters from another thread while the agent works; for the sanitizers.
TEST(LifeOfARequest, IsPolledAndCancelledFromOtherThreads) {
    IntegrationFixture fixture;
    for (int i = 0; i < 5; ++i)
        fixture.addScript("CCE-" + std::to_string(i), "s" + std::to_string(i), "exit 0");
    ServerFault stall;
    stall.stallAfter = 10;
    fixture.addFault("/patches/s3.zip", stall);
    RemediationManager manager(fixture.dir / "opt");
    manager.setContentDownloadDir(fixture.dir / "content");
    std::map<std::string, std::string> requests;
    for (int i = 0; i < 5; ++i)
        requests[std::to_string(i) + "||"] = "CCE-" + std::to_string(i);
    manager.setovalIdMap(requests);
    manager.remediate(true);
    boost::thread poller([&] {
        while (!manager.getRemDone()) {
            const Map progress = manager.getRemediationProgressMap();
            const auto third = progress.find("3||");
            if (third != progress.end() && third->second == 1) manager.setCancelAllRem(true);
            manager.getAllRemFailed();
            manager.getRebootNeeded();
        }
    });
    poller.join();
    EXPECT_EQ(manager.getRemediationProgressMap(),
              (Map{{"0||", 4}, {"1||", 4}, {"2||", 4}, {"3||", 13}, {"4||", 13}}));
}

}  // namespace

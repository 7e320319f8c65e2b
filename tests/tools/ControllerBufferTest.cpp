#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <optional>
#include <thread>

#include "controller/Commands.h"
#include "controller/live/BufferProgress.h"
#include "controller/run/GiveWay.h"
#include "tests/tools/ControllerFixture.h"

namespace zelor::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(ControllerBufferRecord, HasEachPatchOnceWithItsLastOutcome) {
    using Kind = BufferOutcome;
    controller::BufferRecord record;
    record.buffered("a.pkg", Kind::downloading, "");
    record.buffered("a.pkg", Kind::buffered, "");
    record.buffered("a.pkg", Kind::alreadyBuffered, "");  // a second request names it
    record.buffered("b.pkg", Kind::alreadyBuffered, "");
    record.buffered("c.pkg", Kind::tooLarge, "it does not fit");
    record.buffered("d.pkg", Kind::downloading, "");
    record.buffered("d.pkg", Kind::skipped, "the repository\n answered 404");
    record.buffered("e.pkg", Kind::downloading, "");
    record.end("cancelled");
    std::vector<std::string> all;
    for (const controller::PatchOutcome& outcome : record.outcomes())
        all.push_back(outcome.patch + ' ' + controller::outcomeName(outcome.kind) + ' ' + outcome.reason);
    EXPECT_THAT(all, ElementsAre("a.pkg buffered ", "b.pkg already-buffered ",
                                 "c.pkg skipped it does not fit; raise PatchesDirSizeMB in section Buffer",
                                 "d.pkg skipped the repository? answered 404", "e.pkg skipped cancelled"));
    EXPECT_EQ(record.takeNews().size(), 8U);
    EXPECT_TRUE(record.takeNews().empty());
}

TEST_F(ControllerTest, BuffersAndSaysWhatItHas) {
    fixture.addContent("CCE-1", "one.pkg");
    fixture.addArchive("one", "what is buffered is not looked into");
    fixture.addContent("CCE-2", "none.pkg");
    const json map = {{"cpe:/o:x", "CCE-1"}, {"cpe:/o:y", "CCE-2"}, {"cpe:/o:z", "CCE-9"}};
    const ControllerRun first = on("buffer", map, {"--json", "-"});
    EXPECT_EQ(first.status, 1);
    const json result = json::parse(first.out);
    EXPECT_EQ(result["buffered"], json::parse(R"(["one.pkg"])"));
    EXPECT_EQ(result["alreadyBuffered"], json::array());
    EXPECT_EQ(result["skipped"][0]["patch"], "none.pkg");
    EXPECT_THAT(result["skipped"][0]["reason"].get<std::string>(), HasSubstr("404"));
    EXPECT_EQ(result["unusable"][0]["identifier"], "CCE-9");
    EXPECT_EQ(result["cancelled"], false);
    EXPECT_THAT(first.err,
                HasSubstr("1 patch is in the buffer, 1 skipped; 1 request without usable content."));

    const ControllerRun second = on("buffer", {{"cpe:/o:x", "CCE-1"}}, {"--json", fixture.dir / "out.json"});
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(readJson("out.json")["alreadyBuffered"], json::parse(R"(["one.pkg"])"));
    EXPECT_THAT(second.out, HasSubstr("already-buffered  one.pkg"));
    EXPECT_EQ(on("buffer", {{"cpe:/o:y", "CCE-2"}}, {"--quiet"}).status, 3);
    EXPECT_FALSE(boost::filesystem::exists(fixture.dir / "var/zelor/content"));
}

TEST_F(ControllerTest, BufferingStopsForAWaitingRun) {
    authoring::ServerFault slow;
    slow.bytesPerSecond = 200'000;
    authoring::ServerFault stall;
    stall.stallAfter = 1000;
    const struct {
        const char* name;
        authoring::ServerFault fault;
        bool inHandArrives;
    } cases[] = {{"ends soon", slow, true}, {"does not end", stall, false}};
    fixture.addContent("CCE-1", "one.pkg");
    fixture.addContent("CCE-2", "two.pkg");
    fixture.addArchive("one", std::string(200'000, '1'));
    fixture.addArchive("two", std::string(200'000, '2'));
    fixture.addScript("CCE-3", "script", "exit 0\n");
    writeFile(fixture.dir / "run.json", R"({"cpe:/o:x": "CCE-3"})");
    writeFile(requests, R"({"cpe:/o:x": "CCE-1", "cpe:/o:y": "CCE-2"})");
    controller::BufferOptions options;
    options.requests = requests;
    options.paths.root = root;
    options.paths.tools = fixture.dir / "tools";
    options.talk.quiet = true;
    options.json = fixture.dir / "out.json";
    for (const auto& one : cases) {
        fixture.clearFaults();
        fixture.takeAnswers();
        fixture.addFault("patches/one.zip", one.fault);
        fixture.addFault("patches/two.zip", stall);  // at most started before the job stops
        options.giveWayTime = std::chrono::milliseconds(one.inHandArrives ? 60'000 : 300);
        int status = 0;
        std::atomic<bool> over{false};
        std::thread user([&] {
            while (fixture.countAnswers("/patches/one.zip") == 0 && !over)
                std::this_thread::yield();
            // For a patch that ends, a program could start too late; for one that does not, the job waits for
            // it.
            std::optional<controller::WaitingSign> sign;
            if (one.inHandArrives) sign.emplace(root + "/var/zelor");
            const std::string command = std::string("'" ZELOR_REMEDIATE_PROGRAM "' run '") +
                                        (fixture.dir / "run.json") + "' --root '" + root + "' --tools '" +
                                        (fixture.dir / "tools") + "' --quiet";
            // Not by the function that the job's own commands use: it would note them in the job's lock.
            status = std::system(("timeout 30 " + command).c_str());
        });
        const int buffered = controller::bufferCommand(options);
        over = true;
        user.join();
        EXPECT_EQ(status, 0) << one.name;
        EXPECT_EQ(buffered, one.inHandArrives ? 1 : 3) << one.name;
        const json result = readJson("out.json");
        EXPECT_EQ(result["gaveWay"], true) << one.name;
        EXPECT_EQ(result["cancelled"], false) << one.name;
        EXPECT_EQ(result["buffered"], one.inHandArrives ? json{"one.pkg"} : json::array()) << one.name;
        EXPECT_FALSE(boost::filesystem::exists(fixture.dir / "var/zelor/buffer/two.zip")) << one.name;
        boost::filesystem::remove_all(fixture.dir / "var/zelor/buffer");
        boost::filesystem::remove(fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt");
        boost::filesystem::create_directories(fixture.dir / "var/zelor/buffer");
    }
}

TEST_F(ControllerTest, ASignalStopsADownloadIntoTheBuffer) {
    fixture.addContent("CCE-1", "big.pkg");
    const std::string bytes(200000, 'b');
    fixture.addArchive("big", bytes);
    authoring::ServerFault stall;
    stall.stallAfter = 100000;
    fixture.addFault("patches/big.zip", stall);
    std::atomic<bool> over{false};
    std::thread user([&] {
        while (fixture.countAnswers("/patches/big.zip") == 0 && !over)
            std::this_thread::yield();
        ::kill(::getpid(), over ? 0 : SIGTERM);
    });
    const ControllerRun run = on("buffer", {{"cpe:/o:x", "CCE-1"}}, {"--json", fixture.dir / "out.json"});
    over = true;
    user.join();
    EXPECT_EQ(run.status, 130);
    EXPECT_EQ(readJson("out.json")["cancelled"], true);
    EXPECT_EQ(readJson("out.json")["buffered"], json::array());
    EXPECT_EQ(readFile(fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt"), "");
    EXPECT_FALSE(boost::filesystem::exists(fixture.dir / "var/zelor/buffer/big.zip"));
    EXPECT_EQ(on("buffer", {{"cpe:/o:x", "CCE-1"}}).status, 0);
    EXPECT_EQ(readFile(fixture.dir / "var/zelor/buffer/big.zip"), bytes);
}

}  // namespace
}  // namespace zelor::test

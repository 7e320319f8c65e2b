#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "controller/run/BufferTrail.h"
#include "tests/tools/ControllerFixture.h"

namespace zelor::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(ControllerBufferTrail, FollowsTheJobByItsLines) {
    using Kind = controller::PatchOutcome::Kind;
    controller::BufferTrail trail;
    const auto debug = [&](const std::string& line) { trail.take(false, line); };
    const std::string job = "[Remediation Manager] (downloadPatchForBuffering) ";
    debug(job + "Patch 'it's.pkg' will be buffered at 10 bytes/second");
    debug(
        "[Remediation Manager] Inside addPatchBufferedEntry: Added entry for successfully buffered patch = "
        "it's.pkg");
    debug(job + "patch \"it's.pkg\" is already buffered and is latest.");  // a second request names it
    debug(job + "patch \"b.pkg\" is already buffered and is latest.");
    debug(job +
          "Patch \"c.pkg\" buffering skipped as it is exceeding the alloted size for bufferedpatches dir");
    debug(job + "Patch 'd.pkg' will be buffered at 10 bytes/second");
    trail.take(true, "[Downloader] cannot fetch http://r/d.zip: 404");
    debug(job + "Dowdnload patch failed for patch = d.pkg");
    trail.take(true, job + "The patch name '../e' is refused: it holds a path separator");
    debug(job + "Patch 'f.pkg' will be buffered at 10 bytes/second");
    debug("[Remediation Manager] (addPatchBufferedEntry) Writing bufferedPatchesList.txt threw exception ");
    debug(job + "Patch 'g.pkg' will be buffered at 10 bytes/second");
    trail.end("cancelled");
    std::vector<std::string> all;
    for (const controller::PatchOutcome& outcome : trail.outcomes())
        all.push_back(outcome.patch + ' ' + std::to_string(static_cast<int>(outcome.kind)) + ' ' +
                      outcome.reason);
    const auto line = [](const std::string& patch, Kind kind, const std::string& reason) {
        return patch + ' ' + std::to_string(static_cast<int>(kind)) + ' ' + reason;
    };
    EXPECT_THAT(
        all,
        ElementsAre(line("it's.pkg", Kind::buffered, ""), line("b.pkg", Kind::alreadyBuffered, ""),
                    line("c.pkg", Kind::skipped,
                         "it does not fit into what is left of the buffer's size; raise PatchesDirSizeMB"),
                    line("d.pkg", Kind::skipped, "cannot fetch http://r/d.zip: 404"),
                    line("../e", Kind::skipped, "its name is refused: it holds a path separator"),
                    line("f.pkg", Kind::skipped, "the list of buffered patches cannot be written"),
                    line("g.pkg", Kind::skipped, "cancelled")));
    EXPECT_EQ(trail.takeNews().size(), 11U);
    EXPECT_TRUE(trail.takeNews().empty());
}

TEST_F(ControllerTest, BuffersAndTellsWhatItHas) {
    road.addContent("CCE-1", "one.pkg");
    road.addArchive("one", "what is buffered is not looked into");
    road.addContent("CCE-2", "none.pkg");
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

    const ControllerRun second = on("buffer", {{"cpe:/o:x", "CCE-1"}}, {"--json", road.dir / "out.json"});
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(readJson("out.json")["alreadyBuffered"], json::parse(R"(["one.pkg"])"));
    EXPECT_THAT(second.out, HasSubstr("already-buffered  one.pkg"));
    EXPECT_EQ(on("buffer", {{"cpe:/o:y", "CCE-2"}}, {"--quiet"}).status, 3);
    EXPECT_FALSE(boost::filesystem::exists(road.dir / "var/zelor/content"));
}

TEST_F(ControllerTest, ASignalStopsADownloadIntoTheBuffer) {
    road.addContent("CCE-1", "big.pkg");
    const std::string bytes(200000, 'b');
    road.addArchive("big", bytes);
    authoring::ServerFault stall;
    stall.stallAfter = 100000;
    road.addFault("patches/big.zip", stall);
    std::atomic<bool> over{false};
    std::thread user([&] {
        while (road.countAnswers("/patches/big.zip") == 0 && !over)
            std::this_thread::yield();
        ::kill(::getpid(), over ? 0 : SIGTERM);
    });
    const ControllerRun run = on("buffer", {{"cpe:/o:x", "CCE-1"}}, {"--json", road.dir / "out.json"});
    over = true;
    user.join();
    EXPECT_EQ(run.status, 130);
    EXPECT_EQ(readJson("out.json")["cancelled"], true);
    EXPECT_EQ(readJson("out.json")["buffered"], json::array());
    EXPECT_EQ(readFile(road.dir / "var/zelor/unzip/bufferdPatchesList.txt"), "");
    EXPECT_FALSE(boost::filesystem::exists(road.dir / "var/zelor/buffer/big.zip"));
    EXPECT_EQ(on("buffer", {{"cpe:/o:x", "CCE-1"}}).status, 0);
    EXPECT_EQ(readFile(road.dir / "var/zelor/buffer/big.zip"), bytes);
}

}  // namespace
}  // namespace zelor::test

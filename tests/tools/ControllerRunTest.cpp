#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <thread>

#include "base/Files.h"
#include "tests/tools/ControllerFixture.h"

namespace zelor::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr char editor[] = "cpe:/o:apple:mac_os_x,cpe:/a:example:editor||Example Editor";

TEST_F(ControllerTest, RunsAndReports) {
    road.addScript("CCE-1", "good", "exit 0\n");
    road.addScript("CCE-2", "bad", "echo no firewall here; exit 3\n");
    const json map = {{"cpe:/o:x,||", "CCE-1"}, {"cpe:/o:y||", "CCE-2"}, {"cpe:/o:z||oval:org:1", "CVE-3"}};
    const ControllerRun run = on("run", map, {"--json", road.dir / "out.json", "--events", road.dir / "ev"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(run.out, HasSubstr("failed            cpe:/o:y (CCE-2): exit status 3: no firewall here"));
    EXPECT_THAT(run.out, HasSubstr("3 requests in "));
    EXPECT_EQ(readJson("out.json")["requests"],
              json::parse(R"({"cpe:/o:x,||": {"identifier": "CCE-1", "value": 4, "state": "success"},
                              "cpe:/o:y||": {"identifier": "CCE-2", "value": 5, "state": "failed"},
                              "cpe:/o:z||oval:org:1":
                                  {"identifier": "CVE-3", "value": 6, "state": "content-failed"}})"));
    std::istringstream events(readFile(road.dir / "ev"));
    std::map<std::string, int> last;
    double time = 0;
    for (std::string line; std::getline(events, line);) {
        const json event = json::parse(line);
        EXPECT_GE(event["t"], time);
        time = event["t"];
        EXPECT_EQ(event["state"].is_string(), true);
        last[event["key"]] = event["value"];
    }
    EXPECT_EQ(last, (std::map<std::string, int>{
                        {"cpe:/o:x,||", 4}, {"cpe:/o:y||", 5}, {"cpe:/o:z||oval:org:1", 6}}));
    struct stat info {};
    ASSERT_EQ(::stat((road.dir / "var/zelor/content").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0700U);
}

TEST_F(ControllerTest, KeepsStandardOutputForJson) {
    road.addScript("CCE-1", "good", "echo noise\n");
    const ControllerRun run = on("run", {{"cpe:/o:x", "CCE-1"}}, {"--json", "-"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(json::parse(run.out)["requests"]["cpe:/o:x"]["value"], 4);
    EXPECT_THAT(run.err, HasSubstr("1 request in "));
    const ControllerRun quiet = on("run", {{"cpe:/o:x", "CCE-1"}}, {"--json", "-", "--quiet"});
    EXPECT_EQ(quiet.err, "");
    const ControllerRun verbose = on("run", {{"cpe:/o:x", "CCE-1"}}, {"--json", "-", "--verbose"});
    EXPECT_THAT(verbose.err, HasSubstr("verifyIfAlreadyAppliedRem returned true"));
}

TEST_F(ControllerTest, AppliesAgainAfterAScan) {
    road.addScript("CCE-1", "count", "echo x >> '" + (road.dir / "count") + "'\n");
    for (const std::vector<std::string>& more : {std::vector<std::string>{}, {}, {"--after-scan"}})
        EXPECT_EQ(on("run", {{"cpe:/o:x", "CCE-1"}}, more).status, 0);
    EXPECT_EQ(readFile(road.dir / "count"), "x\nx\n");
}

TEST_F(ControllerTest, EndsByWhatWasReached) {
    EXPECT_EQ(on("run", {{"cpe:/o:x", "CCE-9"}}).status, 3);
    tool("installer", "echo broken");
    EXPECT_EQ(on("run", {{editor, "CVE-9"}}, {"--json", road.dir / "o"}).status, 3);
    EXPECT_EQ(readJson("o")["allFailed"], true);
}

TEST_F(ControllerTest, RefusesWhatCannotWorkAndChangesNothing) {
    const std::string ini = road.dir / "etc/zelor/zelor.ini";
    const std::string good = readFile(ini);
    const std::string url = good.substr(0, good.find("TrustedKey"));
    boost::filesystem::create_directory(road.dir / "content");
    const struct {
        std::string ini;
        std::vector<std::string> more;
        std::string told;
    } cases[] = {
        {"[Repository]\nTrustedKey = /etc/zelor/repository.pem\n", {}, "Url"},
        {url, {}, "TrustedKey is missing"},
        {url + "TrustedKey = /etc/none.pem\n", {}, "etc/none.pem cannot be read"},
        {good + "PatchesDirSizeMB = lots\n", {}, "PatchesDirSizeMB"},
        {"[Repository\n", {}, "zelor.ini, line 1"},
        {good, {"--content-dir", "content"}, "absolute path"},
        {good, {"--content-dir", "/x/../etc"}, "absolute path"},
        {good, {"--content-dir", "/var"}, "holds other files of the agent"},
        {good, {"--content-dir", "/"}, "holds other files of the agent"},
        {good, {"--content-dir", "/content"}, "nobody else may enter"},
        {good, {"--install-path", "/"}, "root itself"},
        {good, {"--json", "-", "--events", "-"}, "cannot share standard output"},
        {good, {"--json", road.dir / "no/such/folder"}, "--json"},
        {good, {"--events", root}, "is a folder"},
        {good, {"--frobnicate"}, "--frobnicate"},
        {good, {"--quiet", "--verbose"}, "excludes"},
    };
    for (const auto& one : cases) {
        writeFile(ini, one.ini);
        const ControllerRun run = on("run", {{"cpe:/o:x", "CCE-1"}}, one.more);
        EXPECT_EQ(run.status, 2) << one.told;
        EXPECT_THAT(run.err, HasSubstr(one.told));
        EXPECT_EQ(run.out, "");
    }
    EXPECT_FALSE(boost::filesystem::exists(road.dir / "var/log"));
    EXPECT_FALSE(boost::filesystem::exists(road.dir / "var/zelor/content"));
    boost::filesystem::remove(ini);
    EXPECT_THAT(on("run", {{"cpe:/o:x", "CCE-1"}}).err, HasSubstr("zelor.ini cannot be read"));
    EXPECT_EQ(controller({"run", road.dir / "none.json"}).status, 2);
    EXPECT_EQ(controller({"run", requests, "--root", road.dir / "none"}).status, 2);
    EXPECT_THAT(controller({"frob"}).err, HasSubstr("there is no command \"frob\""));
}

TEST_F(ControllerTest, WorksAloneAtItsPlace) {
    const base::UniqueFd other = base::openFile(road.dir / "var/zelor/unzip", O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0);
    const ControllerRun run = on("run", {{"cpe:/o:x", "CCE-1"}});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("another run"));
}

TEST_F(ControllerTest, ASignalCancelsAndWaitsForTheStepInHand) {
    // The script says that it began, and goes on once the signal was sent.
    ASSERT_EQ(::mkfifo((road.dir / "began").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo((road.dir / "goOn").c_str(), 0600), 0);
    road.addScript(
        "CCE-1", "slow",
        "echo > '" + (road.dir / "began") + "'; read -r x < '" + (road.dir / "goOn") + "'; exit 0\n");
    road.addScript("CCE-2", "next", "exit 0\n");
    std::thread user([this] {
        readFile(road.dir / "began");
        ::kill(::getpid(), SIGINT);
        writeFile(road.dir / "goOn", "\n");
    });
    const ControllerRun run =
        on("run", {{"cpe:/o:a", "CCE-1"}, {"cpe:/o:b", "CCE-2"}}, {"--json", road.dir / "out.json"});
    user.join();
    EXPECT_EQ(run.status, 130);
    EXPECT_EQ(readJson("out.json")["requests"]["cpe:/o:a"]["value"], 4);
    EXPECT_EQ(readJson("out.json")["requests"]["cpe:/o:b"]["value"], 13);
    EXPECT_THAT(run.out, HasSubstr("Cancelling"));
}

}  // namespace
}  // namespace zelor::test

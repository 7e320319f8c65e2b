#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "agent/RepositoryStatus.h"
#include "base/Files.h"
#include "collaborators/Logger.h"
#include "controller/Commands.h"
#include "platform/ShellCommand.h"
#include "support/Soon.h"
#include "tests/support/DripServer.h"
#include "tests/tools/ControllerFixture.h"
#include "tests/tools/JsonSchema.h"

namespace zelor::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr char kEditor[] = "cpe:/o:apple:mac_os_x,cpe:/a:example:editor||Example Editor";

TEST_F(ControllerTest, RunsAndReports) {
    fixture.addScript("CCE-1", "good", "exit 0\n");
    fixture.addScript("CCE-2", "bad", "echo no firewall here; exit 3\n");
    const json map = {{"cpe:/o:x,||", "CCE-1"}, {"cpe:/o:y||", "CCE-2"}, {"cpe:/o:z||oval:org:1", "CVE-3"}};
    const ControllerRun run =
        on("run", map, {"--json", fixture.dir / "out.json", "--events", fixture.dir / "ev"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(run.out, HasSubstr("failed            cpe:/o:y (CCE-2): exit status 3: no firewall here"));
    EXPECT_THAT(run.out, HasSubstr("3 requests in "));
    json results = readJson("out.json")["requests"];
    for (json& result : results) {
        EXPECT_GE(result["seconds"], 0);
        result.erase("seconds");
        result.erase("begin");
    }
    EXPECT_THAT(results["cpe:/o:z||oval:org:1"]["reason"].get<std::string>(),
                HasSubstr("content/CVE-3.xml: the repository answered 404; publish the content there"));
    results["cpe:/o:z||oval:org:1"].erase("reason");
    EXPECT_EQ(results, json::parse(R"(
        {"cpe:/o:x,||": {"identifier": "CCE-1", "value": 4, "state": "success", "applied": "now"},
         "cpe:/o:y||": {"identifier": "CCE-2", "value": 5, "state": "failed",
                        "reason": "exit status 3: no firewall here"},
         "cpe:/o:z||oval:org:1": {"identifier": "CVE-3", "value": 6, "state": "content-failed"}})"));
    std::istringstream events(readFile(fixture.dir / "ev"));
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
    ASSERT_EQ(::stat((fixture.dir / "var/zelor/content").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0700U);
}

TEST_F(ControllerTest, EmptiesTheContentDirectoryAsATree) {
    const std::string content = fixture.dir / "var/zelor/content";
    writeFile(content + "/good.sh/in/the/way", "left by an earlier run");
    writeFile(content + "/Closed.app/inner", "x");
    ::chmod((content + "/Closed.app").c_str(), 0500);
    ::chmod(content.c_str(), 0700);
    fixture.addContent("CCE-1", "good.sh");
    const std::string text = "exit 0\n";
    fixture.addArchive("good", ArchiveBuilder()
                                   .file("good.sh", text)
                                   .file("good.sig", fixture.key.sign(text))
                                   .directory("left/over/directory")
                                   .finish());
    EXPECT_EQ(on("run", {{"cpe:/o:x", "CCE-1"}}, {}).status, 0);
    EXPECT_TRUE(boost::filesystem::is_empty(content));
}

TEST_F(ControllerTest, KeepsStandardOutputForJson) {
    fixture.addScript("CCE-1", "good", "echo noise\n");
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
    fixture.addScript("CCE-1", "count", "echo x >> '" + (fixture.dir / "count") + "'\n");
    for (const std::vector<std::string>& more : {std::vector<std::string>{}, {}, {"--after-scan"}})
        EXPECT_EQ(on("run", {{"cpe:/o:x", "CCE-1"}}, more).status, 0);
    EXPECT_EQ(readFile(fixture.dir / "count"), "x\nx\n");
}

TEST_F(ControllerTest, EndsByWhatWasReached) {
    EXPECT_EQ(on("run", {{"cpe:/o:x", "CCE-9"}}).status, 3);
    tool("installer", "echo broken");
    EXPECT_EQ(on("run", {{kEditor, "CVE-9"}}, {"--json", fixture.dir / "o"}).status, 3);
    EXPECT_EQ(readJson("o")["allFailed"], true);
}

TEST_F(ControllerTest, RefusesWhatCannotWorkAndChangesNothing) {
    const std::string ini = fixture.dir / "etc/zelor/zelor.ini";
    const std::string good = readFile(ini);
    const std::string url = good.substr(0, good.find("TrustedKey"));
    boost::filesystem::create_directory(fixture.dir / "content");
    const struct {
        std::string ini;
        std::vector<std::string> more;
        std::string reported;
    } cases[] = {
        {"[Repository]\nTrustedKey = /etc/zelor/repository.pem\n", {}, "Url"},
        {url, {}, "TrustedKey is missing"},
        {url + "TrustedKey = /etc/none.pem\n", {}, "etc/none.pem cannot be read"},
        {good + "PatchesDirSizeMB = lots\n", {}, "PatchesDirSizeMB"},
        {"[Repository\n", {}, "zelor.ini, line 1"},
        {good, {"--content-dir", "content"}, "absolute path"},
        {good, {"--content-dir", "/x/../etc"}, "absolute path"},
        {good, {"--content-dir", "/var"}, "contains other files of the agent"},
        {good, {"--content-dir", "/"}, "contains other files of the agent"},
        {good, {"--content-dir", "/content"}, "nobody else may enter"},
        {good, {"--install-path", "/"}, "root itself"},
        {good, {"--json", "-", "--events", "-"}, "cannot share standard output"},
        {good, {"--json", fixture.dir / "no/such/directory"}, "--json"},
        {good, {"--events", root}, "is a directory"},
        {good, {"--frobnicate"}, "--frobnicate"},
        {good, {"--quiet", "--verbose"}, "excludes"},
        {good, {"--jsno", "x"}, "zelor-remediate run: there is no option --jsno; did you mean --json?"},
        {good, {"--wait", "soon"}, "zelor-remediate run --help"},
        {good, {"--json", requests}, "is the file of the requests"},
        {good, {"--events", fixture.dir / "link"}, "is the file of the requests"},
        {good, {"--report", fixture.dir / "hard"}, "is the file of the requests"},
        {good, {"--json", fixture.dir / "new", "--report", fixture.dir / "content/../new"}, "the same file"},
        {good, {"--report", fixture.dir / "socket"}, "--report: cannot write"},
    };
    writeFile(requests, "");
    ASSERT_EQ(::symlink(requests.c_str(), (fixture.dir / "link").c_str()), 0);
    ASSERT_EQ(::link(requests.c_str(), (fixture.dir / "hard").c_str()), 0);
    ASSERT_EQ(::mknod((fixture.dir / "socket").c_str(), S_IFSOCK | 0600, 0), 0);
    for (const auto& one : cases) {
        writeFile(ini, one.ini);
        const ControllerRun run = on("run", {{"cpe:/o:x", "CCE-1"}}, one.more);
        EXPECT_EQ(run.status, 2) << one.reported;
        EXPECT_THAT(run.err, HasSubstr(one.reported));
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(readFile(requests), R"({"cpe:/o:x":"CCE-1"})");
    }
    EXPECT_FALSE(boost::filesystem::exists(fixture.dir / "new"));
    EXPECT_FALSE(boost::filesystem::exists(fixture.dir / "var/log"));
    EXPECT_FALSE(boost::filesystem::exists(fixture.dir / "var/zelor/content"));
    boost::filesystem::remove(ini);
    EXPECT_THAT(on("run", {{"cpe:/o:x", "CCE-1"}}).err, HasSubstr("zelor.ini cannot be read"));
    EXPECT_EQ(controller({"run", fixture.dir / "none.json"}).status, 2);
    EXPECT_EQ(controller({"run", requests, "--root", fixture.dir / "none"}).status, 2);
    EXPECT_THAT(controller({"frob"}).err, HasSubstr("there is no command \"frob\""));
}

TEST_F(ControllerTest, NeedsARootWhereThereIsNoMac) {
#ifdef __APPLE__
    GTEST_SKIP() << "this is a Mac";
#endif
    writeFile(requests, R"({"cpe:/o:x": "CCE-1"})");
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"run", requests}, {"plan", requests}, {"buffer", requests}, {"status"}}) {
        const ControllerRun run = controller(arguments);
        EXPECT_EQ(run.status, 2) << arguments[0];
        EXPECT_THAT(run.err, HasSubstr("--root DIR"));
        EXPECT_EQ(run.out, "");
    }
}

TEST_F(ControllerTest, RunsTheOthersOfAnInvalidRequest) {
    fixture.addScript("CCE-1", "good", "exit 0\n");
    const json map = {{"cpe:/o:x", "CCE-1"}, {"cpe:/o:y", ""}, {"cpe:/o:z", nullptr}, {" ", "CCE-1"}};
    const ControllerRun run = on("run", map, {"--json", fixture.dir / "out.json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("invalid-request   cpe:/o:z (): line 1: its identifier is null; write"));
    const json plan = json::parse(on("plan", map, {"--json"}).out);
    const json results = readJson("out.json");
    for (const char* key : {"cpe:/o:y", "cpe:/o:z", " "}) {
        EXPECT_EQ(results["requests"][key]["value"], 8) << key;
        EXPECT_EQ(plan["requests"][key]["value"], 8) << key;
        EXPECT_THAT(plan["requests"][key]["reason"].get<std::string>(), HasSubstr("line 1: its "));
    }
    EXPECT_EQ(results["requests"]["cpe:/o:x"]["value"], 4);
    const ControllerRun none = on("run", {{"cpe:/o:y", nullptr}}, {"--json", "-"});
    EXPECT_EQ(none.status, 3);
    EXPECT_EQ(json::parse(none.out)["allFailed"], true);
    const json unusable = json::parse(on("buffer", {{"cpe:/o:y", 7}}, {"--json", "-"}).out)["unusable"];
    EXPECT_THAT(unusable.at(0)["reason"].get<std::string>(), HasSubstr("its identifier is a number"));
}

TEST_F(ControllerTest, WarnsOfASuccessThatInstalledNothing) {
    fixture.addContent("CVE-1", "editor.dmg");
    fixture.addArchive(
        "editor",
        ArchiveBuilder().file("editor.dmg", "bytes").file("editor.sig", fixture.key.sign("bytes")).finish());
    tool("hdiutil", "[ $1 != attach ] || echo 'hdiutil: attach failed - no mountable file systems' >&2");
    const std::string warning =
        "success, but nothing was installed: the image was not attached: hdiutil: attach failed - no "
        "mountable "
        "file systems";
    const ControllerRun run = on("run", {{kEditor, "CVE-1"}},
                                 {"--json", fixture.dir / "out.json", "--events", fixture.dir / "ev",
                                  "--report", fixture.dir / "page"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr(": " + warning));
    json result = readJson("out.json")["requests"][kEditor];
    result.erase("seconds");
    result.erase("begin");
    EXPECT_EQ(result,
              (json{{"identifier", "CVE-1"}, {"value", 4}, {"state", "success"}, {"warning", warning}}));
    EXPECT_THAT(readFile(fixture.dir / "ev"), HasSubstr("\"warning\":\"" + warning + '"'));
    EXPECT_THAT(readFile(fixture.dir / "page"), HasSubstr(warning));
    EXPECT_EQ(fixture.record(), "ERI-CVE-1\n");
    EXPECT_EQ(JsonSchema(json::parse(readFile(ZELOR_RESULTS_SCHEMA))).problem(readJson("out.json")), "");
    // Recorded as it is, it counts as applied from now on.
    EXPECT_EQ(on("run", {{kEditor, "CVE-1"}}, {"--json", fixture.dir / "out.json"}).status, 0);
    EXPECT_EQ(readJson("out.json")["requests"][kEditor]["applied"], "before");
}

/// A run of a hundred requests whose content, or whose patches, come from a server that does not end.
struct ControllerLimitTest : ControllerTest {
    controller::RunOptions options;

    ControllerLimitTest() {
        json map;
        for (int i = 0; i < 100; ++i) {
            const std::string number = std::to_string(i);
            fixture.addScript("CCE-" + number, "script" + number, "exit 0\n");
            map["cpe:/o:x||" + number] = "CCE-" + number;
        }
        writeFile(requests, map.dump());
        options.requests = requests;
        options.paths.root = root;
        options.paths.tools = fixture.dir / "tools";
        options.talk.quiet = true;
        options.json = fixture.dir / "out.json";
        options.events = fixture.dir / "events";
        options.report = fixture.dir / "page";
    }
    void send(const std::string& path, const std::string& url) {
        authoring::ServerFault moved;
        moved.status = 302;
        moved.headers = {{"Location", url + "/x"}};
        fixture.clearFaults();
        for (int i = 0; i < 400; ++i)
            fixture.addFault(path, moved);
        boost::filesystem::remove_all(root + "/opt/zelor");
        boost::filesystem::remove(root + "/var/log/zelor/ZelorInstalledPatches.txt");
    }
    ControllerRun run() {
        testing::internal::CaptureStderr();
        ControllerRun result;
        result.status = controller::runCommand(options);
        result.err = testing::internal::GetCapturedStderr();
        return result;
    }
    /// How long `work` runs after a signal that comes when it has asked the server.
    static std::chrono::steady_clock::duration timeToEnd(const DripServer& server,
                                                         const std::function<void()>& work) {
        std::atomic<bool> over{false};
        std::chrono::steady_clock::time_point signalled;
        std::thread user([&] {
            while (server.connections() == 0 && !over)
                std::this_thread::yield();
            signalled = std::chrono::steady_clock::now();
            ::kill(::getpid(), over ? 0 : SIGTERM);
        });
        work();
        const auto end = std::chrono::steady_clock::now();
        over = true;
        user.join();
        return end - signalled;
    }
};

TEST_F(ControllerLimitTest, NoRepositoryHoldsARunLongerThanItsLimit) {
    const std::string reason = "the run reached its time limit, RunMinutes in section Limits";
    options.timeLimit = std::chrono::milliseconds(400);
    for (const std::string path : {"/content/", "/patches/"}) {
        for (const DripServer::Drip& drip : DripServer::all()) {
            const DripServer slow(drip);
            send(path, slow.url());
            const ControllerRun ended = run();
            EXPECT_EQ(ended.status, 130) << path << drip.name;
            EXPECT_THAT(ended.err, HasSubstr(reason));
            const json results = readJson("out.json");
            EXPECT_EQ(results["end"], "time-limit");
            EXPECT_LT(std::chrono::duration<double>(results["seconds"].get<double>()), test::kSoon)
                << path << drip.name;
            for (const json& result : results["requests"]) {
                EXPECT_EQ(result["value"], 13) << path << drip.name;
                EXPECT_EQ(result["reason"], reason);
            }
            EXPECT_THAT(readFile(fixture.dir / "events"), HasSubstr("\"reason\":\"" + reason));
            EXPECT_THAT(readFile(fixture.dir / "page"), HasSubstr("Ended early: " + reason));
        }
    }
    options.timeLimit = std::chrono::milliseconds(0);
    fixture.clearFaults();
    EXPECT_EQ(run().status, 0);
    EXPECT_EQ(readJson("out.json")["end"], "complete");
}

TEST_F(ControllerLimitTest, ASignalEndsARunThatNoRepositoryEnds) {
    for (const std::string path : {"/content/", "/patches/"}) {
        for (const DripServer::Drip& drip : DripServer::all()) {
            const DripServer slow(drip);
            send(path, slow.url());
            ControllerRun ended;
            const auto time = timeToEnd(slow, [&] { ended = run(); });
            EXPECT_LT(time, test::kSoon) << path << drip.name;
            EXPECT_EQ(ended.status, 130) << path << drip.name;
            const json results = readJson("out.json");
            EXPECT_EQ(results["end"], "cancelled");
            for (const json& result : results["requests"])
                EXPECT_EQ(result["value"], 13) << path << drip.name;
        }
    }
}

TEST_F(ControllerLimitTest, ASignalEndsAPlan) {
    const DripServer slow(DripServer::all().front());
    send("/content/", slow.url());
    int status = 0;
    EXPECT_LT(timeToEnd(slow, [&] { status = at("plan", {}, {requests}).status; }), test::kSoon);
    EXPECT_EQ(status, 130);
}

TEST_F(ControllerTest, SaysSoWhenItsResultsAreLost) {
    fixture.addScript("CCE-1", "good", "exit 0\n");
    writeFile(requests, R"({"cpe:/o:x": "CCE-1"})");
    const std::string program = "cd '" + root + "' && '" ZELOR_REMEDIATE_PROGRAM "' ";
    for (const std::string arguments :
         {"run requests.json --json", "run requests.json --events", "run requests.json --report",
          "plan requests.json --json", "buffer requests.json --json"}) {
        for (const std::string output : {" -", " /dev/stdout"}) {
            const base::CommandResult result = platform::runShell(
                program + arguments + output + " --root . 2>&1 >/dev/full; echo status=$?");
            EXPECT_THAT(result.output, HasSubstr(": No space left")) << arguments << output;
            EXPECT_THAT(result.output, HasSubstr("status=4")) << arguments << output;
        }
    }
    // The first file that is opened must not get the number of the closed descriptor.
    for (const std::string arguments : {"run requests.json", "run requests.json --json -", "status",
                                        "plan requests.json", "run requests.json --events events"}) {
        const base::CommandResult result =
            platform::runShell(program + arguments + " --root . 2>&1 >&-; echo status=$?");
        EXPECT_THAT(result.output, HasSubstr("cannot write standard output")) << arguments;
        EXPECT_THAT(result.output, HasSubstr("status=4")) << arguments;
    }
    EXPECT_THAT(readFile(fixture.dir / "events"), Not(HasSubstr("1 request")));
    EXPECT_EQ(platform::runShell(program + "run requests.json --quiet --root . >&-").status, 0);
}

TEST_F(ControllerTest, OnlyOneRunAtATime) {
    const base::UniqueFd other =
        base::openFile(fixture.dir / "var/zelor/remediate.lock", O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0);
    for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--wait", "1"}}) {
        const ControllerRun run = on("run", {{"cpe:/o:x", "CCE-1"}}, more);
        EXPECT_EQ(run.status, 5);
        EXPECT_THAT(run.err, HasSubstr("another run"));
    }
    EXPECT_THAT(on("buffer", {{"cpe:/o:x", "CCE-1"}}).err, HasSubstr("--wait SECONDS"));
}

TEST_F(ControllerTest, WaitsForAnotherRun) {
    fixture.addScript("CCE-1", "good", "exit 0\n");
    const std::string lockFile = fixture.dir / "var/zelor/remediate.lock";
    base::UniqueFd other = base::openFile(lockFile, O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0);
    std::thread otherRun([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        other.reset();
    });
    const ControllerRun run = on("run", {{"cpe:/o:x", "CCE-1"}}, {"--wait", "60"});
    otherRun.join();
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, HasSubstr("waiting, since another run"));

    other = base::openFile(lockFile, O_RDWR);
    ASSERT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0);
    std::thread user([&] {
        // Without its handler the signal would end the test.
        struct sigaction action {};
        do {
            ::sigaction(SIGINT, nullptr, &action);
        } while (action.sa_handler == SIG_DFL);
        ::kill(::getpid(), SIGINT);
    });
    EXPECT_EQ(on("run", {{"cpe:/o:x", "CCE-1"}}, {"--wait", "60"}).status, 130);
    user.join();
}

TEST_F(ControllerTest, ASignalCancelsAndWaitsForTheCurrentStep) {
    // The script reports its start, and continues when the signal was sent.
    ASSERT_EQ(::mkfifo((fixture.dir / "began").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo((fixture.dir / "goOn").c_str(), 0600), 0);
    fixture.addScript(
        "CCE-1", "slow",
        "echo > '" + (fixture.dir / "began") + "'; read -r x < '" + (fixture.dir / "goOn") + "'; exit 0\n");
    fixture.addScript("CCE-2", "next", "exit 0\n");
    std::thread user([this] {
        readFile(fixture.dir / "began");
        ::kill(::getpid(), SIGINT);
        writeFile(fixture.dir / "goOn", "\n");
    });
    const ControllerRun run =
        on("run", {{"cpe:/o:a", "CCE-1"}, {"cpe:/o:b", "CCE-2"}}, {"--json", fixture.dir / "out.json"});
    user.join();
    EXPECT_EQ(run.status, 130);
    EXPECT_EQ(readJson("out.json")["requests"]["cpe:/o:a"]["value"], 4);
    EXPECT_EQ(readJson("out.json")["requests"]["cpe:/o:b"]["value"], 13);
    EXPECT_THAT(run.out, HasSubstr("Cancelling"));
}

TEST_F(ControllerTest, ResultsMatchTheirSchemaAndDistinguishCauses) {
    const JsonSchema schema(json::parse(readFile(ZELOR_RESULTS_SCHEMA)));
    fixture.addScript("CCE-1", "good", "exit 0\n");
    fixture.addScript("CCE-2", "forged", "exit 0\n");
    fixture.addArchive("forged",
                       ArchiveBuilder().file("forged.sh", "x").file("forged.sig", "no signature").finish());
    fixture.addContent("CCE-3", "none.sh");
    const json map = {{"a", "CCE-1"}, {"b", "CCE-2"}, {"c", "CCE-3"}, {"d", "CCE-9"}, {"e,f,g", "CCE-1"}};
    const std::vector<std::string> files = {"--json",   fixture.dir / "out",
                                            "--events", fixture.dir / "ev",
                                            "--report", fixture.dir / "report.html"};
    EXPECT_EQ(on("run", map, files).status, 1);
    const json first = readJson("out");
    EXPECT_EQ(schema.problem(first), "");
    EXPECT_EQ(first["platform"]["version"], "10.10.5");
    const auto reason = [](const json& all, const char* key) {
        return all["requests"][key].value("reason", "");
    };
    EXPECT_THAT(reason(first, "b"), HasSubstr("forged.sh is not accepted: "));
    EXPECT_THAT(reason(first, "c"), HasSubstr("patches/none.zip: the repository answered 404"));
    EXPECT_THAT(reason(first, "d"), HasSubstr("the repository answered 404; publish the content there"));
    EXPECT_EQ(reason(first, "e,f,g"), "the request names more than two CPEs");
    const json event =
        json::parse(readFile(fixture.dir / "ev").substr(0, readFile(fixture.dir / "ev").find('\n')));
    for (const char* name : {"schema", "version", "host", "platform", "started"})
        EXPECT_EQ(event[name], first[name]) << name;
    EXPECT_THAT(readFile(fixture.dir / "ev"), HasSubstr("forged.sh is not accepted: "));

    json broken = first;
    broken["requests"]["a"]["value"] = "4";
    EXPECT_EQ(schema.problem(broken), "$.requests.a.value breaks type");
    broken = first;
    broken["requests"]["a"]["beforeCancel"] = {{"state", "failed"}};
    EXPECT_EQ(schema.problem(broken), "$.requests.a.beforeCancel lacks value");

    authoring::ServerFault outage;
    outage.status = 503;
    // One attempt is made ahead of need for each, three and one when the run asks.
    for (int attempt = 0; attempt < 6; ++attempt)
        fixture.addFault("content/CCE-9", outage);
    const ControllerRun down = on("run", {{"a", "CCE-1"}, {"d", "CCE-9"}, {"e", "CCE-90"}}, files);
    EXPECT_EQ(down.status, 1);
    const json second = readJson("out");
    EXPECT_EQ(second["outage"]["requests"], 2);
    for (const std::string& shown : {down.out, readFile(fixture.dir / "report.html")}) {
        EXPECT_THAT(shown,
                    testing::ContainsRegex("The repository does not answer since [0-9:]+ UTC: 2 requests "));
        EXPECT_EQ(shown.find(agent::kRepositoryDown), shown.rfind(agent::kRepositoryDown)) << "once";
        EXPECT_THAT(shown, HasSubstr("no answer"));
    }
    EXPECT_EQ(schema.problem(second), "");
    EXPECT_EQ(second["requests"]["a"]["applied"], "before");
    EXPECT_EQ(second["requests"]["d"]["value"], 6);
    EXPECT_THAT(reason(second, "d"),
                AllOf(HasSubstr("the repository does not answer since"), HasSubstr("answered 503")));
}

TEST_F(ControllerTest, ACancelKeepsTheFailuresBeforeIt) {
    fixture.addScript("CCE-1", "forged", "exit 0\n");
    fixture.addArchive("forged",
                       ArchiveBuilder().file("forged.sh", "x").file("forged.sig", "no signature").finish());
    fixture.addScript("CCE-2", "last", "kill -INT " + std::to_string(::getpid()) + "; sleep 1\n");
    const ControllerRun run = on("run", {{"a", "CCE-1"}, {"b", "CCE-2"}, {"c", "CCE-3"}},
                                 {"--json", fixture.dir / "out", "--events", fixture.dir / "ev", "--report",
                                  fixture.dir / "report.html"});
    EXPECT_EQ(run.status, 130);
    const json result = readJson("out")["requests"]["a"];
    EXPECT_EQ(result["value"], 13) << "the library's";
    EXPECT_EQ(result["beforeCancel"]["value"], 12);
    EXPECT_EQ(result["beforeCancel"]["state"], "file-unavailable");
    EXPECT_THAT(result["beforeCancel"]["reason"].get<std::string>(), HasSubstr("is not accepted"));
    EXPECT_EQ(JsonSchema(json::parse(readFile(ZELOR_RESULTS_SCHEMA))).problem(readJson("out")), "");
    EXPECT_THAT(readFile(fixture.dir / "ev"), HasSubstr("\"beforeCancel\":{\"value\":12"));
    EXPECT_THAT(readFile(fixture.dir / "report.html"), HasSubstr("before the cancel file-unavailable: "));
    EXPECT_THAT(run.out, HasSubstr("had a result before the cancel: "));
}

TEST_F(ControllerTest, TheRestartOfAnUpdateThatThisRunInstalled) {
    tool("softwareupdate",
         "case $1 in -l) printf '   * Safari9.0-9.0\\n';; *) printf 'Done.\\nPlease restart "
         "immediately.\\n';; "
         "esac");
    fixture.addContentText(
        "CVE-1",
        "<remediation identifier=\"CVE-1\"><cre id=\"CRE-1\"><eri id=\"ERI-1\">"
        "<product>cpe:/o:apple:mac_os_x</product><instructions>OS remediation</instructions>"
        "</eri></cre></remediation>");
    const ControllerRun run =
        on("run", {{"cpe:/o:apple:mac_os_x||Apple Safari", "CVE-1"}}, {"--json", fixture.dir / "out"});
    EXPECT_EQ(run.status, 0) << fixture.log();
    EXPECT_EQ(readJson("out")["rebootNeeded"], false) << "the library's";
    EXPECT_EQ(readJson("out")["restartNeededByThisRun"], true);
    EXPECT_THAT(run.out, HasSubstr("A restart is needed to complete what this run applied."));
}

TEST_F(ControllerTest, TheLogKeepsToTheLevelOfTheIni) {
    const std::string ini = fixture.dir / "etc/zelor/zelor.ini";
    writeFile(ini, readFile(ini) + "\n[Log]\nLevel = error\n");
    fixture.addScript("CCE-2", "bad", "echo no firewall here; exit 3\n");
    const ControllerRun run = on("run", {{"cpe:/o:y||", "CCE-2"}});
    EXPECT_THAT(run.out, HasSubstr("exit status 3: no firewall here"));
    EXPECT_FALSE(Logger::GetInstance()->GetLogger().isInfoEnabled());
    EXPECT_THAT(fixture.log(), Not(HasSubstr("DEBUG")));
}

}  // namespace
}  // namespace zelor::test

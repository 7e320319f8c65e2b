#include <signal.h>

#include "authoring/rehearse/Sandbox.h"
#include "base/CommandRunner.h"
#include "tools/AuthoringFixture.h"

namespace zelor::authoring {
namespace {

using test::readFile;
using testing::HasSubstr;
using testing::StartsWith;

struct ServeTest : test::Authoring {};

TEST_F(ServeTest, ServesUntilASignalAndSaysOfRequests) {
    if (shell("curl --version") != 0) GTEST_SKIP() << "the curl command is not installed";
    ASSERT_EQ(publish().status, 0);
    for (const int signal : {SIGTERM, SIGINT}) {
        test::ToolProcess server({"serve", repository, "--port", "0", "--verbose"}, dir / "errors");
        const std::string url = server.line();
        ASSERT_THAT(url, StartsWith("http://127.0.0.1:"));
        EXPECT_EQ(shell("curl -fsS -r 100-199 -o part " + url + "/patches/editor-2.1.zip"), 0);
        EXPECT_EQ(readFile(dir / "part"), readFile(repository + "/patches/editor-2.1.zip").substr(100, 100));
        for (const char* hidden : {"/.zelor-content.json", "/content/", "/../keys/repository.key"}) {
            EXPECT_NE(shell("curl -fsS --path-as-is " + url + hidden), 0) << hidden;
        }
        EXPECT_NE(shell("curl -fsS --path-as-is -r '1-2\x1b[2J' " + url + "/a%0Ab"), 0);
        EXPECT_NE(shell("curl -fsS -X \"$(printf 'G\\033[2J')\" " + url + "/x"), 0);
        const int status = server.end(signal);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        EXPECT_THAT(readFile(dir / "errors"), HasSubstr("206 GET /patches/editor-2.1.zip"));
        EXPECT_THAT(readFile(dir / "errors"), testing::Not(HasSubstr("\x1b")));
    }
}

TEST_F(ServeTest, AMissingDirectoryIsUnusable) {
    const test::ToolRun run = test::contentTool({"serve", dir / "none", "--port", "0"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("none"));
}

/// Every kind of content that is installed for rehearsals.
TEST_F(ServeTest, TheRehearsalContentPublishesWithoutFindings) {
    const std::string content = ZELOR_REHEARSAL_CONTENT;
    ASSERT_EQ(
        test::contentTool({"publish", content + "/manifest.json", "--key", privateKey, "--out", repository})
            .status,
        0);
    const test::ToolRun run = check();
    EXPECT_EQ(run.status, 0) << run.out;
}

/// With the variable they change the disk that it names; without it, as on a Mac, the root; both in the same
/// way.
TEST_F(ServeTest, SampleScriptsRunOnAMacAndOnARehearsalMac) {
    const std::string why = whyNoSandbox(), quick = "env 'BASH_FUNC_sleep%%=() { :; }' ";
    for (const char* disk : {"mac", "variable"})
        boost::filesystem::create_directory(dir / disk);
    std::size_t count = 0;
    for (const char* directory : {"/scripts", "/../demo/scripts"}) {
        for (const auto& entry :
             boost::filesystem::directory_iterator(ZELOR_REHEARSAL_CONTENT + std::string(directory))) {
            const std::string script = entry.path().string();
            SCOPED_TRACE(script);
            ++count;
            const int status = entry.path().filename() == "require-firewall.bsh" ? 1 : 0;
            for (int time = 0; time < 2; ++time)
                EXPECT_EQ(shell(quick + "ZELOR_REHEARSAL_ROOT=variable bash '" + script + "'"), status);
            // Without a sandbox the scripts would change this machine.
            EXPECT_THAT(readFile(script), HasSubstr("root=${ZELOR_REHEARSAL_ROOT:-}"));
            if (!why.empty()) continue;
            const Sandbox sandbox({dir / "mac", {}, {entry.path().parent_path().string()}});
            const base::CommandResult run =
                base::runCommand(sandbox.words({"/usr/bin/env", "-u", "ZELOR_REHEARSAL_ROOT",
                                                "BASH_FUNC_sleep%%=() { :; }", "/bin/bash", script}),
                                 true, std::chrono::seconds(20));
            EXPECT_EQ(WEXITSTATUS(run.status), status) << run.output;
        }
    }
    EXPECT_EQ(count, 7U);
    EXPECT_EQ(readFile(dir / "variable/etc/launchd-user.conf"), "umask 027\n");
    if (!why.empty()) GTEST_SKIP() << "no sandbox here: " << why;
    EXPECT_EQ(shell("diff -r mac variable"), 0);
}

}  // namespace
}  // namespace zelor::authoring

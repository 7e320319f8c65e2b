#include <signal.h>

#include "tools/AuthoringFixture.h"

namespace zelor::authoring {
namespace {

using test::readFile;
using testing::HasSubstr;
using testing::StartsWith;

struct ServeTest : test::Authoring {};

TEST_F(ServeTest, ServesUntilASignalAndTellsOfRequests) {
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
        const int status = server.end(signal);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        EXPECT_THAT(readFile(dir / "errors"), HasSubstr("206 GET /patches/editor-2.1.zip"));
    }
}

TEST_F(ServeTest, AMissingFolderIsUnusable) {
    const test::ToolRun run = test::contentTool({"serve", dir / "none", "--port", "0"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("none"));
}

/// Every kind of content that is shipped for rehearsals.
TEST_F(ServeTest, TheRehearsalContentPublishesWithoutFindings) {
    const std::string content = ZELOR_REHEARSAL_CONTENT;
    ASSERT_EQ(
        test::contentTool({"publish", content + "/manifest.json", "--key", privateKey, "--out", repository})
            .status,
        0);
    const test::ToolRun run = check();
    EXPECT_EQ(run.status, 0) << run.out;
}

TEST_F(ServeTest, RehearsalScriptsTouchARehearsalMacOnly) {
    const std::string scripts = std::string(ZELOR_REHEARSAL_CONTENT) + "/scripts";
    boost::filesystem::create_directory(dir / "mac");
    for (const auto& entry : boost::filesystem::directory_iterator(scripts)) {
        const std::string script = "bash '" + entry.path().string() + "'";
        SCOPED_TRACE(script);
        EXPECT_NE(shell("unset ZELOR_REHEARSAL_ROOT; " + script), 0);
        EXPECT_NE(shell("ZELOR_REHEARSAL_ROOT=/ " + script), 0);
        const bool fails = entry.path().filename() == "require-firewall.bsh";
        EXPECT_EQ(shell("ZELOR_REHEARSAL_ROOT=mac " + script), fails ? 1 : 0);
        EXPECT_EQ(shell("ZELOR_REHEARSAL_ROOT=mac " + script), fails ? 1 : 0) << "a second time";
    }
    EXPECT_EQ(readFile(dir / "mac/etc/launchd-user.conf"), "umask 027\n");
}

}  // namespace
}  // namespace zelor::authoring

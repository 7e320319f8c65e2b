#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "tools/AuthoringFixture.h"

namespace zelor {
namespace {

using test::readFile;
using testing::HasSubstr;
using testing::StartsWith;

/// The tool as a process of its own, with its standard output in a pipe.
class ServeProcess {
  public:
    explicit ServeProcess(const std::string& folder, const std::string& errors) {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
        child_ = ::fork();
        if (child_ == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            if (std::freopen(errors.c_str(), "w", stderr) == nullptr) ::_exit(99);
            ::execl(ZELOR_CONTENT_PROGRAM, "zelor-content", "serve", folder.c_str(), "--port", "0",
                    "--verbose", nullptr);
            ::_exit(98);
        }
        ::close(ends[1]);
        output_ = ::fdopen(ends[0], "r");
    }
    ~ServeProcess() {
        if (child_ > 0) end(SIGKILL);
        std::fclose(output_);
    }
    ServeProcess(const ServeProcess&) = delete;
    ServeProcess& operator=(const ServeProcess&) = delete;

    /// Waits for the line that says that it is ready.
    std::string url() const {
        std::array<char, 200> line{};
        if (std::fgets(line.data(), line.size(), output_) == nullptr) return "";
        const std::string text = line.data();
        return text.substr(0, text.find('\n'));
    }
    int end(int signal) {
        int status = -1;
        ::kill(child_, signal);
        ::waitpid(child_, &status, 0);
        child_ = 0;
        return status;
    }

  private:
    pid_t child_ = 0;
    std::FILE* output_ = nullptr;
};

struct ServeTest : test::Authoring {};

TEST_F(ServeTest, ServesUntilASignalAndTellsOfRequests) {
    if (shell("curl --version") != 0) GTEST_SKIP() << "the curl command is not installed";
    ASSERT_EQ(publish().status, 0);
    for (const int signal : {SIGTERM, SIGINT}) {
        ServeProcess server(repository, dir / "errors");
        const std::string url = server.url();
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
TEST_F(ServeTest, TheRehearsalContentPublishesAndHasOneKnownFinding) {
    const std::string content = ZELOR_REHEARSAL_CONTENT;
    ASSERT_EQ(
        test::contentTool({"publish", content + "/manifest.json", "--key", privateKey, "--out", repository})
            .status,
        0);
    const test::ToolRun run = check();
    EXPECT_THAT(run.out, HasSubstr("\"disable-remote-login.bsh\" has no archive"));
    EXPECT_THAT(run.out, HasSubstr("1 errors, 0 warnings"));
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
}  // namespace zelor

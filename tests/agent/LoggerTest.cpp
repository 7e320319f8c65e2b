#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "agent/LogControl.h"
#include "base/SystemRoot.h"
#include "collaborators/Logger.h"
#include "platform/Log.h"
#include "support/TempDir.h"

namespace zelor::agent {
namespace {

using log4cpp::Priority;
using test::readFile;
using test::TempDir;
using test::writeFile;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

struct LoggerTest : testing::Test {
    TempDir root;
    void useIni(const std::string& text) {
        writeFile(root / "etc/zelor/zelor.ini", text);
        setSystemRoot(root.path().string());
    }
    std::string logFile() const { return root / "var/log/zelor/remediation.log"; }
};

TEST_F(LoggerTest, HostileTextStaysOnOneLine) {
    struct Case {
        std::string text, shown;
    };
    const Case cases[] = {
        {"plain ~ text", "plain ~ text"},
        {"a\n2026-01-01T00:00:00.000Z ERROR forged\r", "a\\n2026-01-01T00:00:00.000Z ERROR forged\\r"},
        {"\x1b[2J\x7f\t" + std::string(1, '\0'), "\\x1b[2J\\x7f\\t\\x00"},
        {"caf\xc3\xa9 \xc2\xa9", "caf\xc3\xa9 \xc2\xa9"},
        {"\xc2\x9b"
         "31m",
         "\\xc2\\x9b"
         "31m"},
        {"cut \xc2", "cut \\xc2"},
        {"\xe2\x80\xae turned \xe2\x80\xa8", "\\xe2\\x80\\xae turned \\xe2\\x80\\xa8"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(escapeControls(c.text), c.shown);
    EXPECT_EQ(logLine(log4cpp::TimeStamp(1795256102, 123999), Priority::DEBUG, "text"),
              "2026-11-21T10:15:02.123Z DEBUG text\n");
    EXPECT_EQ(logLine(log4cpp::TimeStamp(0, 7000), Priority::ERROR, "%s"),
              "1970-01-01T00:00:00.007Z ERROR %s\n");
}

TEST_F(LoggerTest, WritesAndRotatesAPrivateFileThatCommandsDoNotInherit) {
    useIni("");
    log::debug("[Test] one ", 2, " three");
    EXPECT_THAT(readFile(logFile()), MatchesRegex("[0-9T:.-]+Z DEBUG \\[Test\\] one 2 three\n"));
    struct stat status {};
    ASSERT_EQ(stat(logFile().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0027U, 0U) << "nobody but the owner's group reads it";
    for (int fd = 3; fd < 64; ++fd) {
        struct stat open {};
        if (fstat(fd, &open) != 0 || open.st_ino != status.st_ino) continue;
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    }
    boost::filesystem::resize_file(logFile(), 10U << 20U);
    log::info("last of the old");
    log::info("first of the new");
    EXPECT_THAT(readFile(logFile() + ".1"), HasSubstr("last of the old"));
    EXPECT_THAT(readFile(logFile()), MatchesRegex("[^\n]*first of the new\n"));
}

TEST_F(LoggerTest, KeepsToTheLevelAndFollowsTheRoot) {
    useIni("[Log]\nLevel = info\nFile = /logs/agent.log\n");
    log::debug("quiet");
    log::info("loud");
    EXPECT_THAT(readFile(root / "logs/agent.log"), HasSubstr("INFO loud"));
    EXPECT_THAT(readFile(root / "logs/agent.log"), Not(HasSubstr("quiet")));

    const TempDir other;
    writeFile(other / "etc/zelor/zelor.ini", "[Log]\nLevel = chatty\n");
    setSystemRoot(other.path().string());
    log::debug("moved");
    const std::string moved = readFile(other / "var/log/zelor/remediation.log");
    EXPECT_THAT(moved, HasSubstr("Log.Level = \"chatty\""));
    EXPECT_THAT(moved, HasSubstr("DEBUG moved"));
    EXPECT_THAT(readFile(root / "logs/agent.log"), Not(HasSubstr("moved")));
}

TEST_F(LoggerTest, AMalformedIniIsReportedByTheFirstLine) {
    useIni("rubbish\n");
    log::debug("work goes on");
    EXPECT_THAT(readFile(logFile()),
                MatchesRegex("[^\n]*ERROR \\[AgentSettings\\] [^\n]*\n[^\n]*work goes on\n"));
}

TEST_F(LoggerTest, AFileThatCannotBeWrittenSendsErrorsToStandardError) {
    writeFile(root / "var/log", "in the way");
    CaptureStderr();
    useIni("");
    log::info("lost");
    log::error("seen\n");
    const std::string shown = GetCapturedStderr();
    EXPECT_THAT(
        shown, MatchesRegex("[^\n]*ERROR \\[Logger\\] cannot write the log file [^\n]*Not a directory[^\n]*\n"
                            "[^\n]*ERROR seen\\\\n\n"));
}

TEST_F(LoggerTest, StandardErrorCanShowMoreThanTheFileKeeps) {
    useIni("[Log]\nLevel = error\n");
    CaptureStderr();
    log::info("before");
    logToStandardError("info");
    log::info("during");
    log::debug("too small");
    EXPECT_THAT(GetCapturedStderr(), MatchesRegex("[^\n]*INFO during\n"));
    EXPECT_THAT(readFile(logFile()), IsEmpty());
}

TEST_F(LoggerTest, LinesOfSeveralThreadsStayWhole) {
    useIni("");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 200; ++i)
                log::debug("[Test] ", std::string(50, 'x'));
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::istringstream lines(readFile(logFile()));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_THAT(line, MatchesRegex("[^ ]+ DEBUG \\[Test\\] x{50}"));
    }
    EXPECT_EQ(count, 800);
}

}  // namespace
}  // namespace zelor::agent

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/CommandRunner.h"
#include "platform/ShellCommand.h"
#include "platform/macos/MacPatchManager.h"
#include "support/Soon.h"
#include "tests/library/FakeAgent.h"

using zelor::base::CommandResult;
using zelor::base::OutputBuffer;
using zelor::base::runCommand;

namespace {

constexpr std::chrono::seconds kNoLimit{0};
constexpr std::chrono::seconds kLimit{1};

CommandResult shell(const std::string& command, bool mergeError = false,
                    std::chrono::seconds limit = kNoLimit) {
    return runCommand({"/bin/sh", "-c", command}, mergeError, limit);
}

/// Whether the process whose id `text` begins with is running; a zombie is not.
bool isRunning(const std::string& text) {
    const std::string state = shell("ps -o stat= -p " + std::to_string(std::stoi(text))).output;
    return !state.empty() && state.find('Z') == std::string::npos;
}

/// Whether it ends soon: a process that was killed dies when it gets the processor next.
bool isEnded(const std::string& text) {
    const auto late = std::chrono::steady_clock::now() + zelor::test::kSoon;
    while (isRunning(text) && std::chrono::steady_clock::now() < late)
        std::this_thread::yield();
    return !isRunning(text);
}

/// Closes descriptors of this process for the lifetime of the object.
class ClosedDescriptors {
  public:
    explicit ClosedDescriptors(const std::vector<int>& descriptors) {
        for (const int fd : descriptors) {
            kept_.emplace_back(fd, fcntl(fd, F_DUPFD_CLOEXEC, 100));
            close(fd);
        }
    }
    ~ClosedDescriptors() {
        for (const auto& [fd, copy] : kept_) {
            dup2(copy, fd);
            close(copy);
        }
    }
    ClosedDescriptors(const ClosedDescriptors&) = delete;
    ClosedDescriptors& operator=(const ClosedDescriptors&) = delete;

  private:
    std::vector<std::pair<int, int>> kept_;
};

/// Makes the terminal at `path` the controlling one of this session, which has none.
bool takeTerminal(const char* path) {
    const int terminal = open(path, O_RDWR);
    return terminal >= 0 && ioctl(terminal, TIOCSCTTY, 0) == 0;
}

TEST(CommandRunner, CollectsOutputAndStatus) {
    const CommandResult both = shell("echo out; echo err >&2; exit 3", true);
    EXPECT_TRUE(both.started && both.waited && !both.timedOut);
    EXPECT_EQ(both.output, "out\nerr\n");
    EXPECT_EQ(WEXITSTATUS(both.status), 3);
    EXPECT_EQ(shell("echo out; echo err >&2").output, "out\n");
    EXPECT_EQ(shell("printf 'a\\000b'").output, std::string("a\0b", 3));
    EXPECT_EQ(shell("cat").output, "") << "standard input is empty";
    const CommandResult missing = runCommand({"/no/such/program"}, true, kNoLimit);
    EXPECT_FALSE(missing.started);
    EXPECT_EQ(missing.startError, ENOENT);
}

TEST(CommandRunner, PassesNoOtherDescriptorOn) {
    const int leaky = open("/dev/null", O_RDONLY);  // without close-on-exec, as a host process might
    ASSERT_GE(dup2(leaky, 9), 0);
    EXPECT_EQ(shell("if { true <&9; } 2>/dev/null; then echo leaked; else echo closed; fi").output,
              "closed\n");
    close(9);
    close(leaky);
}

TEST(CommandRunner, LeadsAProcessGroupOfItsOwn) {
    const std::string group = shell("ps -o pgid= -p $$ | tr -d ' '; echo $$").output;
    const auto newline = group.find('\n');
    EXPECT_EQ(group.substr(0, newline + 1), group.substr(newline + 1));
}

TEST(CommandRunner, EndsTheWholeGroupAtTheLimit) {
    const CommandResult cut = shell("echo before; sleep 600 & sleep 600; echo after", true, kLimit);
    EXPECT_TRUE(cut.timedOut);
    EXPECT_EQ(cut.output, "before\n");
    EXPECT_TRUE(WIFSIGNALED(cut.status));
    const CommandResult deaf = shell("trap '' TERM; echo deaf; while :; do sleep 1; done", true, kLimit);
    EXPECT_TRUE(deaf.timedOut);
    EXPECT_EQ(WTERMSIG(deaf.status), SIGKILL);
    const CommandResult closed = shell("exec >&- 2>&-; sleep 600", true, kLimit);
    EXPECT_TRUE(closed.timedOut) << "also when it closed its output";
}

TEST(CommandRunner, ReadsToTheEndOfOutputAfterTheCommandEnded) {
    // Longer than any grace period of a runner: an installer's worker may take minutes.
    const CommandResult result = shell("(sleep 6; echo late; echo last) & echo early; exit 3");
    EXPECT_EQ(result.output, "early\nlate\nlast\n");
    EXPECT_EQ(WEXITSTATUS(result.status), 3);
    EXPECT_FALSE(result.timedOut);
}

TEST(CommandRunner, BoundsWhatOutlivesTheCommandByTheLimit) {
    const CommandResult kept = shell("sleep 600 & echo $!; exit 0", false, kLimit);
    EXPECT_TRUE(kept.timedOut);
    EXPECT_EQ(kept.status, 0) << "the command's own";
    EXPECT_TRUE(isEnded(kept.output));
    const CommandResult deaf =
        shell("sh -c 'trap \"\" TERM; echo $$; exec >&- 2>&-; while :; do sleep 1; done' & sleep 600", false,
              kLimit);
    EXPECT_TRUE(deaf.timedOut);
    EXPECT_TRUE(isEnded(deaf.output)) << "it ignores TERM and its output is closed";
}

TEST(CommandRunner, WorksWithoutTheStandardDescriptors) {
    for (const std::vector<int>& closed : std::vector<std::vector<int>>{{0}, {1}, {2}, {0, 1, 2}}) {
        for (const bool mergeError : {false, true}) {
            CommandResult result;
            {
                const ClosedDescriptors without(closed);
                result = shell("cat; echo out; echo err >&2", mergeError);
            }
            SCOPED_TRACE(testing::PrintToString(closed) + (mergeError ? " merged" : ""));
            EXPECT_EQ(result.startError, 0);
            EXPECT_EQ(result.status, 0);
            EXPECT_EQ(result.output, mergeError ? "out\nerr\n" : "out\n");
        }
    }
}

TEST(CommandRunner, GivesNoTerminalToACommand) {
    zelor::test::FakeAgent agent;
    agent.addTool("installer", "read password </dev/tty || exit 1\necho successful\n");
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20);  // where the reader is stopped, nothing else would end the wait
        const bool terminal = setsid() >= 0 && takeTerminal(ptsname(master));
        _exit(!terminal ? 2 : MacPatchManager().pkgInstallation("x.pkg") == -1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the read fails, the installer ends, and its request reads as failed";
    close(master);
}

TEST(CommandRunner, KeepsHeadAndTailOfAFlood) {
    const CommandResult flood = shell("echo head; head -c 20000000 /dev/zero; echo; echo tail");
    EXPECT_EQ(flood.outputSize, 20000011U);
    EXPECT_LT(flood.output.size(), zelor::base::kOutputBound + 100);
    EXPECT_EQ(flood.output.substr(0, 5), "head\n");
    EXPECT_EQ(flood.output.substr(flood.output.size() - 5), "tail\n");
    EXPECT_NE(flood.output.find("bytes left out]"), std::string::npos);
}

TEST(Scripts, LeaveTheirServicesRunningAndWritingAndAreNotWaitedForLonger) {
    zelor::test::FakeAgent agent;
    const std::string script = agent.dir / "scripts/service.sh";
    zelor::test::writeFile(script, "(while [ ! -e '" + agent.dir / "go" +
                                       "' ]; do sleep 0.05; done; echo one; echo two; echo served > '" +
                                       agent.dir / "served" + "') &\necho started\nexit 7\n");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(MacPatchManager().applyConfig(script), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, zelor::test::kSoon);
    EXPECT_TRUE(agent.logged("DEBUG", "[MacHardeningFacilitator] output of " + script + " = started\n"));
    EXPECT_EQ(MacPatchManager().listFilesInDirectory(agent.dir / "scripts").size(), 3U)
        << "., .. and the script: its output has no name";
    zelor::test::writeFile(agent.dir / "go", "");
    for (int i = 0; i < 200 && zelor::test::readFile(agent.dir / "served").empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(zelor::test::readFile(agent.dir / "served"), "served\n") << "its output is gone";
}

TEST(Scripts, AreBoundedInTimeAndOutput) {
    const zelor::test::TempDir dir;
    const std::string script = dir / "script.sh";
    zelor::test::writeFile(
        script,
        "echo head; head -c 9000000 /dev/zero; sleep 0.5; head -c 11000000 /dev/zero; echo; echo tail\n");
    const CommandResult flood = zelor::base::runScript(script, kNoLimit);
    EXPECT_EQ(flood.status, 0);
    EXPECT_EQ(flood.outputSize, 20000011U);
    EXPECT_LT(flood.output.size(), zelor::base::kOutputBound + 100);
    EXPECT_EQ(flood.output.substr(0, 5), "head\n");
    EXPECT_EQ(flood.output.substr(flood.output.size() - 5), "tail\n");
    zelor::test::writeFile(script, "sleep 600 & echo $!; sleep 600\n");
    const CommandResult cut = zelor::base::runScript(script, kLimit);
    EXPECT_TRUE(cut.timedOut && WIFSIGNALED(cut.status));
    EXPECT_TRUE(isEnded(cut.output));
    EXPECT_EQ(zelor::base::runScript("/no/such/directory/script.sh", kNoLimit).status, 127 << 8)
        << "the shell's own answer, where no file can be made for its output";
}

TEST(OutputBuffers, KeepBothEndsHoweverTheBytesCome) {
    std::string all;
    for (int i = 0; i < 200; ++i)
        all += static_cast<char>('a' + i % 26);
    for (std::size_t size : {0U, 9U, 10U, 11U, 20U, 21U, 33U, 200U}) {
        for (std::size_t piece : {1U, 3U, 10U, 50U, 200U}) {
            SCOPED_TRACE(std::to_string(size) + " in " + std::to_string(piece));
            OutputBuffer buffer(20);
            const std::string text = all.substr(0, size);
            for (std::size_t at = 0; at < size; at += piece)
                buffer.add(text.data() + at, std::min(piece, size - at));
            EXPECT_EQ(buffer.size(), size);
            const std::string expected = size <= 20 ? text
                                                    : text.substr(0, 10) + "\n[" + std::to_string(size - 20) +
                                                          " bytes left out]\n" + text.substr(size - 10);
            EXPECT_EQ(buffer.take(), expected);
        }
    }
}

TEST(CommandLimit, ComesFromTheIniAndIsReportedWhenItCuts) {
    zelor::test::FakeAgent agent;
    struct {
        std::string ini;
        int minutes;
    } rows[] = {{"", 0},
                {"[Limits]\nCommandMinutes = 30\n", 30},
                {"[Limits]\nCommandMinutes = -1\n", 0},
                {"[Limits]\nCommandMinutes = soon\n", 0},
                {"[Limits]\nCommandMinutes = 99999999999\n", 0}};
    for (const auto& row : rows) {
        zelor::test::writeFile(agent.dir / "etc/zelor/zelor.ini", row.ini);
        EXPECT_EQ(zelor::platform::commandLimit(), std::chrono::minutes(row.minutes)) << row.ini;
    }
    const std::string ini = agent.dir / "etc/zelor/zelor.ini";
    zelor::test::writeFile(ini, "[Limits]\nCommandMinutes = 11\n");
    boost::filesystem::last_write_time(ini, 1);
    EXPECT_EQ(zelor::platform::commandLimit(), std::chrono::minutes(11));
    zelor::test::replaceUnseen(ini, "[Limits]\nCommandMinutes = 22\n");
    EXPECT_EQ(zelor::platform::commandLimit(), std::chrono::minutes(11)) << "not parsed before each command";
    boost::filesystem::last_write_time(ini, 2);
    EXPECT_EQ(zelor::platform::commandLimit(), std::chrono::minutes(22)) << "but when it changed";
    CommandResult cut;
    cut.timedOut = true;
    zelor::platform::logCommandTrouble("installer -pkg x", cut);
    EXPECT_EQ(agent.countLogged("Stopped at the limit of [Limits] CommandMinutes: installer -pkg x"), 1);
}

TEST(CommandOutput, IsReadWholeOrByStarredLines) {
    zelor::test::FakeAgent agent;
    MacPatchManager mac;
    EXPECT_EQ(mac.getCmdlineOutput("echo a; echo b"), "a\nb\n");
    EXPECT_EQ(mac.getOsCmdline("echo head; echo '   * Safari'; printf '* last'"),
              (std::vector<std::string>{"   * Safari\n", "* last"}));
    const auto pieces = mac.getOsCmdline("printf '*%01998d%0100d*\\n' 0 0");
    ASSERT_EQ(pieces.size(), 2U) << "a long line is judged in pieces of 1,999 bytes";
    EXPECT_EQ(pieces[0].size(), 1999U);
    EXPECT_EQ(pieces[1].size(), 102U);
}

}  // namespace

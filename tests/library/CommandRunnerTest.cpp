#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "base/CommandRunner.h"
#include "base/OutputBuffer.h"
#include "platform/ShellCommand.h"
#include "platform/macos/MacPatchManager.h"
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

TEST(CommandRunner, DoesNotWaitForDescendantsThatKeepTheOutput) {
    const CommandResult result = shell("sleep 600 & echo $!; exit 0");
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(result.timedOut);
    kill(std::stoi(result.output), SIGKILL);
}

TEST(CommandRunner, KeepsHeadAndTailOfAFlood) {
    const CommandResult flood = shell("echo head; head -c 20000000 /dev/zero; echo; echo tail");
    EXPECT_EQ(flood.outputSize, 20000011U);
    EXPECT_LT(flood.output.size(), zelor::base::kOutputBound + 100);
    EXPECT_EQ(flood.output.substr(0, 5), "head\n");
    EXPECT_EQ(flood.output.substr(flood.output.size() - 5), "tail\n");
    EXPECT_NE(flood.output.find("bytes left out]"), std::string::npos);
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

TEST(CommandLimit, ComesFromTheIniAndIsToldWhenItCuts) {
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

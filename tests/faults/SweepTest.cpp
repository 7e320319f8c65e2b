#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "tests/faults/FaultFixture.h"

using zelor::test::Ended;
using zelor::test::FaultFixture;
using zelor::test::readFile;

namespace {

/// One kind of fault at one command. `count` calls fail; 0: all from the first on.
struct Sweep {
    const char* command;
    const char* kind;
    int error;
    long count;
};

std::string nameOf(const Sweep& sweep) {
    const char* extent = sweep.count == 0 ? "from" : sweep.count == 1 ? "once" : "few";
    return std::string(sweep.command) + "_" + sweep.kind + "_" + strerrorname_np(sweep.error) + "_" + extent;
}

/// What the test program lists and prints in place of the structure's bytes.
void PrintTo(const Sweep& sweep, std::ostream* out) {
    *out << nameOf(sweep);
}

/// Which calls fail, one a run: a few of them, or with ZELOR_FAULT_SAMPLES=N so many (0: every one).
std::vector<long> positions(long calls) {
    const char* wanted = getenv("ZELOR_FAULT_SAMPLES");
    const long samples = wanted != nullptr ? std::atol(wanted) : 2;
    const double step =
        samples == 0 ? 1 : std::max(1.0, static_cast<double>(calls) / static_cast<double>(samples));
    std::vector<long> all;
    for (double at = (step + 1) / 2; at < static_cast<double>(calls) + 1; at += step)
        all.push_back(static_cast<long>(at));
    return all;
}

class Faults : public testing::TestWithParam<Sweep> {
  protected:
    long calls() {
        faults.reset();
        const Ended good =
            faults.run(GetParam().command, {"ZELOR_FAULT_COUNTS=" + (faults.fixture.dir / "counts"), fast});
        EXPECT_EQ(good.exit(), 0) << good.errors << faults.log();
        for (const std::string& line : FaultFixture::lines(faults.fixture.dir / "counts")) {
            if (line.rfind(std::string(GetParam().kind) + " ", 0) == 0)
                return std::stol(line.substr(line.find(' ')));
        }
        return 0;
    }

    static void checkLines(const std::string& path, const std::set<std::string>& allowed,
                           std::string& wrong) {
        for (const std::string& line : FaultFixture::lines(path)) {
            if (allowed.count(line) == 0) wrong += "a line in " + path + ": " + line + "\n";
        }
    }
    void checkList(std::string& wrong) {
        checkLines(faults.list,
                   {"first-.bsh=00\n", "second-.bsh=00\n", "editor-.pkg=00\n", "Notes-.app=00\n"}, wrong);
    }

    /// The record and the results against what was really installed.
    void checkTruth(const Ended& ended, std::string& wrong) {
        const std::set<std::string> installed = faults.installed();
        std::set<std::string> allowed;
        for (const std::string& id : installed)
            allowed.insert(id + "\n");
        checkLines(faults.record, allowed, wrong);
        const std::string recorded = readFile(faults.record);
        const bool recordReported =
            (faults.log() + ended.errors).find("cannot be noted in") != std::string::npos;
        for (const auto& [key, value] : ended.values) {
            const std::string& id = faults.keys().at(key);
            if (value != 4) continue;
            if (installed.count(id) == 0) wrong += key + " reads 4 and is not installed\n";
            if (recorded.find(id + "\n") == std::string::npos && !recordReported)
                wrong += key + " reads 4, is not in the record, and nothing says why\n";
        }
    }

    /// Each request that failed says why, and so does a run that did not come to requests or lost its
    /// results.
    static void checkReasons(const Ended& ended, std::string& wrong) {
        const bool ownError = ended.exit() == 2 || ended.exit() == 4;
        if (ownError && ended.errors.find("zelor-remediate: ") == std::string::npos)
            wrong += "says nothing\n";
        // The reason of an outage is given once, and counted in the summary.
        const bool outage = ended.errors.find("The repository does not answer since") != std::string::npos;
        std::istringstream errors(ended.errors);
        for (std::string line; !outage && std::getline(errors, line);) {
            for (const char* state : {"  failed ", "-failed ", "  file-unavailable ", "  invalid-request "}) {
                if (line.find(state) != std::string::npos && line.find("): ") == std::string::npos)
                    wrong += "no reason: " + line + "\n";
            }
        }
    }

    std::string faultyRun(long position) {
        const Sweep& sweep = GetParam();
        const Ended ended = faults.run(
            sweep.command, {"ZELOR_FAULT=" + std::string(sweep.kind) + " " + std::to_string(position) + " " +
                                std::to_string(sweep.count) + " " + std::to_string(sweep.error),
                            fast});
        std::string wrong;
        if (!ended.inTime) wrong += "did not end\n";
        const std::set<int> statuses = {0, 1, 2, 3, 4};
        // Without memory for a log line log4cpp ends the process: an end all the same, and the record stays
        // true.
        const bool noMemory = std::string(sweep.kind) == "memory" && WIFSIGNALED(ended.status) &&
                              WTERMSIG(ended.status) == SIGABRT &&
                              ended.errors.find("bad_alloc") != std::string::npos;
        aborted += noMemory ? 1 : 0;
        if (statuses.count(ended.exit()) == 0 && !noMemory)
            wrong += "ended with wait status " + std::to_string(ended.status) + "\n";
        checkTruth(ended, wrong);
        checkReasons(ended, wrong);
        checkList(wrong);
        return wrong.empty() ? "" : wrong + ended.errors + faults.log();
    }

    /// The next run finds nothing in its way.
    std::string recoveringRun() {
        const Ended ended = faults.run(GetParam().command);
        std::string wrong;
        if (ended.exit() != 0) wrong += "the next run ended with " + std::to_string(ended.exit()) + "\n";
        if (std::string(GetParam().command) == "run") {
            checkTruth(ended, wrong);
            if (faults.installed().size() != faults.keys().size())
                wrong += "the next run did not install all\n";
        } else {
            const auto lines = FaultFixture::lines(faults.list);
            if (std::set<std::string>(lines.begin(), lines.end()).size() != faults.keys().size())
                wrong += "the next job did not buffer all: " + readFile(faults.list) + "\n";
            for (const char* stem : {"first-", "second-", "editor-", "Notes-"}) {
                const std::string name = std::string(stem) + ".zip";
                if (readFile(faults.fixture.dir / ("var/zelor/buffer/" + name)) !=
                    readFile(faults.fixture.dir / ("repo/patches/" + name)))
                    wrong += name + " is not whole in the buffer\n";
            }
        }
        checkList(wrong);
        for (const char* left : {"var/zelor/unzip/newTempFile", "opt/zelor/partial/second-.zip.part"}) {
            if (boost::filesystem::exists(faults.fixture.dir.path() / left))
                wrong += std::string(left) + " is left over\n";
        }
        return wrong.empty() ? "" : wrong + ended.errors + faults.log();
    }

    FaultFixture faults;
    std::size_t aborted = 0;
    const std::string fast = "ZELOR_CLOCK_FACTOR=100";
};

TEST_P(Faults, EndSayWhyAndLeaveNothingWrong) {
    const std::vector<long> all = positions(calls());
    std::size_t survived = 0;
    for (const long position : all) {
        faults.reset();
        const std::string faulty = faultyRun(position);
        EXPECT_EQ(faulty, "") << "call " << position;
        const std::string next = recoveringRun();
        EXPECT_EQ(next, "") << "after call " << position;
        survived += faulty.empty() && next.empty() ? 1 : 0;
    }
    std::printf("%-32s tried %4zu survived %4zu", nameOf(GetParam()).c_str(), all.size(), survived);
    std::printf(aborted > 0 ? " (%zu by ending the process)\n" : "\n", aborted);
}

INSTANTIATE_TEST_SUITE_P(
    , Faults,
    testing::Values(
        Sweep{"run", "write", ENOSPC, 1}, Sweep{"run", "write", ENOSPC, 0}, Sweep{"run", "torn", ENOSPC, 2},
        Sweep{"run", "write", EIO, 1}, Sweep{"run", "create", EROFS, 1}, Sweep{"run", "create", EROFS, 0},
        Sweep{"run", "open", EACCES, 1}, Sweep{"run", "open", EMFILE, 1}, Sweep{"run", "open", EMFILE, 0},
        Sweep{"run", "read", EIO, 1}, Sweep{"run", "rename", EACCES, 1}, Sweep{"run", "rename", ENOSPC, 0},
        Sweep{"run", "mkdir", EROFS, 1}, Sweep{"run", "mkdir", ENOSPC, 0}, Sweep{"run", "unlink", EACCES, 1},
        Sweep{"run", "unlink", EROFS, 0}, Sweep{"run", "fsync", EIO, 1}, Sweep{"run", "fsync", EIO, 0},
        Sweep{"run", "mode", EPERM, 1}, Sweep{"run", "copy", EIO, 1}, Sweep{"run", "list", EACCES, 1},
        Sweep{"run", "lock", ENOLCK, 1}, Sweep{"run", "spawn", EAGAIN, 1}, Sweep{"run", "spawn", ENOMEM, 0},
        Sweep{"run", "pipe", EMFILE, 1}, Sweep{"run", "pipe", EMFILE, 0}, Sweep{"run", "thread", EAGAIN, 1},
        Sweep{"run", "thread", EAGAIN, 0}, Sweep{"run", "socket", EMFILE, 1},
        Sweep{"run", "socket", EMFILE, 0}, Sweep{"run", "connect", ECONNREFUSED, 1},
        Sweep{"run", "memory", ENOMEM, 1}, Sweep{"run", "memory", ENOMEM, 0},
        Sweep{"buffer", "write", ENOSPC, 1}, Sweep{"buffer", "write", ENOSPC, 0},
        Sweep{"buffer", "torn", ENOSPC, 2}, Sweep{"buffer", "create", EROFS, 1},
        Sweep{"buffer", "open", EMFILE, 0}, Sweep{"buffer", "read", EIO, 1},
        Sweep{"buffer", "rename", ENOSPC, 1}, Sweep{"buffer", "rename", EACCES, 0},
        Sweep{"buffer", "fsync", EIO, 1}, Sweep{"buffer", "thread", EAGAIN, 1},
        Sweep{"buffer", "lock", ENOLCK, 1}, Sweep{"buffer", "memory", ENOMEM, 1}),
    [](const auto& sweep) { return nameOf(sweep.param); });

}  // namespace

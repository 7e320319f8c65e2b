// What the world around a run does to it: repositories, tools, directories, limits and clocks.

#include <sys/file.h>

#include <cstdio>
#include <fstream>

#include "base/Files.h"
#include "tests/faults/FaultFixture.h"

using zelor::authoring::ServerFault;
using zelor::test::Ended;
using zelor::test::FaultFixture;
using zelor::test::readFile;
using zelor::test::writeFile;
namespace fs = boost::filesystem;

namespace {

constexpr const char* kFast = "ZELOR_CLOCK_FACTOR=100";
constexpr const char* kAll = "";

class World : public testing::Test {
  protected:
    World() { faults.reset(); }

    /// One faulty run that has to end by itself with a reason, then one without the fault that installs all.
    void survives(const std::string& name, const std::string& reason, const Ended& ended,
                  bool recovers = true) {
        EXPECT_TRUE(ended.inTime && ended.exit() >= 0 && ended.exit() <= 3)
            << name << ended.status << ended.errors;
        EXPECT_NE((ended.errors + faults.log()).find(reason), std::string::npos)
            << name << ended.errors << faults.log();
        checkRecord(name);
        faults.fixture.clearFaults();
        if (recovers) {
            const Ended next = faults.run("run");
            EXPECT_EQ(next.exit(), 0) << "after " << name << next.errors << faults.log();
            EXPECT_EQ(faults.installed().size(), faults.keys().size()) << "after " << name;
        }
        checkRecord("after " + name);
        ++tried;
    }
    void checkRecord(const std::string& name) {
        const auto installed = faults.installed();
        for (std::string line : FaultFixture::lines(faults.record)) {
            EXPECT_EQ(line.back(), '\n') << name;
            line.pop_back();
            EXPECT_EQ(installed.count(line), 1U) << name << ": " << line;
        }
    }
    ~World() override {
        std::printf("%-32s tried %4d survived %4d\n",
                    testing::UnitTest::GetInstance()->current_test_info()->name(), tried,
                    HasFailure() ? 0 : tried);
    }

    FaultFixture faults;
    int tried = 0;
};

ServerFault redirect(const std::string& target) {
    ServerFault fault;
    fault.status = 302;
    fault.headers = {{"Location", target}};
    return fault;
}

TEST_F(World, RepositoriesThatMisbehave) {
    ServerFault stall, tooLong, tooShort, chunkedCut;
    stall.stallAfter = 0;  // with any progress it would be tried again and again
    tooLong.announcedLength = 1U << 30U;
    tooShort.announcedLength = 10;
    chunkedCut.withoutLength = true;
    chunkedCut.dropAfter = 0;
    const struct {
        const char* name;
        ServerFault fault;
        const char* reason;
    } rows[] = {{"stall", stall, "stalled"},
                {"too long", tooLong, "cannot fetch"},
                {"too short", tooShort, "not unpacked"},
                {"cut without a length", chunkedCut, "cannot fetch"},
                {"circle", redirect("/patches/second-.zip"), "more than 5 redirects"},
                {"file", redirect("file:///etc/passwd"), "only http and https are fetched"},
                {"nowhere", redirect("http://127.0.0.1:1/"), "cannot fetch"}};
    for (const auto& row : rows) {
        faults.reset();
        for (int i = 0; i < 20; ++i)
            faults.fixture.addFault("/patches/second-.zip", row.fault);
        const Ended ended = faults.run("run", {kFast});
        EXPECT_EQ(ended.values.at("cpe:/o:b||"), 12U) << row.name << faults.log();
        survives(row.name, row.reason, ended);
    }
}

TEST_F(World, AConnectionThatBreaksAtEveryTenthByte) {
    const auto size = fs::file_size(faults.fixture.dir.path() / "repo/patches/second-.zip");
    for (std::uint64_t at = 0; at < size; at += 10) {
        ServerFault cut;
        cut.dropAfter = 10;  // of each answer: the next attempt goes on where this one stopped
        faults.fixture.addFault("/patches/second-.zip", cut);
    }
    const Ended ended = faults.run("run", {kFast});
    EXPECT_EQ(ended.exit(), 0) << ended.errors << faults.log();
    EXPECT_GE(faults.fixture.countAnswers("GET /patches/second-.zip 206"), static_cast<int>(size / 10) - 2);
    survives("cut", kAll, ended);
}

TEST_F(World, ToolsThatMisbehave) {
    const struct {
        const char* outcome;
        const char* reason;
        unsigned long value;
    } rows[] = {{"hang", "Stopped at the limit of [Limits] CommandMinutes", 5},
                {"flood", "The output had ", 4},
                {"binary", kAll, 4},
                {"signal", "remediation failed", 5},
                {"fail", "failed. (The Installer", 5}};
    faults.setUp("[Log]\nLevel = error\n[Limits]\nCommandMinutes = 10\n");
    for (const auto& row : rows) {
        faults.reset();
        faults.mac({"fault", "--tools", faults.tools, "--package", "com.example.editor", row.outcome});
        const Ended ended = faults.run("run", {kFast});
        EXPECT_EQ(ended.values.at("cpe:/a:example:editor||Editor"), row.value) << row.outcome << faults.log();
        faults.mac({"fault", "--tools", faults.tools, "--package", "com.example.editor", "ok"});
        survives(row.outcome, row.reason, ended);
    }
}

TEST_F(World, LimitsOfTheProcess) {
    const struct {
        const char* limit;
        std::vector<long> values;
    } rows[] = {{"-n", {3, 5, 7, 8, 9, 10, 12, 16}},      // descriptors
                {"-v", {60000, 110000, 150000, 250000}},  // KiB of memory
                {"-f", {0, 1, 2, 4, 8}}};                 // KiB of a file
    for (const auto& row : rows) {
        for (const long value : row.values) {
            faults.reset();
            const std::string limit = std::string(row.limit) + " " + std::to_string(value);
            const Ended ended = faults.run(
                "run", {},
                {"/bin/bash", "-c", "trap '' XFSZ; ulimit " + limit + " && exec \"$@\"", "limited"});
            // The loader, the shell and the C++ runtime have words of their own for the tightest ones.
            const bool began = ended.exit() >= 0 && ended.exit() <= 3;
            EXPECT_TRUE(ended.inTime) << limit;
            EXPECT_TRUE(began || ended.errors.find("error") != std::string::npos ||
                        ended.errors.find("terminate called") != std::string::npos)
                << limit << " " << ended.status << ended.errors;
            checkRecord(limit);
            const Ended next = faults.run("run");
            EXPECT_EQ(next.exit(), 0) << "after " << limit << next.errors << faults.log();
            checkRecord("after " + limit);
            ++tried;
        }
    }
}

TEST_F(World, ClocksThatAreSetBack) {
    for (const char* back : {"1 100000000", "20 86400", "40 1000000000"}) {
        faults.reset();
        const Ended ended = faults.run("run", {std::string("ZELOR_CLOCK_BACK=") + back});
        EXPECT_EQ(ended.exit(), 0) << back << ended.errors << faults.log();
        survives(back, kAll, ended);
    }
}

TEST_F(World, DirectoriesThatAreNotThere) {
    for (const char* directory :
         {"opt", "var/zelor/unzip", "var/zelor/buffer", "var/log", "var", "Applications"}) {
        faults.reset();
        fs::remove_all(faults.fixture.dir.path() / directory);
        writeFile(faults.fixture.dir / directory, "a file in its place");
        const Ended ended = faults.run("run");
        EXPECT_NE(ended.exit(), 0) << directory;
        fs::remove(faults.fixture.dir.path() / directory);
        faults.reset();
        survives(directory, kAll, ended);
    }
}

// Held by a process that lives: refused. Held by one that died: no obstacle.
TEST_F(World, TwoAtOnce) {
    const std::string place = faults.fixture.dir / "var/zelor/remediate.lock";
    for (const char* command : {"run", "buffer"}) {
        const zelor::base::UniqueFd held = zelor::base::openFile(place, O_RDWR | O_CREAT, 0600);
        ASSERT_EQ(::flock(held.get(), LOCK_EX | LOCK_NB), 0);
        const Ended second = faults.run(command);
        EXPECT_EQ(second.exit(), 5) << second.errors;
        EXPECT_NE(second.errors.find("another run or buffering job works at this place"), std::string::npos)
            << second.errors;
        EXPECT_FALSE(fs::exists(faults.record));
        ++tried;
    }
    const Ended killed = faults.run("run", {}, {"timeout", "-s", "KILL", "0.05"});
    survives("a dead holder", kAll, killed.exit() < 0 || killed.exit() > 3 ? Ended{true, 0, "", {}} : killed);
    // The directories of the buffer may be others for each agent; the lock is one.
    faults.reset();
    faults.setUp("UnzipFolder = /var/zelor/elsewhere\n[Log]\nLevel = error\n");
    const zelor::base::UniqueFd held = zelor::base::openFile(place, O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(::flock(held.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(faults.run("run").exit(), 5);
}

}  // namespace

// Other users of the machine, a killed controller, and the environment.

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <thread>

#include "base/CommandRunner.h"
#include "base/Files.h"
#include "platform/ShellCommand.h"
#include "tests/tools/ControllerFixture.h"

namespace zelor::test {
namespace {

namespace fs = boost::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const json kOneScript = {{"cpe:/o:x", "CCE-1"}};

struct ControllerSafety : ControllerTest {
    std::string lockFile = fixture.dir / "var/zelor/remediate.lock";
    std::string iniFile = fixture.dir / "etc/zelor/zelor.ini";

    ControllerSafety() { fixture.addScript("CCE-1", "good", "exit 0\n"); }

    /// The shell's words for the program, with `before` in front of it.
    base::CommandResult program(const std::string& before, const std::string& arguments) {
        writeFile(requests, kOneScript.dump());
        return platform::runShell("cd '" + root + "'; " + before + " '" ZELOR_REMEDIATE_PROGRAM "' " +
                                  arguments + " --root . --tools tools 2>&1");
    }
    base::UniqueFd held(const std::string& path) {
        fs::create_directories(fs::path(path).parent_path());
        base::UniqueFd file = base::openFile(path, O_RDWR | O_CREAT | O_TRUNC, 0600);
        EXPECT_EQ(::flock(file.get(), LOCK_EX | LOCK_NB), 0);
        return file;
    }
};

TEST_F(ControllerSafety, OtherUsersCannotHoldTheLock) {
    // Files that others can open are not used as locks: another user could hold them without end.
    const base::UniqueFd directory = base::openFile(fixture.dir / "var/zelor/unzip", O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(::flock(directory.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(on("run", kOneScript).status, 0);
    struct stat info {};
    ASSERT_EQ(::stat(lockFile.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);

    // One lock for all agents of a machine, whatever their directories.
    writeFile(iniFile, readFile(iniFile) + "UnzipFolder = /var/elsewhere\n");
    const base::UniqueFd other = held(lockFile);
    ASSERT_TRUE(base::writeAll(other.get(), "4711\n"));
    const ControllerRun second = on("run", kOneScript, {"--install-path", "/opt/other"});
    EXPECT_EQ(second.status, 5);
    EXPECT_THAT(second.err, HasSubstr("another run or buffering job works at this place (process 4711"));
    EXPECT_THAT(second.err, HasSubstr(lockFile));
}

TEST_F(ControllerSafety, WhatIsNotOursIsNoLockFile) {
    fs::create_directories(fs::path(lockFile).parent_path());
    fs::create_symlink("../../target", lockFile);
    EXPECT_THAT(on("run", kOneScript).err, HasSubstr("lock file " + lockFile));
    EXPECT_FALSE(fs::exists(fixture.dir / "target"));
    fs::remove(lockFile);
    writeFile(lockFile, "");  // by an older version, or with another mask
    ASSERT_EQ(::chmod(lockFile.c_str(), 0666), 0);
    EXPECT_EQ(on("run", kOneScript).status, 0);
    struct stat info {};
    ASSERT_EQ(::stat(lockFile.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);
    if (::geteuid() != 0) GTEST_SKIP() << "only root can make another user's file";
    ASSERT_EQ(::chown(lockFile.c_str(), 65534, 65534), 0);
    EXPECT_THAT(on("run", kOneScript).err, HasSubstr("belongs to another user"));
}

// A script keeps running after its controller was killed; the next run does not start it again meanwhile.
TEST_F(ControllerSafety, ARunWaitsForTheScriptOfAKilledOne) {
    fixture.addScript(
        "CCE-1", "slow",
        "cd '" + root +
            "'; mkdir alone || touch together; touch began; "
            "while [ -e began ] && [ ! -e goOn ]; do sleep 0.05; done; rmdir alone; rm -f began\n");
    writeFile(requests, kOneScript.dump());
    const pid_t killed = ::fork();
    if (killed == 0) {
        ::setenv("PATH", "/usr/bin:/bin", 1);
        ::execl(ZELOR_REMEDIATE_PROGRAM, "run", "run", requests.c_str(), "--root", root.c_str(), "--tools",
                (fixture.dir / "tools").c_str(), "--quiet", nullptr);
        ::_exit(98);
    }
    // A loaded machine may run the script before the controller has noted its process.
    const std::string noted = fixture.dir / "var/zelor/commands.lock";
    const auto isRunning = [&] { return fs::exists(fixture.dir / "began") && readFile(noted) > "1"; };
    while (!isRunning() && ::waitpid(killed, nullptr, WNOHANG) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(fs::exists(fixture.dir / "began"));
    ::kill(killed, SIGKILL);
    ::waitpid(killed, nullptr, 0);
    EXPECT_THAT(at("status").out,
                HasSubstr("waits for a command of an earlier one that was killed: process "));
    EXPECT_GT(json::parse(at("status", {"--json"}).out)["lock"]["killedCommand"]["process"], 1);
    std::thread user([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        writeFile(fixture.dir / "goOn", "");
    });
    const ControllerRun next = on("run", kOneScript);
    user.join();
    EXPECT_EQ(next.status, 0);
    EXPECT_THAT(next.err, HasSubstr("waiting for a command of an earlier run that was killed (process "));
    EXPECT_FALSE(fs::exists(fixture.dir / "together"));
}

// A service that a script leaves behind does not count as a running command.
TEST_F(ControllerSafety, AServiceOfAKilledRunDoesNotBlock) {
    fixture.addScript("CCE-1", "service",
                      "cd '" + root +
                          "'; first=yes; [ -e began ] && first=no; touch began\n"
                          "{ while [ -e began ]; do sleep 0.1; done; } &\n"
                          "[ $first = no ] || kill -KILL $PPID\n");
    program("", "run requests.json");
    ASSERT_TRUE(fs::exists(fixture.dir / "began"));
    const base::CommandResult next = program("timeout 20", "run requests.json");
    EXPECT_EQ(WEXITSTATUS(next.status), 0) << next.output;
    fs::remove(fixture.dir / "began");
}

TEST_F(ControllerSafety, SettingsAndKeysThatOthersCanChangeAreRefused) {
    const std::string key = fixture.dir / "etc/zelor/repository.pem";
    const std::string index = fixture.dir / "etc/zelor/root.json";
    writeFile(index, "no root yet");
    std::string settings = readFile(iniFile);
    settings.insert(settings.find("TrustedKey"), "Root = /etc/zelor/root.json\n");
    writeFile(iniFile, settings);
    struct Row {
        std::string path;
        mode_t bad, good;
    };
    for (const Row& row :
         {Row{iniFile, 0646, 0644}, Row{key, 0646, 0644}, Row{index, 0646, 0644},
          Row{fixture.dir / "etc/zelor", 0777, 0755}, Row{fixture.dir / "etc", 0777, 0755}}) {
        ASSERT_EQ(::chmod(row.path.c_str(), row.bad), 0);
        for (const char* command : {"run", "plan", "buffer"}) {
            const ControllerRun run = on(command, kOneScript);
            EXPECT_EQ(run.status, 2) << row.path << command;
            EXPECT_THAT(run.err, HasSubstr("chmod")) << row.path << command;
        }
        EXPECT_THAT(at("status").out, HasSubstr("chmod")) << row.path;
        ASSERT_EQ(::chmod(row.path.c_str(), row.good), 0);
        EXPECT_EQ(on("run", kOneScript).status, 0) << row.path;
    }
    // Both a link and its target are checked.
    const std::string target = fixture.dir / "etc/settings";
    fs::rename(iniFile, target);
    fs::create_symlink("../settings", iniFile);
    EXPECT_EQ(on("run", kOneScript).status, 0);
    ASSERT_EQ(::chmod(target.c_str(), 0666), 0);
    EXPECT_THAT(on("run", kOneScript).err, HasSubstr("others may write to " + target));
    ASSERT_EQ(::chmod(target.c_str(), 0644), 0);
    fs::rename(target, iniFile);
    // With the mask 002 of a user who is the only member of a group.
    ASSERT_EQ(::chmod((fixture.dir / "etc/zelor").c_str(), 0775), 0);
    ASSERT_EQ(::chmod(iniFile.c_str(), 0664), 0);
    EXPECT_EQ(on("run", kOneScript).status, 0);
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give files to others";
    ASSERT_EQ(::chown(iniFile.c_str(), 0, 65534), 0);
    EXPECT_THAT(on("run", kOneScript).err, HasSubstr("chmod go-w"));
    ASSERT_EQ(::chown(iniFile.c_str(), 65534, 0), 0);
    EXPECT_THAT(on("run", kOneScript).err, HasSubstr("belongs to another user"));
}

TEST_F(ControllerSafety, OutputsFollowNoLinksAndSpareDevices) {
    writeFile(fixture.dir / "target", "kept");
    fs::create_symlink("target", fixture.dir / "link");
    fs::create_symlink("nothing", fixture.dir / "dangling");
    fs::create_symlink("/dev/null", fixture.dir / "null");
    for (const std::string option : {"--json", "--events", "--report"}) {
        for (const char* name : {"link", "dangling", "null"}) {
            const ControllerRun run = on("run", kOneScript, {option, fixture.dir / name});
            EXPECT_EQ(run.status, 2) << option << name;
            EXPECT_THAT(run.err, HasSubstr("is a symbolic link; name the file itself")) << option << name;
        }
        const ControllerRun device = on("run", kOneScript, {option, "/dev/zero"});
        EXPECT_EQ(device.status, 2) << option;
        EXPECT_THAT(device.err, HasSubstr("/dev/zero, a device;")) << option;
        EXPECT_EQ(on("run", kOneScript, {option, "/dev/null"}).status, 0) << option;
    }
    ASSERT_EQ(::mkfifo((fixture.dir / "pipe").c_str(), 0600), 0);
    const ControllerRun unread = on("run", kOneScript, {"--events", fixture.dir / "pipe"});
    EXPECT_EQ(unread.status, 2);
    EXPECT_THAT(unread.err, HasSubstr("nobody reads the pipe"));
    EXPECT_EQ(on("plan", kOneScript, {"--json", fixture.dir / "link"}).status, 2);
    EXPECT_EQ(readFile(fixture.dir / "target"), "kept");
    EXPECT_FALSE(fs::exists(fixture.dir / "nothing"));
    // The system's links to open descriptors are followed, as a shell's user expects.
    for (const std::string arguments : {"run requests.json --quiet --json /dev/stdout | cat",
                                        "run requests.json --quiet --events /dev/fd/5 5>&1",
                                        "run requests.json --quiet --json /dev/stdout >out; cat out",
                                        "run requests.json --quiet --events pipe & cat pipe; wait",
                                        "plan requests.json --json /dev/fd/1 | cat"}) {
        const base::CommandResult run = platform::runShell(
            "cd '" + root + "'; '" ZELOR_REMEDIATE_PROGRAM "' --root . --tools tools " + arguments + " 2>&1");
        EXPECT_THAT(run.output, HasSubstr("cpe:/o:x")) << arguments;
    }
}

TEST_F(ControllerSafety, AFileSizeLimitEndsWithAMessage) {
    // ThreadSanitizer writes a file there before main, if it can.
    const base::CommandResult run = program("export TEST_TMPDIR=/dev/null; ulimit -f 0; exec",
                                            "run requests.json --quiet --json out.json");
    EXPECT_TRUE(WIFEXITED(run.status) && WEXITSTATUS(run.status) < 100) << run.status << run.output;
    EXPECT_THAT(run.output, HasSubstr("File too large"));
}

TEST_F(ControllerSafety, HarmfulVariablesAreRemoved) {
    fixture.addScript("CCE-1", "variables",
                      "/usr/bin/env >'" + fixture.dir / "environment" + "'\nls -d . || exit 1\n");
    const std::string keyLog = fixture.dir / "keys.log";
    const base::CommandResult run =
        program("env 'BASH_FUNC_ls%%=() { touch " + fixture.dir / "pwned" +
                    "; }' 'OLD_FUNCTION=() { :; }' ENV=x "
                    "BASH_ENV=x SSLKEYLOGFILE=" +
                    keyLog + " OPENSSL_CONF=" + fixture.dir / "none" + " OPENSSL_MODULES=/x PS4=x KEPT=1",
                "run requests.json");
    EXPECT_EQ(run.status, 0) << run.output;
    const std::string environment = readFile(fixture.dir / "environment");
    EXPECT_THAT(environment, HasSubstr("KEPT=1\n"));
    for (const char* name : {"BASH_FUNC", "OLD_FUNCTION", "ENV=x", "SSLKEYLOGFILE", "OPENSSL_", "PS4"})
        EXPECT_THAT(environment, Not(HasSubstr(name)));
    EXPECT_FALSE(fs::exists(fixture.dir / "pwned"));
}

TEST_F(ControllerSafety, AMillionInvalidRequestsAreAThousandLines) {
    json map = kOneScript;
    for (int number = 0; number < 3000; ++number)
        map["cpe:/o:" + std::to_string(number)] = nullptr;
    for (const char* command : {"run", "buffer"}) {
        const ControllerRun run = on(command, map, {"--json", fixture.dir / "out.json"});
        std::size_t lines = 0;
        for (auto at = run.out.find("invalid-request "); at != std::string::npos;
             at = run.out.find("invalid-request ", at + 1))
            ++lines;
        EXPECT_EQ(lines, 1000U) << command;
        EXPECT_THAT(run.out, HasSubstr("2000 more invalid requests are not shown")) << command;
    }
}

TEST_F(ControllerSafety, StatusShowsLeftoversAndTheLocksHolder) {
    EXPECT_THAT(at("status").out, HasSubstr("Lock: free"));
    EXPECT_EQ(json::parse(at("status", {"--json"}).out)["lock"],
              json::parse(R"({"file": ")" + lockFile + R"(", "state": "free", "process": null})"));
    const base::UniqueFd other = held(lockFile);
    ASSERT_TRUE(base::writeAll(other.get(), "4711\n"));
    writeFile(fixture.dir / "var/zelor/content/editor.pkg", "12345");
    writeFile(fixture.dir / "var/zelor/content/Bundle.app/file", "1");
    const ControllerRun text = at("status");
    EXPECT_THAT(text.out, HasSubstr("Lock: held by process 4711"));
    EXPECT_THAT(text.out,
                HasSubstr("Left in the content directory " + fixture.dir / "var/zelor/content" + ": 2"));
    const json status = json::parse(at("status", {"--json"}).out);
    EXPECT_EQ(status["lock"]["state"], "held");
    EXPECT_EQ(status["lock"]["process"], 4711);
    EXPECT_EQ(status["leftovers"], json::parse(R"(["Bundle.app", "editor.pkg"])"));
}

}  // namespace
}  // namespace zelor::test

#include <stdlib.h>

#include <chrono>
#include <thread>

#include "authoring/rehearse/RehearsalReport.h"
#include "authoring/rehearse/Sandbox.h"
#include "tools/AuthoringFixture.h"

namespace zelor::authoring {
namespace {

namespace fs = boost::filesystem;
using test::readFile;
using test::ToolRun;
using test::writeFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

/// A manifest of a script, a package and a system update; temporary directories are made where the test sees
/// them.
struct RehearseTest : test::Authoring {
    std::string temporary = dir / "tmp", root = dir / "mac", order = source + "/manifest.json";

    RehearseTest() {
        fs::create_directory(temporary);
        ::setenv("TMPDIR", temporary.c_str(), 1);
        writeFile(source + "/mark.bsh", "echo done >\"${ZELOR_REHEARSAL_ROOT:?}/mark\"\n");
        writeFile(source + "/fail.bsh", "exit 3\n");
        writeFile(source + "/wait.bsh",
                  "touch \"$ZELOR_REHEARSAL_ROOT/started\"\n"
                  "until [ -e \"$ZELOR_REHEARSAL_ROOT/go\" ]; do sleep 0.01; done\n");
        writeFile(dir / "editor/about.txt", "editor");
        EXPECT_EQ(
            shell(std::string(ZELOR_REHEARSAL_PROGRAM) +
                  " build-pkg --id e --version 1 --install-location /Applications editor source/edit.pkg"),
            0);
        writeFile(order, R"([
            {"identifier": "CCE-1", "platform": "cpe:/o:apple:mac_os_x", "file": "mark.bsh"},
            {"identifier": "CCE-2", "file": "fail.bsh"},
            {"identifier": "CCE-3", "file": "wait.bsh", "product": "cpe:/a:example:waiter"},
            {"identifier": "CVE-1", "product": "cpe:/a:example:editor", "file": "edit.pkg"},
            {"identifier": "CVE-2", "platform": "cpe:/o:apple:mac_os_x", "instructions": "OS Remediation: all"}])");
    }
    ~RehearseTest() override { ::unsetenv("TMPDIR"); }

    /// A rehearsal in a sandbox, where this machine has one.
    static std::vector<std::string> anySandbox() {
        static const bool kNone = !whyNoSandbox().empty();
        return kNone ? std::vector<std::string>{"--no-sandbox"} : std::vector<std::string>{};
    }
    ToolRun rehearse(const std::string& identifier, std::vector<std::string> more = {}) {
        for (const std::string& option : anySandbox())
            more.push_back(option);
        more.insert(more.begin(), {"rehearse", order, "--identifier", identifier});
        ToolRun run = test::contentTool(more);
        EXPECT_TRUE(fs::is_empty(temporary)) << identifier;
        return run;
    }
};

TEST_F(RehearseTest, SaysWhatBecameOfAnEntry) {
    ToolRun run = rehearse("CCE-1");
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_THAT(run.out, AllOf(HasSubstr("Published CCE-1 with 1 patch"), HasSubstr("Mac OS X 10.10.5"),
                               HasSubstr("1 success"), HasSubstr("new      /mark\n")));
    run = rehearse("CCE-2");
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, AllOf(HasSubstr("exit status 3"), HasSubstr("Nothing changed on its disk."),
                               HasSubstr("The end of the log:")));
    EXPECT_THAT(run.out, Not(HasSubstr("success, nothing changed")));
    writeFile(source + "/mark.bsh", "exit 0\n");
    run = rehearse("CCE-1", {"--report", dir / "report.html"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("warning: the run: success, nothing changed\n    remedy: "));
    EXPECT_THAT(readFile(dir / "report.html"), HasSubstr("CCE-1"));
    run = rehearse("CVE-2", {"--os", "10.9.5", "--update", "SecUpd2014-005", "--update", "Safari7"});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_THAT(run.out, AllOf(HasSubstr("Mac OS X 10.9.5"), HasSubstr("||Apple Mac OS X"),
                               Not(HasSubstr("success, nothing changed"))));
}

TEST_F(RehearseTest, AbsolutePathsLeadToTheMacsDiskAndNowhereElse) {
    if (const std::string why = whyNoSandbox(); !why.empty()) GTEST_SKIP() << "no sandbox here: " << why;
    const std::string programs = fs::path(ZELOR_CONTENT_PROGRAM).parent_path().string();
    const std::string stray = programs + "/stray-file-of-a-script", other = dir / "stray";
    writeFile(source + "/mark.bsh",
              "set -e\n[ \"$(id -u)\" = 0 ]\nmkdir -p /Library/Preferences\n"
              "echo on >/Library/Preferences/zelor-test-x\n"
              "echo on >/etc/zelor-test-y\nawk 'BEGIN { exit 0 }'\n"
              "! touch /usr/zelor-test-z && ! touch " +
                  other +
                  "\n"
                  "touch " +
                  stray + "\n");
    const ToolRun run = rehearse("CCE-1", {"--root", root});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, AllOf(HasSubstr(stray + "': Read-only file system"),
                               HasSubstr("  new      /Library/Preferences/zelor-test-x\n"
                                         "  new      /etc/zelor-test-y\n")));
    for (const std::string& path : {stray, other, std::string("/Library/Preferences/zelor-test-x"),
                                    std::string("/etc/zelor-test-y"), std::string("/usr/zelor-test-z")})
        EXPECT_FALSE(fs::exists(path)) << path;
    for (const char* mountPoint : {"/usr", "/bin", "/dev", "/proc", "/tmp", "/etc/passwd"})
        EXPECT_FALSE(fs::exists(root + mountPoint)) << mountPoint;
    fs::create_symlink("elsewhere", root + "/usr");
    EXPECT_THAT(rehearse("CCE-1", {"--root", root}).err, HasSubstr("/usr is not a directory"));
}

TEST_F(RehearseTest, WithoutASandboxNothingRunsUnlessAsked) {
    const std::string before = ::getenv("PATH");
    ::setenv("PATH", source.c_str(), 1);
    const ToolRun refused = test::contentTool({"rehearse", order, "--identifier", "CCE-1", "--root", root});
    const ToolRun run =
        test::contentTool({"rehearse", order, "--identifier", "CCE-1", "--root", root, "--no-sandbox"});
    ::setenv("PATH", before.c_str(), 1);
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, AllOf(HasSubstr("bwrap is not installed"), HasSubstr("--no-sandbox")));
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, AllOf(HasSubstr("No sandbox: "), HasSubstr("new      /mark\n")));
}

TEST_F(RehearseTest, AGivenMacKeepsWhatWasInstalledAndItsSettings) {
    writeFile(root + "/etc/zelor/zelor.ini", "mine");
    ToolRun run = rehearse("CVE-1", {"--root", root});
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_THAT(run.out, HasSubstr("new      /Applications/about.txt\n"));
    EXPECT_EQ(readFile(root + "/Applications/about.txt"), "editor");
    EXPECT_EQ(readFile(root + "/etc/zelor/zelor.ini"), "mine");
    EXPECT_FALSE(fs::exists(root + "/etc/zelor/repository.pem"));

    fs::remove(root + "/Applications/about.txt");
    EXPECT_THAT(rehearse("CVE-1", {"--root", root}).out, HasSubstr("Nothing changed on its disk."));
    // As after a kill: the files that were put aside are restored.
    fs::rename(root + "/etc/zelor/zelor.ini", root + "/etc/zelor/zelor.ini.before-rehearsal");
    writeFile(root + "/etc/zelor/zelor.ini", "of a rehearsal");
    EXPECT_THAT(rehearse("CVE-1", {"--root", root, "--after-scan"}).out, HasSubstr("about.txt"));
    EXPECT_EQ(readFile(root + "/etc/zelor/zelor.ini"), "mine");
}

TEST_F(RehearseTest, FollowsSignedMetadataOfItsOwnOnAMacThatKeepsOther) {
    writeFile(source + "/mark.bsh",
              "cd \"${ZELOR_REHEARSAL_ROOT:?}\" && [ -s opt/zelor/metadata/timestamp.json ] &&\n"
              "[ \"$(cat etc/zelor/root.json)\" = \"$(cat opt/zelor/metadata/root.json)\" ] &&\n"
              "grep -q 'Freshness = require' etc/zelor/zelor.ini && echo done >mark\n");
    writeFile(root + "/opt/zelor/metadata/root.json", "mine");
    for (const char* before : {"", ".before-rehearsal"}) {  // the second as after a kill
        if (*before != '\0') fs::rename(root + "/opt/zelor/metadata", root + "/opt/zelor/metadata" + before);
        const ToolRun run = rehearse("CCE-1", {"--root", root, "--after-scan"});
        EXPECT_EQ(run.status, 0) << run.out << run.err;
        EXPECT_THAT(run.out, AllOf(HasSubstr("1 success"), Not(HasSubstr("warning"))));
        EXPECT_EQ(readFile(root + "/opt/zelor/metadata/root.json"), "mine");
        fs::remove(root + "/mark");
    }
}

TEST_F(RehearseTest, TakesAMacAsItIs) {
    const std::string program = ZELOR_REHEARSAL_PROGRAM;
    const auto run = [&] {
        return rehearse("CVE-1", {"--tools", dir / "tools", "--request", "cpe:/a:example:editor||My Editor"});
    };
    ASSERT_EQ(
        shell(program + " init tools --root mac && " + program + " fault --tools tools --package e fail"), 0);
    ToolRun failed = run();
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.out, AllOf(HasSubstr("My Editor"), HasSubstr("The install failed.")));
    writeFile(dir / "scripts/postinstall", "#!/bin/bash\necho no room >&2\nexit 1\n");
    ASSERT_EQ(shell("chmod +x scripts/postinstall && " + program + " fault --tools tools --package e ok && " +
                    program + " build-pkg --id e --version 1 --scripts scripts editor source/edit.pkg"),
              0);
    failed = run();
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.out, AllOf(HasSubstr("The end of the installer's log:"), HasSubstr("no room")));
}

TEST_F(RehearseTest, RefusesWhatCannotBeRehearsed) {
    struct Case {
        std::vector<std::string> arguments;
        const char* said;
    };
    for (const Case& c :
         {Case{{"--identifier", "CVE-9"}, "has no entry for CVE-9"}, Case{{}, "--identifier: CCE-1 CCE-2"},
          Case{{"--identifier", "CCE-1", "--os", "10.3"}, "too old"},
          Case{{"--identifier", "CCE-1", "--tools", source}, "cannot be set up"},
          Case{{"--identifier", "CCE-1", "--root", "/"}, "own root"}}) {
        std::vector<std::string> words = {"rehearse", order};
        words.insert(words.end(), c.arguments.begin(), c.arguments.end());
        for (const std::string& option : anySandbox())
            words.push_back(option);
        const ToolRun run = test::contentTool(words);
        EXPECT_EQ(run.status, 2) << c.said;
        EXPECT_THAT(run.err, HasSubstr(c.said));
        EXPECT_TRUE(fs::is_empty(temporary)) << c.said;
    }
}

TEST_F(RehearseTest, ASignalCancelsTheRunAndEverythingTemporaryGoes) {
    fs::create_directory(root);
    std::vector<std::string> words = {"rehearse", order, "--identifier", "CCE-3", "--root", root};
    for (const std::string& option : anySandbox())
        words.push_back(option);
    test::ToolProcess tool(words, dir / "errors");
    while (!fs::exists(root + "/started"))
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_FALSE(fs::is_empty(temporary));
    ::kill(tool.pid(), SIGINT);
    std::string line = tool.line();
    while (!line.empty() && line.find("Cancelling") == std::string::npos)
        line = tool.line();
    EXPECT_THAT(line, HasSubstr("Cancelling"));
    writeFile(root + "/go", "");
    while (!tool.line().empty()) {
    }
    const int status = tool.end(0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << status;
    EXPECT_TRUE(fs::is_empty(temporary));
    EXPECT_THAT(readFile(dir / "errors"), Not(HasSubstr("zelor-content:")));
}

TEST_F(RehearseTest, KeepsEverythingWhenAsked) {
    std::vector<std::string> words = {"rehearse", order, "--identifier", "CCE-1", "--keep"};
    for (const std::string& option : anySandbox())
        words.push_back(option);
    const ToolRun run = test::contentTool(words);
    EXPECT_EQ(run.status, 0);
    const fs::path kept = fs::directory_iterator(temporary)->path();
    EXPECT_THAT(run.out, AllOf(HasSubstr("Kept in " + kept.string()), HasSubstr("zelor-content serve")));
    EXPECT_THAT(readFile((kept / "mac/etc/zelor/zelor.ini").string()), HasSubstr("Url = http://127.0.0.1:"));
    EXPECT_TRUE(fs::exists(kept / "requests.json"));
}

TEST(RehearsalReportTest, MakesARequestForEachCre) {
    ContentEri update;
    update.product = "cpe:/a:apple:safari";
    update.instructions = "OS Remediation";
    const ContentEntry entry{"",
                             "CVE-1",
                             {{"A", "cpe:/o:apple:mac_os_x", "cpe:/a:example:big_editor", {ContentEri{}}},
                              {"B", "cpe:/o:apple:mac_os_x_server", "", {ContentEri{}}},
                              {"C", "", "", {update}}}};
    EXPECT_THAT(
        requestsFor(entry),
        ElementsAre(Pair("cpe:/o:apple:mac_os_x,cpe:/a:example:big_editor||example big editor", "CVE-1"),
                    Pair("cpe:/o:apple:mac_os_x_server||CVE-1", "CVE-1"),
                    Pair("cpe:/o:apple:mac_os_x||apple safari", "CVE-1")));
}

TEST(RehearsalReportTest, SaysChangesUpToALimit) {
    const DiskState before = {{"a", "1"}, {"b", "1"}, {"c", "1"}},
                    after = {{"b", "2"}, {"c", "1"}, {"d\n", "1"}};
    EXPECT_EQ(diskChanges(before, after, 9), "  changed  /b\n  new      /d?\n  removed  /a\n");
    EXPECT_EQ(diskChanges(before, after, 1), "  changed  /b\n  and 2 more\n");
    EXPECT_THAT(diskChanges(after, after, 9), IsEmpty());
}

}  // namespace
}  // namespace zelor::authoring

#include <signal.h>

#include "tools/RehearsalFixture.h"

namespace fs = boost::filesystem;

namespace zelor::test {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

using RehearsalTools = RehearsalMac;

TEST_F(RehearsalTools, ReportsTheSystem) {
    struct Case {
        const char* version;
        const char* all;
        const char* name;
        const char* reported;
    };
    for (const Case& c : std::vector<Case>{
             {"10.9.0", "ProductName:\tMac OS X\nProductVersion:\t10.9\nBuildVersion:\t13A100\n", "Mac OS X",
              "10.9"},
             {"10.10.5", "ProductName:\tMac OS X\nProductVersion:\t10.10.5\nBuildVersion:\t14F1021\n",
              "Mac OS X", "10.10.5"},
             {"13.2.1", "ProductName:\t\tmacOS\nProductVersion:\t\t13.2.1\nBuildVersion:\t\t22D68\n", "macOS",
              "13.2.1"}}) {
        mac({"os", c.version});
        EXPECT_EQ(tool("sw_vers", {}).out, c.all);
        EXPECT_EQ(tool("sw_vers", {"-productName"}).out, std::string(c.name) + "\n");
        EXPECT_EQ(tool("sw_vers", {"-productVersion"}).out, std::string(c.reported) + "\n");
    }
    EXPECT_EQ(tool("sw_vers", {"-colour"}).exit, 1);
}

TEST_F(RehearsalTools, FindsItsStateThroughPath) {
    const std::string other = dir / "other mac";
    ASSERT_EQ(run({ZELOR_REHEARSAL_PROGRAM, "init", other, "--os", "13.2.1"}).exit, 0);
    EXPECT_EQ(run({"sw_vers", "-productVersion"}, "/usr/bin:" + tools + ":" + other).out, "10.10.5\n");
    EXPECT_EQ(run({"sw_vers", "-productVersion"}, other + ":" + tools).out, "13.2.1\n");
    EXPECT_EQ(state().at("root"), fs::canonical(root).string());
    EXPECT_TRUE(fs::is_directory(other + "/root"));

    fs::remove(other + "/state/state.json");
    const MacRun lost = run({"sw_vers"}, other);
    EXPECT_EQ(lost.exit, 1);
    EXPECT_THAT(lost.err, AllOf(HasSubstr(other), HasSubstr("init")));
}

TEST_F(RehearsalTools, InstallsUpdatesOnce) {
    addUpdate("Sec Upd-1", {"--restart", "--payload", "/Library/Updates/sec"});
    addUpdate("Other-1", {"--no"});
    EXPECT_THAT(tool("softwareupdate", {"-l"}).out,
                AllOf(HasSubstr("   * Sec Upd-1\n"), HasSubstr("   - Other-1\n")));
    EXPECT_FALSE(fs::exists(root + "/Library"));
    MacRun run = tool("softwareupdate", {"-i", "Sec Upd-1"});
    EXPECT_EQ(run.exit, 0);
    EXPECT_THAT(run.out, AllOf(HasSubstr("Done with Title of Sec Upd-1\nDone.\n"), HasSubstr("restart")));
    EXPECT_EQ(readFile(root + "/Library/Updates/sec"), "Sec Upd-1\n");

    run = tool("softwareupdate", {"-i", "Sec Upd-1"});
    EXPECT_THAT(run.out, AllOf(HasSubstr("Sec Upd-1: No such update\n"), Not(HasSubstr("Done"))));
    EXPECT_EQ(run.err, "No updates are available.\n");
    EXPECT_EQ(tool("softwareupdate", {"-ir"}).err, "No updates are available.\n");
    EXPECT_THAT(tool("softwareupdate", {"--install", "--all"}).out,
                HasSubstr("Done with Title of Other-1\n"));
    EXPECT_EQ(tool("softwareupdate", {"--list"}).err, "No new software available.\n");
    EXPECT_EQ(state().at("installedUpdates").size(), 2U);
    EXPECT_EQ(tool("softwareupdate", {"-i"}).exit, 1);
    EXPECT_EQ(tool("softwareupdate", {"--sideways"}).exit, 1);
}

TEST_F(RehearsalTools, NeverWritesAPayloadThroughALink) {
    fs::create_directory(dir / "outside");
    fs::create_directory_symlink(dir / "outside", root + "/Library");
    addUpdate("A", {"--payload", "/Library/file"});
    EXPECT_NE(tool("softwareupdate", {"-i", "A"}).exit, 0);
    EXPECT_TRUE(fs::is_empty(dir / "outside"));
    EXPECT_EQ(tool("zelor-rehearsal", {"add-update", "--label", "B", "--version", "1", "--size", "1",
                                       "--payload", "/../outside/file"})
                  .exit,
              2);
}

TEST_F(RehearsalTools, ActsOutFaultsOfUpdates) {
    struct Case {
        const char* outcome;
        int exit;
        const char* says;
        bool done;
    };
    for (const Case& c :
         std::vector<Case>{{"fail", 1, "Error installing updates.\n", false},
                           {"done-then-error", 0, "Done.\n\nError installing updates.\n", true},
                           {"no-network", 1, "The Internet connection appears to be offline.\n", false},
                           {"not-found", 0, "A: No such update\nNo updates are available.\n", false},
                           {"not-root", 1, "Must be run as root", false}}) {
        for (const bool wholeTool : {false, true}) {
            mac({"reset"});
            addUpdate("A");
            const Words fault = wholeTool ? Words{"fault", "--tool", "softwareupdate", c.outcome}
                                          : Words{"fault", "--label", "A", c.outcome};
            mac(fault);
            const MacRun run = tool("softwareupdate", {"-i", "A"});
            EXPECT_EQ(run.exit, c.exit) << c.outcome;
            EXPECT_THAT(run.out + run.err, HasSubstr(c.says)) << c.outcome;
            EXPECT_EQ(run.out.find("Done") != std::string::npos, c.done) << c.outcome;
            EXPECT_EQ(state().at("updates").size(), 1U) << c.outcome;
        }
    }
    mac({"fault", "--tool", "softwareupdate", "no-network"});
    EXPECT_EQ(tool("softwareupdate", {"-l"}).exit, 1);
}

TEST_F(RehearsalTools, HangsDiesAndFloods) {
    addUpdate("Hang", {"--outcome", "hang"});
    addUpdate("Die", {"--outcome", "signal"});
    addUpdate("Flood", {"--outcome", "flood"});
    addUpdate("Noise", {"--outcome", "binary"});
    MacRun run = tool("softwareupdate", {"-i", "Hang"}, 1);
    EXPECT_EQ(WTERMSIG(run.status), SIGALRM);
    EXPECT_EQ(run.out, "");  // its output was still buffered
    run = tool("softwareupdate", {"-i", "Die"});
    EXPECT_EQ(WTERMSIG(run.status), SIGKILL);
    run = tool("softwareupdate", {"-i", "Flood"});
    EXPECT_GT(run.out.size(), 100U << 20U);
    EXPECT_THAT(run.out.substr(run.out.size() - 100), HasSubstr("Done.\n"));
    run = tool("softwareupdate", {"-i", "Noise"});
    EXPECT_NE(run.out.find('\0'), std::string::npos);
    EXPECT_EQ(state().at("updates").size(), 2U);

    for (const std::string name : {"sw_vers", "installer", "hdiutil"}) {
        mac({"fault", "--tool", name, "signal"});
        const Words arguments = name == "hdiutil"     ? Words{"detach", "disk2"}
                                : name == "installer" ? Words{"-pkg", "a.pkg", "-target", "/"}
                                                      : Words{};
        run = tool(name, arguments);
        EXPECT_EQ(WTERMSIG(run.status), SIGKILL) << name;
    }
}

TEST_F(RehearsalTools, ReportsTheProxyOfTheNetworkSettings) {
    EXPECT_THAT(tool("scutil", {"--proxy"}).out, HasSubstr("  HTTPEnable : 0\n"));
    mac({"proxy", "proxy.example.com:3128", "--except", "*.local,169.254/16"});
    EXPECT_EQ(tool("scutil", {"--proxy"}).out,
              "<dictionary> {\n  ExceptionsList : <array> {\n    0 : *.local\n    1 : 169.254/16\n  }\n"
              "  FTPPassive : 1\n  HTTPEnable : 1\n  HTTPPort : 3128\n  HTTPProxy : proxy.example.com\n"
              "  HTTPSEnable : 1\n  HTTPSPort : 3128\n  HTTPSProxy : proxy.example.com\n"
              "  ProxyAutoConfigEnable : 0\n}\n");
    EXPECT_EQ(tool("zelor-rehearsal", {"proxy", "proxy.example.com"}).exit, 2);
}

TEST_F(RehearsalTools, KeepsPreferencesServicesAndPolicies) {
    writeFile(root + "/Library/LaunchDaemons/com.x.web.plist", "<plist/>");
    const std::string policy = dir / "policy.plist", text = "<plist><dict><key>a</key></dict></plist>";
    writeFile(policy, text);
    const std::string daemon = "/Library/LaunchDaemons/com.x.web.plist";
    struct Row {
        const char* tool;
        Words words;
        int exit;
        std::string out;
        std::string err;  ///< a part of it
    };
    const Row rows[] = {
        {"defaults",
         {"read", "com.x", "Key"},
         1,
         "",
         "The domain/default pair of (com.x, Key) does not exist"},
        {"defaults", {"read", "com.x"}, 1, "", "Domain com.x does not exist"},
        {"defaults", {"write", "/Library/Preferences/com.x.plist", "Key", "-bool", "YES"}, 0, "", ""},
        {"defaults", {"read", "/Library/Preferences/com.x", "Key"}, 0, "1\n", ""},
        {"defaults", {"read-type", "com.x", "Key"}, 0, "Type is boolean\n", ""},
        {"defaults", {"-currentHost", "read", "com.x", "Key"}, 1, "", "does not exist"},
        {"defaults", {"write", "com.x", "Key", "-bool", "maybe"}, 255, "", "Syntax"},
        {"defaults", {"write", "com.x", "Key", "-odd", "1"}, 1, "", "leaving defaults unchanged"},
        {"defaults", {"write", "com.x", "Time", "-int", "0600"}, 0, "", ""},
        {"defaults", {"write", "com.x", "Text", "two words"}, 0, "", ""},
        {"defaults",
         {"read", "com.x"},
         0,
         "{\n    Key = 1;\n    Text = \"two words\";\n    Time = 600;\n}\n",
         ""},
        {"defaults", {"delete", "com.x", "Key"}, 0, "", ""},
        {"defaults", {"delete", "com.x", "Key"}, 1, "", "Defaults have not been changed"},
        {"launchctl", {"bootout", "system/com.x.web"}, 3, "", "No such process"},
        {"launchctl", {"bootstrap", "system", "/Library/none.plist"}, 5, "", "Input/output error"},
        {"launchctl", {"bootstrap", "system", daemon}, 0, "", ""},
        {"launchctl", {"bootstrap", "system", daemon}, 5, "", "Input/output error"},
        {"launchctl", {"list"}, 0, "PID\tStatus\tLabel\n-\t0\tcom.x.web\n", ""},
        {"launchctl", {"disable", "system/com.x.web"}, 0, "", ""},
        {"launchctl",
         {"print-disabled", "system"},
         0,
         "\n\tdisabled services = {\n\t\t\"com.x.web\" => true\n\t}\n",
         ""},
        {"launchctl", {"bootout", "system", daemon}, 0, "", ""},
        {"launchctl", {"print", "system/com.x.web"}, 113, "", "Could not find service"},
        {"launchctl", {"bootstrap", "system", daemon}, 119, "", "Service is disabled"},
        {"launchctl", {"enable", "gui/501/com.x.web"}, 64, "", "Unrecognized target"},
        {"launchctl", {"explode"}, 64, "", "Unrecognized subcommand: explode"},
        {"pwpolicy", {"-getaccountpolicies"}, 0, "Getting global account policies\n\n", ""},
        {"pwpolicy",
         {"-setaccountpolicies", dir / "none"},
         1,
         "Setting global account policies\n",
         "could not read"},
        {"pwpolicy", {"setaccountpolicies", policy}, 0, "Setting global account policies\n", ""},
        {"pwpolicy", {"-getaccountpolicies"}, 0, "Getting global account policies\n" + text + "\n", ""},
        {"pwpolicy", {"-clearaccountpolicies"}, 0, "Clearing global account policies\n", ""},
        {"pkgutil", {"--pkgs"}, 0, "", ""},
        {"pkgutil", {"--pkg-info", "com.x"}, 1, "", "No receipt for 'com.x' found at '/'."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.tool) + ' ' + row.words[0] + ' ' + row.words.back());
        const MacRun run = tool(row.tool, row.words);
        EXPECT_EQ(run.exit, row.exit) << run.err;
        EXPECT_EQ(run.out, row.out);
        EXPECT_THAT(run.err, HasSubstr(row.err));
    }
    const nlohmann::json before = state();
    mac({"fault", "--tool", "defaults", "no-effect"});
    EXPECT_EQ(tool("defaults", {"write", "com.x", "Key", "1"}).exit, 0);
    mac({"fault", "--tool", "defaults", "not-root"});
    EXPECT_EQ(tool("defaults", {"write", "com.x", "Key", "1"}).exit, 1);
    EXPECT_EQ(tool("defaults", {"read", "com.x", "Time"}).out, "600\n");
    mac({"fault", "--tool", "defaults", "ok"});
    EXPECT_EQ(state(), before);
}

TEST_F(RehearsalTools, SharesItsStateBetweenProcesses) {
    constexpr int kCount = 12;
    std::vector<pid_t> children;
    for (int i = 0; i < kCount; ++i) {
        const std::string number = std::to_string(i);
        children.push_back(start({tools + "/zelor-rehearsal", "add-update", "--label", "U" + number,
                                  "--version", "1", "--size", "1"},
                                 "", dir / number, 0));
    }
    for (int i = 0; i < kCount; ++i)
        EXPECT_EQ(finish(children[static_cast<std::size_t>(i)], dir / std::to_string(i)).exit, 0);
    EXPECT_EQ(state().at("updates").size(), 12U);

    children.clear();
    for (int i = 0; i < kCount; ++i) {
        const std::string number = std::to_string(i);
        children.push_back(start({tools + "/softwareupdate", "-i", "U" + number, "U0"}, "", dir / number, 0));
    }
    for (int i = 0; i < kCount; ++i)
        EXPECT_EQ(finish(children[static_cast<std::size_t>(i)], dir / std::to_string(i)).exit, 0);
    EXPECT_TRUE(state().at("updates").empty());
    EXPECT_EQ(state().at("installedUpdates").size(), 12U);
}

TEST_F(RehearsalTools, RefusesUnusableOrders) {
    const std::vector<Words> orders{
        {"init", tools},
        {"init", dir / "m", "--os", "10.8"},
        {"init", dir / "m", "--root", "/"},
        {"os", "eleven"},
        {"add-update", "--label", "A", "--version", "1"},
        {"add-update", "--label", "A\nB", "--version", "1", "--size", "1"},
        {"add-update", "--label", "A", "--version", "1", "--size", "1", "--outcome", "busy"},
        {"fault", "--tool", "launchd", "fail"},
        {"fault", "--tool", "sw_vers", "busy"},
        {"fault", "--image", "a", "no-network"},
        {"fault", "--label", "missing", "fail"},
        {"fault", "fail"},
        {"build-pkg", "--id", "a b", "--version", "1", root, dir / "a.pkg"},
        {"build-pkg", "--id", "a", "--version", "1", "--install-location", "/a/../..", root, dir / "a.pkg"},
    };
    const auto before = state();
    for (const Words& order : orders) {
        const MacRun run = tool("zelor-rehearsal", order);
        EXPECT_GT(run.exit, 0) << testing::PrintToString(order);
        EXPECT_FALSE(run.err.empty()) << testing::PrintToString(order);
    }
    EXPECT_EQ(state(), before);

    writeFile(tools + "/state/state.json", "{\"updates\": 7}");
    EXPECT_THAT(tool("sw_vers", {}).err, HasSubstr("state.json is damaged"));
}

TEST_F(RehearsalTools, RunsTheSampleSources) {
    const std::string samples = ZELOR_REHEARSAL_SAMPLES;
    mac({"build-pkg", "--id", "com.example.tool", "--version", "2.1", "--install-location", "/Applications",
         "--scripts", samples + "/scripts", samples + "/package", dir / "tool.pkg"});
    EXPECT_EQ(tool("installer", {"-pkg", dir / "tool.pkg", "-target", "/"}).exit, 0);
    EXPECT_EQ(readFile(root + "/private/var/db/example-tool.txt"),
              "preparing " + root + "/Applications\ninstalled\n");

    const std::string setup = samples + "/Setup.app/Contents/MacOS/setup";
    for (const std::string bad : {"", "/", "relative"})
        EXPECT_EQ(run({"env", "ZELOR_REHEARSAL_ROOT=" + bad, setup, "-install"}).exit, 1) << bad;
    EXPECT_EQ(run({"env", "-u", "ZELOR_REHEARSAL_ROOT", setup, "-install"}).exit, 1);
    EXPECT_EQ(run({"env", "ZELOR_REHEARSAL_ROOT=" + root, setup}).exit, 2);
    EXPECT_EQ(run({"env", "ZELOR_REHEARSAL_ROOT=" + root, setup, "-install"}).exit, 0);
    EXPECT_EQ(readFile(root + "/Applications/Example Setup/version.txt"), "3.0\n");
}

}  // namespace

}  // namespace zelor::test

#include <sys/stat.h>

#include "agent/trust/Sha256.h"
#include "base/Strings.h"
#include "controller/Commands.h"
#include "tests/support/DripServer.h"
#include "tests/tools/ControllerFixture.h"
#include "tests/tools/JsonSchema.h"

namespace zelor::controller {
namespace {

using nlohmann::json;
using test::ArchiveBuilder;
using test::ControllerRun;
using test::readFile;
using test::writeFile;
using testing::HasSubstr;

const char kHolds[] = "test -e $S";

enum class Kind { script, package, bundle, update };

/// What tools and scripts claim, and what is so. `fix` is the hardening script, the installer, or what
/// softwareupdate says when it installs. `check` is a check script, the version that content asks for, or
/// what softwareupdate lists afterwards. `tool` is pkgutil, or the text of Info.plist.
struct Lie {
    const char* name;
    Kind kind;
    const char* fix;
    const char* check;
    const char* tool;
    unsigned value;
    json verified;
    const char* damage = "";
};

struct VerifyTest : test::ControllerTest {
    std::string state = fixture.dir / "state";

    static std::string sha256(const std::string& bytes) {
        agent::Sha256 digest;
        digest.add(bytes);
        return digest.finish().sha256;
    }
    /// Archives a script as published; its `check` element, and what was done to it afterwards.
    std::string addCheck(const std::string& stem, std::string text, const std::string& damage = "") {
        text = "S=" + state + "\n" + text + "\n";
        const std::string name = stem + ".sh";
        const auto archived = [&](const std::string& script, const test::SigningKey& key) {
            return ArchiveBuilder().file(name, script).file(stem + ".sig", key.sign(script)).finish();
        };
        std::string bytes = archived(text, fixture.key);
        std::string element = "<check id=\"" + name + "\" sha256=\"" + sha256(text) + "\" length=\"" +
                              std::to_string(text.size()) + "\" ";
        if (damage == "no digest") element = "<check id=\"" + name + "\" ";
        if (damage == "other key") bytes = archived(text, test::SigningKey::ec());
        if (damage != "no digest") {
            element += "archiveSha256=\"" + sha256(bytes) + "\" archiveLength=\"" +
                       std::to_string(bytes.size()) + "\"";
        }
        if (damage == "swapped") bytes = archived("true\n", fixture.key);
        if (damage != "missing") fixture.addArchive(stem, bytes);
        return element + "/>";
    }
    void addScript(const std::string& identifier, const std::string& fix, const std::string& check) {
        fixture.addScript(identifier, "fix-" + identifier, "S=" + state + "\n" + fix + "\n");
        fixture.addContent(identifier, "fix-" + identifier + ".sh", check);
    }
    void addPackage(const std::string& identifier, const std::string& check) {
        fixture.addContent(identifier, "pack-" + identifier + ".pkg", check);
        const std::string stem = "pack-" + identifier;
        fixture.addArchive(
            stem,
            ArchiveBuilder().file(stem + ".pkg", "x").file(stem + ".sig", fixture.key.sign("x")).finish());
    }
    /// Makes the world of the lie; the request's key.
    std::string prepare(const Lie& lie, const std::string& number) {
        boost::filesystem::remove(state);
        boost::filesystem::remove_all(fixture.dir / "Applications/X.app");
        boost::filesystem::remove(fixture.dir / "tools/pkgutil");
        const std::string version = std::string(" version=\"") + lie.check + "\"/>";
        switch (lie.kind) {
            case Kind::script:
                addScript("CCE-" + number, lie.fix, addCheck("check-" + number, lie.check, lie.damage));
                return "cpe:/o:apple:mac_os_x";
            case Kind::package:
                tool("installer", lie.fix);
                if (*lie.tool != 0) tool("pkgutil", lie.tool);
                addPackage("CVE-" + number, "<check receipt=\"com.x\"" + version);
                return "cpe:/a:x:y||X";
            case Kind::bundle:
                tool("installer", lie.fix);
                if (*lie.tool != 0)
                    writeFile(fixture.dir / "Applications/X.app/Contents/Info.plist", lie.tool);
                addPackage("CVE-" + number, "<check bundle=\"/Applications/X.app\"" + version);
                return "cpe:/a:x:y||X";
            case Kind::update:
                break;
        }
        tool("softwareupdate", "case $1 in -l) if test -e " + state + "; then " + lie.check +
                                   "; else printf '   * Sec-1\\n\\tSec (1.0)\\n'; fi ;; *) touch " + state +
                                   "; " + lie.fix + " ;; esac");
        fixture.addContentText(
            "CVE-" + number,
            "<remediation identifier=\"CVE-" + number +
                "\"><cre><eri id=\"ERI-U\"><product>cpe:/o:apple:mac_os_x</product><instructions>"
                "OS Remediation</instructions></eri></cre></remediation>");
        return "cpe:/o:apple:mac_os_x||Sec";
    }
    /// The state of the only request that `verify` is given.
    std::string stateOf(const json& map, const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments = {"--json", fixture.dir / "verify.json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ControllerRun run = on("verify", map, arguments);
        const json report = readJson("verify.json");
        EXPECT_EQ(test::JsonSchema(json::parse(readFile(ZELOR_VERIFY_SCHEMA))).problem(report), "");
        const std::string name = report.at("requests").begin()->at("state");
        const bool holds = name == "compliant" || name == "not-recorded";
        EXPECT_EQ(run.status, holds ? 0 : 3) << run.err;
        return name;
    }
};

constexpr char kPlist[] =
    "<?xml version='1.0'?><!DOCTYPE plist PUBLIC '-//Apple//DTD PLIST 1.0//EN' 'x'><plist>"
    "<dict><key>A</key><string>9</string><key>CFBundleShortVersionString</key><string>2.1"
    "</string></dict></plist>";

TEST_F(VerifyTest, NoLieOfAToolIsVerified) {
    const char done[] = "echo The install was successful.", failed[] = "echo It failed.; exit 1";
    const char has21[] = "printf 'package-id: com.x\\nversion: 2.1\\nvolume: /\\n'";
    const Lie lies[] = {
        {"did it", Kind::script, "touch $S", kHolds, "", 4, true},
        {"says done, did nothing", Kind::script, "echo done", kHolds, "", 4, false},
        {"not applicable", Kind::script, "echo not applicable, nothing was done", kHolds, "", 4, false},
        {"says failed, did it", Kind::script, "touch $S; exit 1", kHolds, "", 5, true},
        {"failed, did nothing", Kind::script, "exit 1", kHolds, "", 5, false},
        {"undid it", Kind::script, "touch $S; rm $S", kHolds, "", 4, false},
        {"killed after it did it", Kind::script, "touch $S; kill -9 $$", kHolds, "", 5, true},
        {"empty fix", Kind::script, "", kHolds, "", 4, false},
        {"check says yes and exits with 1", Kind::script, "true", "echo compliant; exit 1", "", 4, false},
        {"check says no and exits with 0", Kind::script, "true", "echo failed", "", 4, true},
        {"check always says yes", Kind::script, "exit 1", "exit 0", "", 5, true},
        {"check has trouble", Kind::script, "touch $S", "exit 2", "", 4, nullptr},
        {"check lacks a command", Kind::script, "touch $S", "no-such-command", "", 4, nullptr},
        {"check does not parse", Kind::script, "touch $S", "if true; then", "", 4, nullptr},
        {"check is killed", Kind::script, "touch $S", "kill -9 $$", "", 4, nullptr},
        {"check is terminated", Kind::script, "touch $S", "kill $$; sleep 9", "", 4, nullptr},
        {"check is missing", Kind::script, "touch $S", kHolds, "", 4, nullptr, "missing"},
        {"check is another signed script", Kind::script, "true", kHolds, "", 4, nullptr, "swapped"},
        {"check has no digest", Kind::script, "touch $S", kHolds, "", 4, nullptr, "no digest"},
        {"check has another's signature", Kind::script, "touch $S", kHolds, "", 4, nullptr, "other key"},
        {"installed", Kind::package, done, "2.1", has21, 4, true},
        {"later version", Kind::package, done, "2.0.9", has21, 4, true},
        {"installed, says failed", Kind::package, failed, "2.1", has21, 5, true},
        {"says installed, no receipt", Kind::package, done, "2.1",
         "echo \"No receipt for 'com.x' found at '/'.\" >&2; exit 1", 4, false},
        {"says installed, old receipt", Kind::package, done, "2.10", has21, 4, false},
        {"version in other words", Kind::package, done, "2.1b3", has21, 4, nullptr},
        {"pkgutil says nothing", Kind::package, done, "2.1", "true", 4, nullptr},
        {"receipt of another", Kind::package, done, "2.1", "printf 'package-id: com.xy\\nversion: 2.1\\n'", 4,
         nullptr},
        {"no receipt, status 0", Kind::package, done, "2.1", "echo \"No receipt for 'com.x' found at '/'.\"",
         4, nullptr},
        {"pkgutil fails", Kind::package, done, "2.1", "echo Operation not permitted; exit 1", 4, nullptr},
        {"pkgutil is killed", Kind::package, done, "2.1",
         "printf 'package-id: com.x\\nversion: 2.1\\n'; kill -9 $$", 4, nullptr},
        {"no pkgutil", Kind::package, done, "2.1", "", 4, nullptr},
        {"bundle", Kind::bundle, done, "2.1", kPlist, 4, true},
        {"says installed, no bundle", Kind::bundle, done, "2.1", "", 4, false},
        {"says installed, old bundle", Kind::bundle, done, "3", kPlist, 4, false},
        {"damaged Info.plist", Kind::bundle, done, "2.1", "<plist><dict><key>CFBundle", 4, nullptr},
        {"bundle without a version", Kind::bundle, done, "2.1", "<plist><dict/></plist>", 4, nullptr},
        {"binary list that nothing reads", Kind::bundle, done, "2.1", "bplist00", 4, nullptr},
        {"updated", Kind::update, "echo Done.", "echo No new software available.", "", 4, true},
        {"says updated, still offered", Kind::update, "echo Done.", "echo '   * Sec-1'", "", 4, false},
        {"another update is left", Kind::update, "echo Done.", "echo '   * Other-2'", "", 4, true},
        {"lists nothing", Kind::update, "echo Done.", "true", "", 4, nullptr},
        {"cannot list", Kind::update, "echo Done.", "echo No new software available.; exit 1", "", 4,
         nullptr},
    };
    int number = 0;
    for (const Lie& lie : lies) {
        SCOPED_TRACE(lie.name);
        const std::string key = prepare(lie, std::to_string(++number));
        const std::string kind = lie.kind == Kind::script ? "CCE-" : "CVE-";
        const ControllerRun run =
            on("run", {{key, kind + std::to_string(number)}},
               {"--json", fixture.dir / "results.json", "--report", fixture.dir / "report.html"});
        const json results = readJson("results.json");
        EXPECT_EQ(test::JsonSchema(json::parse(readFile(ZELOR_RESULTS_SCHEMA))).problem(results), "");
        const json& request = results.at("requests").at(key);
        EXPECT_EQ(request.at("value"), lie.value) << request;
        ASSERT_TRUE(request.contains("verified")) << request;
        EXPECT_EQ(request.at("verified"), lie.verified) << request;
        EXPECT_NE(request.at("verifiedReason"), "");
        const bool disproved = lie.verified == json(false);
        const std::string page = readFile(fixture.dir / "report.html");
        EXPECT_EQ(base::contains(page, ">does not hold: "), disproved);
        EXPECT_EQ(base::contains(page, ">verified: "), lie.verified == json(true));
        EXPECT_EQ(base::contains(run.out + run.err, "Successes that their check disproves: 1."),
                  disproved && lie.value == 4);
    }
}

TEST_F(VerifyTest, TellsDriftFromTheRestAndForgetsOnlyThat) {
    addScript("CCE-1", "echo run >> $S.runs; touch $S", addCheck("check-1", kHolds));
    fixture.addScript("CCE-2", "other", "true\n");
    const json map = {{"cpe:/o:apple:mac_os_x", "CCE-1"}};
    EXPECT_EQ(stateOf(map), "not-compliant");
    writeFile(state, "");
    EXPECT_EQ(stateOf(map), "not-recorded");
    EXPECT_EQ(fixture.record(), "") << "verify has recorded what it found";
    boost::filesystem::remove(state);
    ASSERT_EQ(on("run", {{"cpe:/o:apple:mac_os_x", "CCE-1"}, {"cpe:/a:x:y", "CCE-2"}}, {"--quiet"}).status,
              0);
    EXPECT_EQ(stateOf(map, {"--forget"}), "compliant");
    EXPECT_THAT(fixture.record(), HasSubstr("ERI-CCE-1\n"));
    boost::filesystem::remove(state);
    EXPECT_EQ(stateOf(map), "drifted");
    const ControllerRun plan = on("plan", map, {"--check"});
    EXPECT_THAT(plan.out, HasSubstr("drifted now: the check check-1.sh does not hold"));
    EXPECT_EQ(readFile(state + ".runs"), "run\n");
    // What is not proven stays in the record.
    authoring::ServerFault gone;
    gone.status = 404;
    fixture.addFault("/patches/check-1.zip", gone);
    EXPECT_EQ(stateOf(map, {"--forget"}), "unknown");
    EXPECT_EQ(stateOf({{"cpe:/a:x:y", "CCE-2"}}, {"--forget"}), "unknown");
    EXPECT_THAT(fixture.record(), HasSubstr("ERI-CCE-1\n"));
    const std::string record = fixture.dir / "var/log/zelor/ZelorInstalledPatches.txt";
    writeFile(record, fixture.record() + "\nERI-CCE-1\nERI-CCE-11\nunfinished");
    ::chmod(record.c_str(), 0640);
    EXPECT_EQ(stateOf(map, {"--forget"}), "drifted");
    EXPECT_EQ(fixture.record(), "ERI-CCE-2\n\nERI-CCE-11\nunfinished");
    struct stat info {};
    ::stat(record.c_str(), &info);
    EXPECT_EQ(info.st_mode & 0777U, 0640U);
    ASSERT_EQ(on("run", map, {"--quiet"}).status, 0);
    EXPECT_EQ(readFile(state + ".runs"), "run\nrun\n");
    EXPECT_EQ(stateOf(map), "compliant");
}

TEST_F(VerifyTest, EveryEriMustHold) {
    const std::string holds = addCheck("yes", "true"), fails = addCheck("no", "false");
    const auto entry = [&](const std::string& identifier, const std::string& one, const std::string& two) {
        fixture.addContentText(identifier, "<remediation identifier=\"" + identifier +
                                               "\"><cre><eri id=\"A\">" + one + "</eri><eri id=\"B\">" + two +
                                               "</eri></cre></remediation>");
    };
    entry("CVE-1", holds, holds);
    entry("CVE-2", holds, "");
    entry("CVE-3", "", fails);
    entry("CVE-4", holds, "<mskb>KB1</mskb>");
    entry("CVE-5", "", "");
    entry("CVE-6", "<check oracle=\"x\"/>", holds);
    entry("CVE-8", "<check id=\"yes.sh\"/>", "<mskb>KB1</mskb>");
    on("verify",
       {{"cpe:/a:x:1||1", "CVE-1"},
        {"cpe:/a:x:2||2", "CVE-2"},
        {"cpe:/a:x:3||3", "CVE-3"},
        {"cpe:/a:x:4||4", "CVE-4"},
        {"cpe:/a:x:5||5", "CVE-5"},
        {"cpe:/a:x:6||6", "CVE-6"},
        {"cpe:/a:x:7||7", "CVE-7"},
        {"cpe:/a:x:8||8", "CVE-8"},
        {"", "CVE-9"}},
       {"--json", fixture.dir / "verify.json"});
    const json proven = readJson("verify.json").at("requests");
    const std::pair<const char*, std::string> expected[] = {
        {"1", "all 2 ERIs hold"},
        {"2", "B: it has no check"},
        {"3", "B: the check no.sh does not hold"},
        {"4", "the check yes.sh holds"},
        {"5", "no check"},
        {"6", "A: this version does not know"},
        {"7", "404"},
        {"8", "yes.sh cannot be had: the contents that name it do not all give both"},
    };
    for (const auto& [number, reason] : expected) {
        const std::string key = std::string("cpe:/a:x:") + number + "||" + number;
        EXPECT_THAT(proven.at(key).at("reason").get<std::string>(), HasSubstr(reason)) << number;
    }
    EXPECT_EQ(proven.at("").at("state"), "unknown");
    EXPECT_EQ(fixture.countAnswers("GET /patches/yes.zip"), 1) << "one check is fetched and run once";
}

// The request is done by then; only what its check would prove is not known.
TEST_F(VerifyTest, NoCheckHoldsARunLongerThanItsLimit) {
    addScript("CCE-1", "true", addCheck("look", "true"));
    const test::DripServer mute(test::DripServer::all().front());
    authoring::ServerFault moved;
    moved.status = 302;
    moved.headers = {{"Location", mute.url() + "/x"}};
    for (int i = 0; i < 10; ++i)
        fixture.addFault("patches/look.zip", moved);
    writeFile(requests, R"({"cpe:/o:x": "CCE-1"})");
    RunOptions options;
    options.requests = requests;
    options.paths.root = root;
    options.paths.tools = fixture.dir / "tools";
    options.talk.quiet = true;
    options.json = fixture.dir / "out.json";
    options.timeLimit = std::chrono::seconds(3);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(runCommand(options), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
    const json result = readJson("out.json")["requests"]["cpe:/o:x"];
    EXPECT_EQ(result["value"], 4);
    EXPECT_EQ(result["verified"], nullptr);
}

}  // namespace
}  // namespace zelor::controller

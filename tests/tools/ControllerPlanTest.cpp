#include <set>

#include "controller/plan/Plan.h"
#include "platform/macos/UpdateSelection.h"
#include "remediation/RecordAccess.h"
#include "tests/tools/ControllerFixture.h"

namespace zelor::test {
namespace {

namespace fs = boost::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Everything below a directory except the log and the cache of content: path, kind, time and bytes.
std::map<std::string, std::string> snapshot(const std::string& root) {
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = entry.path().string();
        if (path.find("/opt/zelor") != std::string::npos || path.find("/var/log") != std::string::npos)
            continue;
        const bool file = fs::is_regular_file(entry.symlink_status());
        all[path] = file ? std::to_string(fs::last_write_time(path)) + readFile(path) : "";
    }
    return all;
}

struct ControllerPlanTest : ControllerTest {
    /// softwareupdate lists the file "listing", and installing a label removes its line.
    void listUpdates(const std::string& listing) {
        const std::string file = fixture.dir / "tools/listing";
        writeFile(file, listing);
        tool("softwareupdate", "f='" + file + "'\nif [ \"$1\" = -l ]; then cat \"$f\"; exit; fi\n" +
                                   "echo \"$2\" >>'" + (fixture.dir / "tools/asked") + "'\n" +
                                   "grep -qF \"* $2\" \"$f\" || { echo No updates are available.; exit; }\n" +
                                   "grep -vF \"* $2\" \"$f\" >\"$f.new\"; mv \"$f.new\" \"$f\"; echo Done.");
    }
    std::string patch(const std::string& name, const std::string& text) {
        const std::string stem = name.substr(0, name.rfind('.'));
        return ArchiveBuilder().file(name, text).file(stem + ".sig", fixture.key.sign(text)).finish();
    }
    void buffer(const std::string& name, const std::string& archive) {
        writeFile(fixture.dir / ("var/zelor/buffer/" + name.substr(0, name.size() - 4) + ".zip"), archive);
        const std::string list = fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt";
        writeFile(list, (fs::exists(list) ? readFile(list) : "") + name + "=00\n");
    }
    void addOsUpdate(const std::string& identifier, const std::string& product) {
        fixture.addContentText(identifier, "<remediation identifier=\"" + identifier +
                                               "\"><cre><eri id=\"ERI-" + identifier + "\"><product>" +
                                               product +
                                               "</product><instructions>OS remediation</instructions>"
                                               "</eri></cre></remediation>");
    }
};

TEST_F(ControllerPlanTest, ChangesNothingAndPredictsTheRun) {
    listUpdates("   * OSXUpd10.10.5-10.10.5\n   * Command Line Tools (OS X 10.10)-6.0\n   * Safari9.0-9.0\n");
    fixture.addScript("CCE-1", "good", "exit 0\n");
    fixture.addScript("CCE-2", "before", "exit 1\n");
    addOsUpdate("CVE-1", "cpe:/o:apple:mac_os_x");
    addOsUpdate("CVE-2", "cpe:/a:apple:safari");
    fixture.addContent("CVE-3", "ready.pkg");
    buffer("ready.pkg", patch("ready.pkg", "ready"));
    fixture.addContent("CVE-4", "forged.pkg");
    buffer("forged.pkg", ArchiveBuilder().file("forged.pkg", "x").file("forged.sig", "y").finish());
    fixture.addContent("CVE-5", "fetched.pkg");
    fixture.addArchive("fetched", patch("fetched.pkg", "fetched"));
    fixture.addContent("CVE-6", "nothing");
    fixture.addContent("CVE-7", "odd.exe");
    fixture.addArchive("odd", patch("odd.exe", "odd"));
    fixture.addContentText(
        "CVE-8",
        "<remediation identifier=\"CVE-8\"><cre id=\"C\"><eri id=\"E-1\"><patch id=\"fetched.pkg\" "
        "size=\"2 GB\" md5=\"1\"/></eri><eri id=\"E-2\"><patch id=\"never.pkg\" size=\"1 KB\" "
        "md5=\"1\"/></eri></cre></remediation>");
    writeFile(fixture.dir / "var/log/zelor/ZelorInstalledPatches.txt", "ERI-CCE-2\n");
    const json map = {{"cpe:/o:a", "CCE-1"},
                      {"cpe:/o:b", "CCE-2"},
                      {"cpe:/o:c||Apple Mac OS X", "CVE-1"},
                      {"cpe:/o:d||Apple Safari", "CVE-2"},
                      {"cpe:/a:e", "CVE-3"},
                      {"cpe:/a:f", "CVE-4"},
                      {"cpe:/a:g", "CVE-5"},
                      {"cpe:/a:h", "CVE-6"},
                      {"cpe:/a:i", "CVE-7"},
                      {"cpe:/a:j", "CVE-8"},
                      {"cpe:/a:k", "CVE-404"},
                      {"a,b,c||\x1b[31m", "CVE-5"},
                      {" ", "CVE-5"}};
    const auto before = snapshot(root);
    const ControllerRun shown = on("plan", map);
    const ControllerRun planned = on("plan", map, {"--json"});
    auto after = snapshot(root);
    after.erase(requests);
    EXPECT_EQ(after, before);
    EXPECT_FALSE(fs::exists(fixture.dir / "tools/asked"));
    EXPECT_EQ(shown.status, 1);
    EXPECT_EQ(shown.err, "");
    EXPECT_THAT(shown.out, Not(HasSubstr("\x1b")));
    for (const char* part :
         {"in the buffer, but refused: ", "signature good", "fetched.pkg, 2 GB, to download",
          "ERI-CCE-2 is recorded as applied", "E-2 is not applied: E-1 of the same CRE is recorded by then",
          "\"2 GB\" counts as 2 bytes", "names more than two CPEs", "no installer accepts it",
          "\"Command Line Tools (OS X 10.10)-6.0\" is selected only by a word",
          "6 to apply, 1 applied already"})
        EXPECT_THAT(shown.out, HasSubstr(part));
    const json plan = json::parse(planned.out);
    on("run", map, {"--json", fixture.dir / "out.json"});
    const json results = readJson("out.json");
    for (const auto& [key, result] : results["requests"].items())
        EXPECT_EQ(plan["requests"][key]["value"], result["value"]) << key;
    EXPECT_EQ(plan["rebootNeeded"], results["rebootNeeded"]);
    std::string labels;
    for (const char* key : {"cpe:/o:c||Apple Mac OS X", "cpe:/o:d||Apple Safari"}) {
        for (const json& label : plan["requests"][key]["labels"])
            labels += label.get<std::string>() + '\n';
    }
    EXPECT_EQ(readFile(fixture.dir / "tools/asked"), labels);
    EXPECT_EQ(plan["requests"]["cpe:/a:e"]["steps"][0]["file"]["source"], "buffer");
    EXPECT_EQ(fixture.countAnswers("ready.zip"), 0);
    const json again = json::parse(on("plan", map, {"--json"}).out);
    EXPECT_EQ(again["requests"]["cpe:/a:g"]["action"], "already-applied");
    EXPECT_EQ(json::parse(on("plan", map, {"--json", "--after-scan"}).out)["requests"]["cpe:/a:g"]["action"],
              "apply");
}

TEST_F(ControllerPlanTest, SeesAnImageThatIsStillAttached) {
    fixture.addContent("CVE-1", "player.dmg");
    EXPECT_THAT(on("plan", {{"cpe:/a:a", "CVE-1"}}).out, Not(HasSubstr("hdiutil detach first")));
    writeFile(fixture.dir / "var/zelor/mountpoint/Old.app/Contents/version", "1");
    EXPECT_THAT(on("plan", {{"cpe:/a:a", "CVE-1"}}).out, HasSubstr("hdiutil detach first"));
}

TEST_F(ControllerPlanTest, ForeseesWhatMissingDigestsRefuse) {
    fixture.addScript("CCE-1", "good", "exit 0\n");
    const std::string ini = fixture.dir / "etc/zelor/zelor.ini";
    std::string required = readFile(ini);
    required.insert(required.find("Url"), "RequireDigests = true\n");
    writeFile(ini, required);
    const json plan =
        json::parse(on("plan", {{"cpe:/o:a", "CCE-1"}}, {"--json"}).out)["requests"]["cpe:/o:a"];
    on("run", {{"cpe:/o:a", "CCE-1"}}, {"--json", fixture.dir / "out.json"});
    EXPECT_EQ(plan["value"], readJson("out.json")["requests"]["cpe:/o:a"]["value"]);
    EXPECT_THAT(plan.dump(), HasSubstr("gives no digest of good.zip"));
}

TEST_F(ControllerPlanTest, ExitStatusSaysWhatPreventsRequests) {
    fixture.addScript("CCE-1", "good", "exit 0\n");
    EXPECT_EQ(on("plan", {{"cpe:/o:a", "CCE-1"}}).status, 0);
    EXPECT_EQ(on("plan", {{"cpe:/o:a", "CCE-9"}}).status, 3);
    EXPECT_EQ(on("plan", {{"cpe:/o:a", "CCE-1"}}, {"--content-dir", "/var"}).status, 2);
}

TEST_F(ControllerPlanTest, WritesJsonWhereItIsAsked) {
    fixture.addScript("CCE-1", "good", "exit 0\n");
    writeFile(requests, R"({"cpe:/o:a": "CCE-1"})");
    const std::string file = fixture.dir / "plan.json";
    using Words = std::vector<std::string>;
    for (const Words& arguments :
         {Words{requests, "--json", file}, {"--json", file, requests}, {"--json=" + file, requests}}) {
        fs::remove(file);
        const ControllerRun run = at("plan", {}, arguments);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(readJson("plan.json")["requests"]["cpe:/o:a"]["value"], 4);
    }
    for (const Words& arguments : {Words{requests, "--json"},
                                   {"--json", requests},
                                   {"--json", "-v", requests},
                                   {requests, "--json", "-"}}) {
        const ControllerRun run = at("plan", {}, arguments);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(json::parse(run.out)["requests"]["cpe:/o:a"]["value"], 4);
    }
    EXPECT_EQ(json::parse(controller({"--json", "--root", root, "plan", requests}).out)["counts"]["apply"],
              1);
    EXPECT_EQ(at("plan", {"--json", requests}, {requests}).status, 2);
    EXPECT_EQ(readJson("requests.json").size(), 1U);
}

// Only the decisions, on facts in memory.

parsedEriData block(const std::string& eri, const std::string& patch, const std::string& instructions = "") {
    parsedEriData data;
    RecordAccess::eriId(data) = eri;
    RecordAccess::patchId(data) = patch;
    RecordAccess::patchSize(data) = "1 KB";
    RecordAccess::md5sum(data) = "00";
    RecordAccess::instructions(data) = instructions;
    RecordAccess::productCpe(data) = instructions.empty() ? "cpe:/a:example:x" : "cpe:/a:apple:x";
    return data;
}

struct PlanDecisions : testing::Test {
    controller::PlanFacts facts;
    std::map<std::string, std::vector<parsedEriData>> contents;
    std::set<std::string> record;
    std::vector<std::string> listing;
    std::string version = "10.10.5";

    PlanDecisions() {
        facts.contentDir = "/c";
        facts.applications = "/Applications/";
        facts.mountPoint = "/m";
        facts.vendorInstallation = "silent";
        facts.isRecorded = [this](const std::string& eri) { return record.count(eri) != 0; };
        facts.content = [this](const std::string&, const std::string&, const std::string& identifier) {
            parseOnlyMetadata metadata;
            const auto found = contents.find(identifier);
            RecordAccess::parsingFailed(metadata) = found == contents.end();
            if (found == contents.end()) return metadata;
            RecordAccess::blocks(RecordAccess::creEriData(metadata)) = found->second;
            for (parsedEriData& one : found->second)
                RecordAccess::eriIds(RecordAccess::creEriData(metadata)).push_back(RecordAccess::eriId(one));
            return metadata;
        };
        facts.contentProblem = [](const std::string&, const std::string&) { return "none"; };
        facts.updateListing = [this] { return listing; };
        facts.productVersion = [this] { return version; };
        facts.signatureProblem = [](const std::string&, const std::string&) { return ""; };
    }
    controller::PlannedRequest only(const std::string& key, const std::string& identifier) {
        return controller::makePlan({{key, identifier}}, facts).requests.at(0);
    }
    std::string warnings(const controller::PlannedRequest& request) {
        std::string all;
        for (const std::string& warning : request.warnings)
            all += warning + '\n';
        return all;
    }
};

TEST_F(PlanDecisions, ForeseeUpdatesOfTheSystem) {
    contents["CVE-1"] = {block("E", "", "OS Remediation")};
    std::string cut = " * OS X Tools";  // the first piece of a longer line
    cut.resize(platform::kListingPiece, 's');
    const struct {
        std::vector<std::string> listing;
        std::string name, version;
        std::vector<std::string> labels;
        controller::ProgressValue expected;
        std::string warning;
    } rows[] = {
        {{" * OSXUpd-1\n", " * Safari9-9\n"}, "Apple Mac OS X", "10.10.5", {"OSXUpd-1"}, 4, ""},
        {{" * OSXUpd-1\n"}, "Apple Mac OS X", "10.14", {}, 5, ""},
        {{" * Command Line Tools (OS X 10.10)-6\n"},
         "Apple Mac OS X",
         "10.10",
         {"Command Line Tools (OS X 10.10)-6"},
         4,
         "only by a word in its label"},
        {{" * OS X SecUpd-7\n"},
         "Apple Mac OS X",
         "10.10",
         {"OS X SecUpd-7", "OS X SecUpd-7"},
         5,
         "installed twice"},
        {{" * Safari9-9\n"}, "Apple Safari", "10.10", {"Safari9-9"}, 4, ""},
        {{" * NotSafari9-9\n"}, "Apple Safari", "10.10", {"Safari9-9"}, 4, "does not list"},
        {{" * Safari9-9 \n"}, "Apple Safari", "10.10", {"Safari9-9"}, 4, "with white space at its end"},
        {{" * OSXUpd-1 \n"}, "Apple Mac OS X", "10.10", {"OSXUpd-1"}, 5, "with white space at its end"},
        {{"* Label: Safari9-9\n"}, "Safari", "10.15", {"Safari9-9"}, 4, ""},
        {{" * -OS X-1\n"}, "Apple Mac OS X", "10.10", {"-OS X-1"}, 5, "by a word"},
        {{}, "Safari", "10.15", {}, 5, ""},
        {{cut, " * Safari9-9\n"}, "Apple Mac OS X", "10.10", {cut.substr(3)}, 5, ""},
    };
    for (const auto& row : rows) {
        listing = row.listing;
        version = row.version;
        const controller::PlannedRequest request = only("cpe:/o:x||" + row.name, "CVE-1");
        EXPECT_EQ(request.labels, row.labels);
        EXPECT_EQ(request.expected, row.expected) << row.name << row.version;
        EXPECT_THAT(warnings(request),
                    row.warning.empty() ? IsEmpty() : testing::Matcher<std::string>(HasSubstr(row.warning)));
    }
    facts.vendorInstallation = "Interactive";
    EXPECT_EQ(only("cpe:/o:x||Safari", "CVE-1").action, controller::PlanAction::nothing);
    facts.vendorInstallation = "silent";
    listing = {" * Safari9-9\n"};
    const controller::Plan twice =
        controller::makePlan({{"cpe:/o:a||Safari", "CVE-1"}, {"cpe:/o:b||Safari", "CVE-1"}}, facts);
    EXPECT_EQ(twice.requests.at(0).labels.size(), 1U);
    EXPECT_EQ(twice.requests.at(1).expected, 5U) << "the first request installs it";
}

TEST_F(PlanDecisions, WarnOfSurprises) {
    contents = {{"CVE-1", {block("E1", "foo.pkg")}},
                {"CVE-2", {block("E2", "barfoo.pkg")}},
                {"CVE-3", {block("E3", "bundle.framework.app.tgz")}},
                {"CCE-4", {block("E4", "set.sh")}},
                {"CVE-5", {block("E5", "../up.pkg")}},
                {"CVE-6", {block("E6", "plain.pkg")}}};
    const controller::Plan plan = controller::makePlan({{"cpe:/a:1", "CVE-1"},
                                                        {"cpe:/a:2", "CVE-2"},
                                                        {"cpe:/a:3", "CVE-3"},
                                                        {"cpe:/a:4", "CCE-4"},
                                                        {"cpe:/a:5", "CVE-5"},
                                                        {"cpe:/a:6||oval:1", "CVE-6"},
                                                        {"cpe:/a:6||oval:2", "CVE-6"}},
                                                       facts);
    const std::map<std::string, std::string> reported = {
        {"cpe:/a:1", "\"foo.pkg\" is part of the name \"barfoo.pkg\""},
        {"cpe:/a:2", "\"foo.pkg\" is part of the name \"barfoo.pkg\""},
        {"cpe:/a:3", "installed as .app"},
        {"cpe:/a:4", "never found in the buffer"},
        {"cpe:/a:6||oval:1", "reported under \"cpe:/a:6\" together with 1 other"}};
    for (const controller::PlannedRequest& request : plan.requests) {
        const auto expected = reported.find(request.key);
        if (expected != reported.end()) {
            EXPECT_THAT(warnings(request), HasSubstr(expected->second));
        }
        if (request.key == "cpe:/a:5") {
            EXPECT_EQ(request.expected, 12U);
            EXPECT_THAT(request.reason, HasSubstr("path separator"));
        }
    }
}

TEST_F(PlanDecisions, WarnOfImagesThatReadSuccessUninstalled) {
    contents = {{"CVE-1", {block("E1", "copied.dmg")}}, {"CVE-2", {block("E2", "run.dmg")}}};
    RecordAccess::instructions(contents["CVE-2"][0]) = "Using install option";
    const char* refusedCommand = "nothing runs: the shell refuses the command";
    EXPECT_THAT(
        warnings(only("cpe:/a:1", "CVE-1")),
        AllOf(HasSubstr("cannot be attached"), Not(HasSubstr(refusedCommand)), Not(HasSubstr("/m "))));
    controller::PlannedRequest run = only("cpe:/a:2", "CVE-2");
    EXPECT_THAT(warnings(run), HasSubstr(refusedCommand));
    EXPECT_THAT(run.steps.at(0).note, HasSubstr("a bundle is left alone"));
    RecordAccess::silentModeCmd(contents["CVE-2"][0]) = "Contents/MacOS/setup -q";
    run = only("cpe:/a:2", "CVE-2");
    EXPECT_THAT(warnings(run), Not(HasSubstr(refusedCommand)));
    EXPECT_THAT(run.steps.at(0).note, HasSubstr("run as 'BUNDLE'/Contents/MacOS/setup -q"));
    facts.mountPointInUse = true;
    EXPECT_THAT(warnings(only("cpe:/a:1", "CVE-1")), HasSubstr("/m holds an image"));
}

TEST_F(PlanDecisions, WarnOfNamesThatARunIgnores) {
    contents["CCE-1"] = {block("E1", "set.bsh")};
    facts.platformCpe = "cpe:/o:this";
    const std::map<std::string, std::string> reported = {
        {"hello", "\"hello\" is not a CPE 2.2 name"},
        {"cpe:/h:x", "it counts for cpe:/o:this, without a product"},
        {"cpe:/o:x,Editor||Editor", "\"Editor\" is not a CPE 2.2 name"},
        {"cpe:/o:x,cpe:2.3:a:y:z:1:*:*:*:*:*:*:*", "write it in CPE 2.2, \"cpe:/a:y:z:1\""},
        {"cpe:2.3:x", "write it in CPE 2.2, \"cpe:/a:vendor:product:version\""}};
    for (const auto& [key, warning] : reported) {
        const controller::PlannedRequest request = only(key, "CCE-1");
        EXPECT_EQ(request.expected, 4U) << key;
        EXPECT_THAT(warnings(request), HasSubstr(warning));
    }
    for (const char* key : {"cpe:/o:x||", "cpe:/o:x,cpe:/a:y||Editor", "cpe:/a:y,"})
        EXPECT_EQ(warnings(only(key, "CCE-1")), "") << key;
    EXPECT_THAT(warnings(only("cpe:/o:x,Editor", "CCE-1")), Not(HasSubstr("it counts for")));
}

TEST_F(PlanDecisions, WarnOfRestartsThatNoResultReports) {
    contents = {{"CVE-1", {block("E1", "", "OS Remediation")}}, {"CCE-2", {block("E2", "set.bsh")}}};
    EXPECT_THAT(controller::makePlan({{"cpe:/o:x||Safari", "CVE-1"}, {"cpe:/o:y", "CCE-2"}}, facts).warnings,
                IsEmpty())
        << "nothing is listed, so nothing is installed";
    listing = {" * Safari9-9\n"};
    for (const bool reboot : {false, true}) {
        RecordAccess::reboot(contents["CVE-1"][0]) = reboot;
        const controller::Plan plan = controller::makePlan({{"cpe:/o:x||Safari", "CVE-1"}}, facts);
        EXPECT_FALSE(plan.rebootNeeded);
        EXPECT_THAT(plan.warnings, testing::ElementsAre(HasSubstr("rebootNeeded does not cover")));
        EXPECT_THAT(plan.requests.at(0).warnings, IsEmpty()) << "one warning is enough";
    }
}

TEST_F(PlanDecisions, KeepAccountOfTheBuffer) {
    contents = {{"CVE-1", {block("E1", "foo.pkg")}}, {"CVE-2", {block("E2", "barfoo.pkg")}}};
    facts.bufferedList = "foo.pkg=00\nbarfoo.pkg=00\n";
    facts.bufferFiles = {{"foo.zip", 10}, {"barfoo.zip", 20}};
    const controller::Plan plan = controller::makePlan({{"cpe:/a:1", "CVE-1"}, {"cpe:/a:2", "CVE-2"}}, facts);
    EXPECT_TRUE(plan.requests.at(0).steps.at(0).file->buffered);
    EXPECT_FALSE(plan.requests.at(1).steps.at(0).file->buffered) << "installing foo.pkg drops its line";
    facts.bufferedList = "foo.pkg=11\n";
    facts.partialFiles = {{"foo.zip", 5}};
    EXPECT_EQ(only("cpe:/a:1", "CVE-1").steps.at(0).file->partialBytes, 5U);
}

TEST_F(ControllerTest, ThePlanWarnsOfSettingsThatAreNotKnown) {
    const std::string ini = fixture.dir / "etc/zelor/zelor.ini";
    writeFile(ini, readFile(ini) + "SpedPercent = 1\n");
    const ControllerRun reported = on("plan", {{"cpe:/o:apple:mac_os_x", "CCE-1"}});
    EXPECT_THAT(reported.out, HasSubstr("[Buffer] SpedPercent is not a known key"));
    EXPECT_THAT(readFile(fixture.dir / "var/log/zelor/remediation.log"),
                HasSubstr("nearest one is [Buffer] SpeedPercent"));
}

}  // namespace
}  // namespace zelor::test

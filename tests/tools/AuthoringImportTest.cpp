#include <boost/filesystem/operations.hpp>
#include <nlohmann/json.hpp>

#include "authoring/import/MscpRules.h"
#include "authoring/import/RuleScript.h"
#include "authoring/import/XccdfRules.h"
#include "authoring/import/YamlTree.h"
#include "tools/AuthoringFixture.h"

namespace zelor::authoring {
namespace {

using test::contentTool;
using test::readFile;
using test::ToolRun;
using test::writeFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A rule of the first layout, whose check looks at the file `state`.
std::string firstLayout(const std::string& fix, const std::string& more = "") {
    return R"(id: light_switch
title: Turn the light to $ODV
check: |
  /bin/cat state
result:
  integer: $ODV
fix: |
  Run this:
  [source,bash]
  ----
  )" + fix +
           R"(
  ----
references:
  cce:
    - CCE-90001-1
macOS:
  - "15.0"
odv:
  hint: a number
  recommended: 3
  level_one: 5
tags:
  - level_one
mobileconfig: false
mobileconfig_info:
)" + more;
}

/// A rule of the second layout, where macOS 14 has a check of its own.
const std::string kSecondLayout = R"(id: door_close
title: Close the door
references:
  nist:
    cce:
      macos_15: [CCE-90002-9]
      macos_14: [CCE-90003-7]
platforms:
  macOS:
    '15.0':
      benchmarks:
        - name: level_one
    '14.0':
      enforcement_info:
        check:
          shell: echo fourteen
          result: {boolean: True}
    enforcement_info:
      check:
        shell: cat door
        result: {string: shut}
      fix:
        shell: echo shut > door
)";

struct ImportTest : test::Authoring {
    std::string out = dir / "out", rules = dir / "rules";

    ToolRun mscp(std::vector<std::string> more = {}) {
        more.insert(more.begin(), {"import", "mscp", rules, "--os", "15", "--out", out});
        return contentTool(more);
    }
    ToolRun xccdf(const std::string& xml, std::vector<std::string> more = {}) {
        writeFile(dir / "stream.xml", xml);
        more.insert(more.begin(), {"import", "xccdf", dir / "stream.xml", "--out", out});
        return contentTool(more);
    }
    int runScript(const std::string& identifier) const { return runFile("scripts/" + identifier + ".bsh"); }
    int runFile(const std::string& name) const {
        const std::string script = out + '/' + name;
        const int status = std::system(
            ("cd '" + dir.path().string() + "' && bash '" + script + "' >output 2>errors").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    nlohmann::json json(const std::string& name) const {
        return nlohmann::json::parse(readFile(out + "/" + name));
    }
    static ImportedRule rule(const std::string& yaml, const MscpChoice& choice = {"15", ""}) {
        const auto file = parseYaml(yaml);
        return mscpRule(file ? *file : YamlNode(), "file.yaml", choice);
    }
};

TEST_F(ImportTest, AScriptChecksFixesAndChecksAgain) {
    struct Case {
        const char* name;
        std::string state, fix;
        int status;
        std::string errors;
    };
    const Case cases[] = {
        {"holds already", "3", "echo touched > touched", 0, ""},
        {"fixed", "1", "echo $ODV > state", 0, ""},
        {"fixed by a fix that fails", "1", "echo $ODV > state; exit 9", 0, ""},
        {"fix without effect", "1", "true", 1, "light_switch: found \"1\", expected \"3\"\n"},
        {"undone", "3x", "echo \"it's off\" > state; exit 0", 1,
         "light_switch: found \"it's off\", expected \"3\"\n"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        writeFile(rules + "/light.yaml", firstLayout(each.fix));
        writeFile(dir / "state", each.state + "\n");
        ASSERT_EQ(mscp().status, 0);
        EXPECT_EQ(runScript("CCE-90001-1"), each.status);
        EXPECT_EQ(readFile(dir / "errors"), each.errors);
        EXPECT_FALSE(boost::filesystem::exists(dir / "touched"));
    }
}

TEST_F(ImportTest, BothLayoutsBecomeEntriesThatPublishAndCheckCleanly) {
    writeFile(rules + "/rules/a/light.yaml", firstLayout("echo $ODV > state"));
    writeFile(rules + "/rules/b/door.yml", kSecondLayout);
    writeFile(rules + "/baselines/other.yaml", "- not: looked at\n");
    const ToolRun run = mscp({"--benchmark", "level_one"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, AllOf(HasSubstr("light_switch"), HasSubstr("CCE-90002-9"),
                               HasSubstr("2 rules imported, 0 left out\n")));
    const auto entries = json("manifest.json");
    ASSERT_EQ(entries.size(), 2U);
    const auto& eri = entries[0]["cres"][0]["eris"][0];
    EXPECT_EQ(entries[0]["identifier"], "CCE-90001-1");
    EXPECT_EQ(eri["id"], "ERI-CCE-90001-1-1");
    EXPECT_EQ(eri["instructions"], "Rule light_switch: Turn the light to 5");
    EXPECT_THAT(readFile(out + "/scripts/CCE-90001-1.bsh"), HasSubstr("echo 5 > state"));
    const ToolRun mistyped = mscp({"--benchmark", "level_0ne"});
    EXPECT_EQ(mistyped.status, 1);
    EXPECT_THAT(mistyped.out, HasSubstr("Nothing was written"));
    EXPECT_EQ(json("manifest.json"), entries);
    const ToolRun published = contentTool(
        {"publish", out + "/manifest.json", "--key", privateKey, "--out", repository, "--strict"});
    EXPECT_EQ(published.status, 0) << published.err;
    EXPECT_THAT(check().out, HasSubstr("2 entries, 4 patches: 0 errors, 0 warnings"));
}

TEST_F(ImportTest, ASystemHasItsOwnCheckAndIdentifierAndTheCommonFix) {
    const ImportedRule fifteen = rule(kSecondLayout), fourteen = rule(kSecondLayout, {"14", ""});
    EXPECT_THAT(fifteen.identifiers, ElementsAre("CCE-90002-9"));
    EXPECT_THAT(fifteen.script, HasSubstr("cat door"));
    EXPECT_THAT(fourteen.identifiers, ElementsAre("CCE-90003-7"));
    EXPECT_THAT(fourteen.script, AllOf(HasSubstr("echo fourteen"), HasSubstr("expected='true'"),
                                       HasSubstr("echo shut > door"), Not(HasSubstr("cat door"))));
}

std::string replaced(std::string text, const std::string& old, const std::string& with) {
    const auto at = text.find(old);
    EXPECT_NE(at, std::string::npos) << old;
    return at == std::string::npos ? text : text.replace(at, old.size(), with);
}

TEST_F(ImportTest, ACheckSaysWhetherTheRuleHoldsAndChangesNothing) {
    struct Case {
        const char* check;
        std::string state;
        int status;
    };
    const Case cases[] = {{"/bin/cat state", "3", 0},
                          {"/bin/cat state", "4", 1},
                          {"/usr/bin/grep -c . state", "", 1},
                          {"exit $(/bin/cat state)", "9", 1},
                          {"/usr/bin/no-such-command", "3", 127},
                          {"kill -9 $BASHPID", "3", 137}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.check + each.state);
        writeFile(rules + "/light.yaml",
                  replaced(firstLayout("echo $ODV > state; touch ran"), "/bin/cat state", each.check));
        writeFile(dir / "state", each.state);
        ASSERT_EQ(mscp().status, 0);
        EXPECT_EQ(runFile("checks/CCE-90001-1-check.bsh"), each.status);
        EXPECT_EQ(readFile(dir / "state"), each.state);
        EXPECT_FALSE(boost::filesystem::exists(dir / "ran"));
    }
    EXPECT_EQ(json("manifest.json")[0]["cres"][0]["eris"][0]["check"], "checks/CCE-90001-1-check.bsh");
}

TEST_F(ImportTest, AChangedCheckIsAChange) {
    writeFile(rules + "/light.yaml", firstLayout("true"));
    EXPECT_THAT(mscp().out, HasSubstr("1 rule has a check"));
    auto report = json("import.json");
    report["entries"]["CCE-90001-1"]["check"] = std::string(64, '0');  // of a check with another text
    writeFile(out + "/import.json", report.dump());
    EXPECT_THAT(mscp().out, HasSubstr("1 changed, 0 gone"));
    EXPECT_EQ(json("manifest.json")[0]["cres"][0]["eris"][0]["id"], "ERI-CCE-90001-1-2");
    EXPECT_THAT(mscp().out, HasSubstr("1 unchanged"));
    writeFile(rules + "/light.yaml", replaced(firstLayout("true"), "CCE-90001-1", "CCE-90009-9"));
    EXPECT_THAT(mscp().out, HasSubstr("gone: CCE-90001-1"));
    EXPECT_FALSE(boost::filesystem::exists(out + "/checks/CCE-90001-1-check.bsh"));
}

TEST_F(ImportTest, WhatCannotBeImportedHasAReason) {
    const std::string first = firstLayout("true");
    struct Case {
        const char* name;
        std::string yaml, reason;
        MscpChoice choice{"15", ""};
    };
    const Case cases[] = {
        {"no rule", "name: x\n", "no rule"},
        {"a list", "- id\n", "no rule"},
        {"another system", first, "not for macOS 14", {"14", ""}},
        {"another system, second layout", kSecondLayout, "not for macOS 13", {"13", ""}},
        {"another benchmark", first, "not in the benchmark level_two", {"15", "level_two"}},
        {"another benchmark, second layout", kSecondLayout, "benchmark level_two", {"15", "level_two"}},
        {"profile", replaced(first, "mobileconfig: false", "mobileconfig: true"), "(mobileconfig)"},
        {"profile with a fix", kSecondLayout + "mobileconfig_info: [{PayloadType: x}]\n", "(mobileconfig)"},
        {"DDM",
         replaced(kSecondLayout, "shell: echo shut > door", "additional_info: x") + "ddm_info: {a: b}\n",
         "(DDM)"},
        {"a sentence as fix", replaced(first, "[source,bash]", "Ask"), "no fix"},
        {"two fixes", replaced(first, "Run this:", "[source,bash]"), "several blocks"},
        {"fix without end", replaced(first, "[source,bash]\n  ----", "[source,bash]\n  do"), "unknown form"},
        {"no CCE", replaced(first, "CCE-90001-1", "N/A"), "no CCE"},
        {"CCE as path", replaced(first, "CCE-90001-1", "CCE-../../x-1"), "no CCE"},
        {"no check", replaced(first, "check: |", "checked: |"), "no check"},
        {"check of another form", replaced(kSecondLayout, "shell: cat door", "shell: [a, b]"),
         "check is of an unknown"},
        {"no result", replaced(first, "result:", "results:"), "no result"},
        {"unknown result", replaced(first, "integer: $ODV", "regex: x"), "unknown type: regex"},
        {"two results", replaced(first, "integer: $ODV", "integer: 1\n  string: 1"), "unknown form"},
        {"no value", replaced(first, "recommended: 3", "other: 3"), "no value for $ODV"},
        {"zsh", firstLayout("a=(1 2); for i in $a; do :; done"), "zsh"},
        {"carriage return", replaced(kSecondLayout, "cat door", "\"cat \\r door\""), "carriage return"},
        {"reordered text", replaced(kSecondLayout, "cat door", "\"cat \\u202e door\""), "reorders"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        const ImportedRule found = rule(each.yaml, each.choice);
        EXPECT_THAT(found.reason, HasSubstr(each.reason));
        EXPECT_EQ(found.script.empty(), !each.reason.empty());
    }
    writeFile(rules + "/bad.yaml", firstLayout("if true; then"));
    writeFile(rules + "/ends.yaml", firstLayout("true\n  )\n  exit 0\n  (true"));
    writeFile(rules + "/same.yaml", firstLayout("true"));
    writeFile(rules + "/twice.yaml", firstLayout("true"));
    writeFile(rules + "/torn.yaml", "a: [");
    const ToolRun run = mscp();
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, AllOf(HasSubstr("bash cannot parse the script"),
                               HasSubstr("an earlier rule has its identifier: light_switch"),
                               HasSubstr("torn.yaml"), HasSubstr("1 rule imported, 4 left out")));
    EXPECT_EQ(json("import.json")["rules"].size(), 5U);
}

TEST_F(ImportTest, HostileYamlIsRefused) {
    std::string deep;
    for (int i = 0; i < 100'000; ++i)
        deep += "[";
    std::string names;
    for (int i = 0; i < 2000; ++i)
        names += "n" + std::to_string(i) + ": 1\n";
    struct Case {
        std::string yaml, reason;
    };
    const Case cases[] = {
        {"a: &a [x, x]\n", "anchor"},
        {"a: *b\n", "anchor"},
        {deep, "32 levels"},
        {"a: 1\na: 2\n", "\"a\" a second time"},
        {names, "1,000 names"},
        {"a: !x y\n", "tag"},
        {"a: 1\n---\nb: 2\n", "second document"},
        {"a: \xff\n", "UTF-8"},
        {std::string("\xff\xfe\141\0", 4), "UTF-8"},
        {"[a]: b\n", "no text"},
        {std::string(2U << 20U, 'x'), "1 MiB"},
        {"a: [\n", "line"},
        {"a: \"\x1b[2J\"\n", "control character"},
        {"", "empty"},
    };
    for (const auto& [yaml, reason] : cases) {
        const auto parsed = parseYaml(yaml);
        ASSERT_FALSE(parsed) << reason;
        EXPECT_THAT(parsed.error().text, HasSubstr(reason));
    }
}

TEST_F(ImportTest, HostileValuesNeverBecomeCommands) {
    const std::string hostile = "a' \"; touch ran; $(touch ran) `touch ran` \\\n-e $HOME";
    CheckedRule checked{"r", "cat state", "$ODV", "printf %s \"$ODV\" > state", hostile, true};
    struct Case {
        const char* fix;
        bool imported;
    };
    const Case cases[] = {
        {"printf %s \"$ODV\" > state", true},
        {"printf %s $ODV > state", true},
        {"x=$(printf %s \"$ODV\"); printf %s \"$x\" > state", true},
        {"echo '$ODV' > state", false},
        {"awk \"BEGIN { print $ODV }\" > state", false},
        {"[[ $ODV -eq 1 ]]", false},
        {"echo $(( $ODV ))", false},
        {"eval \"echo $ODV\"", false},
        {"cat << END > state\n$ODV\nEND", false},
        {"echo `echo $ODV`", false},
        {"bash -c \"echo $ODV\"", false},
        {"[ \"$ODV\" = x ] || printf %s $ODV > state", true},
        {"awk \\\n $ODV", false},
        {"a=/usr/bin/awk\n$a $ODV", false},
        {"a=ls; $a $ODV", false},
        {"echo $ODV | bash", false},
        {"x=$ODV; echo ${!x}", false},
        {"x[$ODV]=1", false},
        {"echo ${x:$ODV}", false},
        {"[ -v $ODV ]", false},
        {"printf -v $ODV 1", false},
        {"trap $ODV EXIT", false},
        {"if $ODV; then :; fi", false},
        {"$ODV", false},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.fix);
        checked.fix = each.fix;
        const auto scripts = checkedScripts(checked);
        ASSERT_EQ(scripts.has_value(), each.imported);
        if (!scripts) continue;
        writeFile(dir / "script", scripts->script);
        writeFile(dir / "check", scripts->check);
        writeFile(dir / "state", "other");
        EXPECT_EQ(shell("bash check 2>/dev/null"), 1);
        EXPECT_EQ(shell("bash script && bash check"), 0);
        EXPECT_EQ(readFile(dir / "state"), hostile);
        EXPECT_FALSE(boost::filesystem::exists(dir / "ran"));
    }
    for (const char* simple : {"900", "-1", "on", "a.b,c:d@e"}) {
        const auto filled = filledIn("awk '{ if ($1 <= $ODV) print }'", simple);
        EXPECT_EQ(*filled, "awk '{ if ($1 <= " + std::string(simple) + ") print }'");
    }
}

TEST_F(ImportTest, WhatIsUnfitOrGrowsTooLargeIsLeftOut) {
    std::string uses, identifiers;
    for (int i = 0; i < 60'000; ++i)
        uses += "$ODV";
    for (int i = 0; i < 101; ++i)
        identifiers += "\n    - CCE-" + std::to_string(1000 + i) + "-1";
    const std::string one = firstLayout("echo $ODV > state");
    const std::pair<std::string, const char*> cases[] = {
        {replaced(one, "recommended: 3", "recommended: \"a\\eb\""), "value of $ODV has a control character"},
        {replaced(one, "recommended: 3", "recommended: \"a\\u202eb\""),
         "value of $ODV has a mark that reorders"},
        {replaced(one, "integer: $ODV", "string: \"a\\0b\""), "result has a control character"},
        {replaced(one, "integer: $ODV", "string: \"\\n\""), "result is empty"},
        {replaced(one, "recommended: 3", "recommended: " + std::string(5000, 'a')), "larger than 4 KiB"},
        {replaced(firstLayout("echo " + uses), "recommended: 3", "recommended: 1234567890"),
         "256 KiB with its value"},
        {replaced(one, "    - CCE-90001-1", identifiers.substr(1)), "more than 100 CCE identifiers"},
    };
    for (const auto& [yaml, reason] : cases)
        EXPECT_THAT(rule(yaml).reason, HasSubstr(reason));
    EXPECT_THAT(rule(replaced(one, "integer: $ODV", "string: |\n    $ODV\n")).script,
                HasSubstr("expected='3'\n"))
        << "bash drops the line ends of what it found";
    const std::string own = replaced(kSecondLayout, "          shell: echo fourteen\n", "");
    EXPECT_THAT(rule(own, {"14", ""}).script, AllOf(HasSubstr("cat door"), HasSubstr("expected='true'")))
        << "a version may have a result of its own for the common check";
}

/// A data stream with these rules, a value and three profiles.
std::string stream(const std::string& rules, const std::string& before = "") {
    return before + R"(<ds:data-stream-collection xmlns:ds="http://scap.nist.gov/schema/scap/source/1.2">
<ds:component id="c"><x:Benchmark xmlns:x="http://checklists.nist.gov/xccdf/1.2" id="xccdf_t_benchmark_B">
<x:platform idref="cpe:/o:example:system:1"/>
<x:Profile id="xccdf_t_profile_base"><x:select idref="in_group" selected="true"/>
<x:refine-value idref="v" selector="large"/></x:Profile>
<x:Profile id="xccdf_t_profile_set" extends="xccdf_t_profile_base"><x:set-value idref="v">given</x:set-value></x:Profile>
<x:Profile id="xccdf_t_profile_wrong"><x:refine-value idref="v" selector="none"/></x:Profile>
<x:Profile id="xccdf_t_profile_loop" extends="xccdf_t_profile_loop"/>
<x:Value id="v"><x:title>The value</x:title><x:value selector="large">9</x:value><x:value>1 &lt; 2</x:value></x:Value>
<x:Group id="g">)" +
           rules + R"(</x:Group></x:Benchmark></ds:component></ds:data-stream-collection>)";
}

std::string xccdfRule(const std::string& id, const std::string& cce, const std::string& fix,
                      const std::string& attributes = "") {
    return "<x:Rule id=\"" + id + "\" " + attributes + "><x:title>Rule <b>of</b>\n" + id +
           "</x:title><x:ident system=\"https://nvd.nist.gov/cce/index.cfm\">" + cce +
           "</x:ident><x:fix system=\"urn:xccdf:fix:script:sh\" reboot=\"true\">" + fix + "</x:fix></x:Rule>";
}

TEST_F(ImportTest, AProfileChoosesRulesAndValues) {
    const std::string sub = "echo '<x:sub idref=\"v\" use=\"legacy\"/>' <x:sub idref=\"v\" use=\"title\"/>";
    const std::string xml = stream(xccdfRule("in_group", "CCE-1-1", sub, "selected=\"false\"") +
                                   xccdfRule("own", "CCE-2-2", "true", "selected=\"false\"") +
                                   xccdfRule("default", "CCE-3-3", sub));
    struct Case {
        const char* profile;
        std::size_t rules;
        const char* text;
    };
    const Case cases[] = {{"", 3, "echo '1 < 2' The value\n"},
                          {"base", 2, "echo '9' The value\n"},
                          {"xccdf_t_profile_set", 2, "echo 'given' The value\n"}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.profile);
        const auto set = readXccdfRules(xml, each.profile);
        ASSERT_TRUE(set);
        EXPECT_EQ(set->product, "cpe:/o:example:system:1");
        EXPECT_EQ(std::count_if(set->rules.begin(), set->rules.end(),
                                [](const ImportedRule& rule) { return rule.reason.empty(); }),
                  static_cast<std::ptrdiff_t>(each.rules));
        EXPECT_THAT(set->rules[0].script, HasSubstr(each.text));
        EXPECT_TRUE(set->rules[0].reboot);
    }
    EXPECT_THAT(readXccdfRules(xml, "wrong")->rules[2].reason, HasSubstr("no such choice: v, none"));
    EXPECT_THAT(readXccdfRules(xml, "wrong")->rules[1].reason, HasSubstr("does not select"));
    EXPECT_THAT(readXccdfRules(xml, "loop").error().text, HasSubstr("16"));
    EXPECT_THAT(readXccdfRules(xml, "cis").error().text, HasSubstr("no profile \"cis\""));
}

TEST_F(ImportTest, RulesOfXccdfThatCannotBeImportedHaveAReason) {
    const std::string fix = "<x:fix system=\"urn:xccdf:fix:script:sh\">true</x:fix>";
    std::string subs = "<x:sub idref=\"v\"/>";
    while (subs.size() < 1'500'000)
        subs += subs;
    const std::string large =
        "<x:Value id=\"l\"><x:value>" + std::string(300'000, 'a') + "</x:value></x:Value>";
    const auto set = readXccdfRules(
        stream(large + xccdfRule("a", "CVE-1", "true") +
               xccdfRule("b", "CCE-1-1", "<x:instance context=\"c\"/>") +
               xccdfRule("c", "CCE-1-2", "<x:sub idref=\"w\"/>") + "<x:Rule id=\"d\"/>" +
               "<x:Rule id=\"e\">" + fix + fix + "</x:Rule>" +
               xccdfRule("f", "CCE-1-3", "true", "extends=\"a\"") + xccdfRule("g", "CCE-1-4", " ") +
               xccdfRule("h", "CCE-1-5", subs) + xccdfRule("i", "CCE-1-6", "<x:sub idref=\"l\"/>")),
        "");
    ASSERT_TRUE(set);
    const char* reasons[] = {"no CCE",   "unknown element", "unknown value: w",
                             "no fix",   "several fixes",   "extends",
                             "is empty", "fix is larger",   "value of its fix is larger"};
    for (std::size_t i = 0; i < std::size(reasons); ++i)
        EXPECT_THAT(set->rules[i].reason, HasSubstr(reasons[i]));
}

TEST_F(ImportTest, AFixThatIsNotApplicableHasAStatusOfItsOwn) {
    const std::pair<const char*, int> cases[] = {{"if false; then true; else\n    &gt;&amp;2 echo "
                                                  "'Remediation is not applicable, nothing was done'\nfi\n",
                                                  77},
                                                 {"echo 'This is not applicable here' &gt; file\n", 0},
                                                 {"echo done | cat; exit 4", 4},
                                                 {"false", 1}};
    for (const auto& [fix, status] : cases) {
        ASSERT_EQ(xccdf(stream(xccdfRule("r", "CCE-7-7", fix))).status, 0);
        EXPECT_EQ(runScript("CCE-7-7"), status) << fix;
    }
    EXPECT_TRUE(json("manifest.json")[0]["cres"][0]["eris"][0]["reboot"]);
    EXPECT_EQ(json("manifest.json")[0]["cres"][0]["eris"][0]["instructions"], "Rule r: Rule of r");
}

TEST_F(ImportTest, HostileDataStreamsAreRefused) {
    const std::string good = stream("");
    std::string deep;
    for (int i = 0; i < 1000; ++i)
        deep += "<g>";
    const std::string entities = "<!DOCTYPE x [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;\">]>";
    const std::pair<std::string, const char*> cases[] = {
        {stream("", entities), "document type"},
        {stream("", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>"), "iso-8859-1"},
        {good + std::string(1, '\0'), "zero byte"},
        {replaced(good, "xccdf/1.2", "xccdf/1.1"), "not XCCDF 1.2"},
        {"<a/>", "0 benchmarks"},
        {good.substr(0, good.size() / 2), "malformed XML"},
        {"<g>" + deep, "malformed"},
        {std::string(5'000'000, '<'), "4,000,000 tags"},
        {std::string(kDataStreamBytesLimit + 1, ' '), "64 MiB"}};
    for (const auto& [xml, reason] : cases) {
        const auto set = readXccdfRules(xml, "");
        ASSERT_FALSE(set) << reason;
        EXPECT_THAT(set.error().text, HasSubstr(reason));
    }
    EXPECT_EQ(xccdf("<a/>").status, 2);
    EXPECT_FALSE(boost::filesystem::exists(out));
}

TEST_F(ImportTest, ANewerReleaseGivesChangedScriptsNewIdsThatWereNeverUsed) {
    const auto release = [&](const std::string& fixes) { return xccdf(stream(fixes)).out; };
    const auto id = [&](std::size_t entry) {
        return json("manifest.json")[entry]["cres"][0]["eris"][0]["id"].get<std::string>();
    };
    const std::string one = xccdfRule("one", "CCE-1-1", "true"), two = xccdfRule("two", "CCE-2-2", "true");
    EXPECT_THAT(release(one + two),
                AllOf(Not(HasSubstr("Since the last import")), HasSubstr("No rule has a check")));
    EXPECT_THAT(release(one + two), HasSubstr("0 new, 0 changed, 0 gone, 2 unchanged"));
    EXPECT_THAT(release(xccdfRule("one", "CCE-1-1", "false")),
                AllOf(HasSubstr("0 new, 1 changed, 1 gone, 0 unchanged"), HasSubstr("new ERI id: CCE-1-1\n"),
                      HasSubstr("gone: CCE-2-2\n")));
    EXPECT_EQ(id(0), "ERI-CCE-1-1-2");
    EXPECT_FALSE(boost::filesystem::exists(out + "/scripts/CCE-2-2.bsh"));
    // The older texts come back, one of them after it was gone: neither gets back the id of another text.
    EXPECT_THAT(release(one + two), HasSubstr("1 new, 1 changed, 0 gone, 0 unchanged"));
    EXPECT_EQ(id(0), "ERI-CCE-1-1-3");
    EXPECT_EQ(id(1), "ERI-CCE-2-2-1");
}

TEST_F(ImportTest, AnotherManifestOrSourceIsNotReplaced) {
    writeFile(out + "/manifest.json", "[]");
    writeFile(rules + "/light.yaml", firstLayout("true"));
    EXPECT_THAT(mscp().err, HasSubstr("is not from an import"));
    boost::filesystem::remove(out + "/manifest.json");
    EXPECT_EQ(mscp().status, 0);
    const ToolRun other = xccdf(stream(xccdfRule("r", "CCE-1-1", "true")));
    EXPECT_EQ(other.status, 2);
    EXPECT_THAT(other.err, HasSubstr("holds an import of \"mscp macOS 15\""));
    writeFile(out + "/import.json", R"({"source": "mscp macOS 15", "entries": {"CCE-../x-1": {"number": 1,
        "sha256": "", "current": true}}})");
    EXPECT_THAT(mscp().err, HasSubstr("none of an import"));
    EXPECT_THAT(contentTool({"import", "mscp", dir / "none", "--os", "15", "--out", out}).err,
                HasSubstr("name the rules' directory"));
    EXPECT_EQ(contentTool({"import", "mscp", rules, "--os", "../15", "--out", out}).status, 2);
}

}  // namespace
}  // namespace zelor::authoring

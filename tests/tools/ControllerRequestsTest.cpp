#include "controller/InputError.h"
#include "controller/requests/RequestMaker.h"
#include "tests/tools/ControllerFixture.h"

namespace zelor::controller {
namespace {

using testing::HasSubstr;

/// One line for each request and for each finding that is left out.
std::string made(const std::string& text, const KnownRules& known = {}, const std::string& platform = "",
                 const std::string& product = "") {
    const auto scan = readScan(text, known);
    if (!scan) return "failure: " + scan.error().text;
    RequestMaker maker(platform, product);
    maker.add(*scan, "f");
    std::string lines;
    for (const auto& [key, identifier] : maker.requests())
        lines += key + " = " + identifier + '\n';
    for (const LeftOut& out : maker.leftOut())
        lines += out.source + " - " + out.reason + '\n';
    return lines + std::to_string(scan->passed) + " passed, " + std::to_string(maker.merged()) + " merged";
}

std::string rule(const std::string& id, const std::string& title, const std::string& cces = "") {
    return "<Rule id='" + id + "'><title>" + title + "</title>" + cces + "</Rule>";
}
std::string cce(const std::string& identifier) {
    return "<ident system='https://nvd.nist.gov/cce/index.cfm'>" + identifier + "</ident>";
}
std::string result(const std::string& id, const std::string& value, const std::string& cces = "") {
    return "<rule-result idref='" + id + "'><result>" + value + "</result>" + cces + "</rule-result>";
}
std::string testResult(const std::string& results, const std::string& target = "mac-7",
                       const std::string& end = "2026-11-21T10:00:00Z") {
    return "<TestResult end-time='" + end +
           "' xmlns='http://checklists.nist.gov/xccdf/1.2'><benchmark id='b'/><target>" + target +
           "</target>" + results + "</TestResult>";
}
std::string benchmark(const std::string& content,
                      const std::string& platforms = "<platform idref='cpe:/o:x:y'/>",
                      const std::string& id = "b") {
    return "<Benchmark id='" + id + "' xmlns='http://checklists.nist.gov/xccdf/1.2'>" + platforms + content +
           "</Benchmark>";
}

TEST(Requests, AreMadeFromXccdfResults) {
    struct Case {
        const char* name;
        std::string text;
        std::string expected;
    };
    const std::string rules = rule("r1", "One", cce("CCE-1-1")) + "<Group>" + rule("r2", "Two") + "</Group>";
    const std::string fails = result("r1", "fail") + result("r2", "pass");
    const std::vector<Case> cases = {
        {"the benchmark's identifier", benchmark(rules + testResult(fails)),
         "cpe:/o:x:y||One = CCE-1-1\n1 passed, 0 merged"},
        {"the result's own platform, of CPE 2.3",
         benchmark(rules +
                   testResult("<platform idref='#ref'/><platform idref='cpe:2.3:o:x:z:15:*:*:*:*:*:*:*'/>"
                              "<platform idref='cpe:/a:p:q'/>" +
                              fails)),
         "cpe:/o:x:z:15,cpe:/a:p:q||One = CCE-1-1\n1 passed, 0 merged"},
        {"a report in ARF",
         "<arf:x xmlns:arf='urn:arf'>" + benchmark(rule("r1", "Other"), "", "c") + benchmark(rules) +
             testResult(fails) + "</arf:x>",
         "cpe:/o:x:y||One = CCE-1-1\n1 passed, 0 merged"},
        {"the last of several results",
         benchmark(rules + testResult(result("r1", "pass"), "m", "2026-11-21T11:00:00Z") +
                   testResult(fails, "m")),
         "1 passed, 0 merged"},
        {"no platform",
         benchmark(testResult(result("r1", "fail", cce("CCE-1-1"))), "<platform idref='cpe:/h:x'/>"),
         "f: rule r1 - no CPE of an operating system or application is known for it; give --platform or "
         "--product\n0 passed, 0 merged"},
        {"what is no failure",
         benchmark(testResult(result("a", "error") + result("b", "notchecked") +
                              result("c", "fail", cce("CCE-x")) + result("d", "fixed") +
                              result("e", "notselected"))),
         "f: rule a - the scan does not say whether it fails: its result is error\n"
         "f: rule b - the scan does not say whether it fails: its result is notchecked\n"
         "f: rule c - it has no CCE identifier\n2 passed, 0 merged"},
        {"keys of their own",
         benchmark(rule("a", "Same", cce("CCE-1-1") + cce("CCE-2-2")) + rule("b", "Same", cce("CCE-3-3")) +
                   rule("c", "Again", cce("CCE-3-3")) + rule("d", "", cce("CCE-4-4")) +
                   rule("e", "\n x||y \t OVAL: oval:1 ]]&gt; &#x1b;\"") +
                   testResult(result("a", "fail") + result("b", "fail") + result("c", "fail") +
                              result("d", "fail") + result("e", "fail", cce("CCE-5-5")))),
         "cpe:/o:x:y||CCE-4-4 = CCE-4-4\ncpe:/o:x:y||Same = CCE-1-1\ncpe:/o:x:y||Same (CCE-2-2) = CCE-2-2\n"
         "cpe:/o:x:y||Same (CCE-3-3) = CCE-3-3\ncpe:/o:x:y||x|y OVAL: oval 1 ]]> ?\" = CCE-5-5\n0 passed, 1 "
         "merged"},
        {"several machines", benchmark(testResult(fails) + testResult(fails, "mac-8")),
         "failure: it has results of several machines; split it"},
        {"no results", benchmark(rules), "failure: it has no results of a scan; name XCCDF or ARF results"},
        {"another XCCDF", "<TestResult xmlns='http://checklists.nist.gov/xccdf/1.1'/>",
         "failure: its results are not XCCDF 1.2 (http://checklists.nist.gov/xccdf/1.2)"},
        {"an entity", "<!DOCTYPE a [<!ENTITY e 'x'>]>" + benchmark(rules),
         "failure: its document type declares something; leave that out"},
        {"malformed", "\xef\xbb\xbf\n<a>", "failure: line 2: malformed XML: Start-end tags mismatch"},
        {"empty", " \n", "failure: it is empty"}};
    for (const Case& one : cases)
        EXPECT_EQ(made(one.text), one.expected) << one.name;
    std::string deep;
    for (int i = 0; i < 200; ++i)
        deep += "<a>";
    EXPECT_THAT(made(benchmark(deep)), HasSubstr("failure: "));
}

TEST(Requests, AreMadeFromAudits) {
    const std::string type =
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">";
    const auto audit = [](const std::string& rules) {
        return "<plist version='1.0'><dict><key>lastComplianceCheck</key><date>2026-11-21</date>" + rules +
               "</dict></plist>";
    };
    const auto entry = [](const std::string& id, const std::string& members) {
        return "<key>" + id + "</key>\n<dict>" + members + "</dict>";
    };
    const std::string found = "<key>finding</key>\n <true/>";
    const std::string rules = entry("os_a", found + "<key>reference</key><string>CCE-1-1</string>") +
                              entry("os_b", "<key>finding</key><false/>") + entry("os_c", found) +
                              entry("os_d", found + "<key>exempt</key><true/>") + entry("os_e", found);
    KnownRules known;
    ASSERT_TRUE(addKnownRules(
        R"({"rules": [{"rule": "os_c", "title": "Third", "identifiers": ["CCE-3-3", "x"]}]})", known));
    EXPECT_FALSE(addKnownRules("[]", known));
    EXPECT_EQ(
        made(type + audit(rules), known),
        "cpe:/o:apple:mac_os_x||Third = CCE-3-3\ncpe:/o:apple:mac_os_x||os_a = CCE-1-1\nf: rule os_d - it is "
        "exempt\nf: rule os_e - it has no CCE identifier; name the report of zelor-content import with "
        "--rules\n1 passed, 0 merged");
    EXPECT_THAT(made(audit(""), known), HasSubstr("without audited rules"));
    EXPECT_THAT(made("<!DOCTYPE plist [<!ENTITY a 'b'>]>" + audit(rules)), HasSubstr("declares something"));
    EXPECT_THAT(made("bplist00\x01"), HasSubstr("plutil -convert xml1"));
}

TEST(Requests, AreMadeFromLists) {
    const std::string list =
        "# identifiers\nCVE-2014-4459 cpe:/o:x:y,cpe:/a:p:q  Example  Editor\r\n\nCVE-2014-1234 cpe:/a:p:q\n"
        "CVE-2014-1235 cpe:/a:p:q\nCVE-2014-1235 cpe:/a:p:q again\nCVE-2014-1236\nCCE-1-1 "
        "cpe:/o:x:y\nCVE-1\n";
    EXPECT_EQ(made(list),
              "cpe:/a:p:q||CVE-2014-1234 = CVE-2014-1234\ncpe:/a:p:q||CVE-2014-1235 = CVE-2014-1235\n"
              "cpe:/o:x:y,cpe:/a:p:q||Example Editor = CVE-2014-4459\ncpe:/o:x:y||CCE-1-1 = CCE-1-1\n"
              "f: line 7 - no CPE of an operating system or application is known for it; give --platform or "
              "--product\nf: line 9 - it begins with no CVE or CCE identifier: CVE-1\n0 passed, 1 merged");
    EXPECT_EQ(made("CVE-2014-1236 Name", {}, "cpe:/o:x", "cpe:/a:p"),
              "cpe:/o:x,cpe:/a:p||Name = CVE-2014-1236\n0 passed, 0 merged");
    EXPECT_THAT(made("CVE-2014-1236", {}, "cpe:/o:x"), HasSubstr("no product is known"));
}

}  // namespace
}  // namespace zelor::controller

namespace zelor::test {
namespace {

TEST_F(ControllerTest, MakesRequestsThatARunTakes) {
    const std::string list = fixture.dir / "list", bad = fixture.dir / "bad";
    writeFile(list, "CVE-2014-4459 cpe:/a:p:q \"Editor\" \\\n");
    writeFile(bad, "no identifier");
    const ControllerRun run = controller({"requests", list, "--out", requests});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err,
              "1 request, 0 left out, 0 merged into an earlier one; 0 rules passed or not applicable\n");
    EXPECT_EQ(nlohmann::json::parse(readFile(requests)),
              (nlohmann::json{{"cpe:/a:p:q||\"Editor\" \\", "CVE-2014-4459"}}));
    EXPECT_EQ(at("plan", {}, {requests}).status, 3) << "there is no content for it";
    EXPECT_EQ(controller({"requests", list, bad}).status, 1);
    EXPECT_EQ(controller({"requests", bad}).status, 3);
    for (const std::vector<std::string>& unusable :
         std::vector<std::vector<std::string>>{{"--platform", "cpe:/a:p:q"},
                                               {"--product", "hello"},
                                               {"--out", list},
                                               {"--rules", bad},
                                               {fixture.dir / "none"}}) {
        std::vector<std::string> command = {"requests", list};
        command.insert(command.end(), unusable.begin(), unusable.end());
        EXPECT_EQ(controller(command).status, 2) << unusable.back();
    }
}

}  // namespace
}  // namespace zelor::test

#include <pugixml.hpp>
#include <sstream>

#include "controller/InputError.h"
#include "controller/export/Export.h"
#include "tests/tools/ControllerFixture.h"
#include "tests/tools/JsonSchema.h"

namespace zelor::controller {
namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr char kHostile[] = "cpe:/a:x||]]><&\"'\\\n{}\x01\x1b[31m \xe2\x80\xae \xef\xbf\xbe";

json results(const std::map<std::string, json>& requests) {
    return {{"schema", 1},
            {"version", "1.0.0"},
            {"host", kHostile},
            {"platform", {{"name", kHostile}, {"version", "10.10.5"}, {"cpe", "cpe:/o:apple:mac_os_x"}}},
            {"started", "2026-11-21T10:15:02Z"},
            {"finished", "2026-11-21T10:15:05Z"},
            {"seconds", 3.12},
            {"requests", requests},
            {"rebootNeeded", true},
            {"restartNeededByThisRun", false},
            {"scanNeeded", false},
            {"allFailed", false},
            {"end", "complete"}};
}

json request(unsigned value, const std::string& applied = "") {
    json entry = {{"identifier", "CCE-1-1"}, {"value", value}, {"state", "x"}, {"seconds", 0.5}};
    if (!applied.empty()) entry["applied"] = applied;
    return entry;
}

std::string exported(const json& document, ExportFormat format) {
    std::ostringstream out;
    writeExport(out, parseResults(document.dump(), "r.json"), format);
    return out.str();
}

test::JsonSchema schemaIn(const std::string& file) {
    return test::JsonSchema(json::parse(test::readFile(file)));
}

TEST(Export, GivesEachStateItsResult) {
    struct Case {
        unsigned value;
        std::string applied;
        std::string xccdf;
        int ocsf;
        int severity;
    };
    const test::JsonSchema schema = schemaIn(ZELOR_OCSF_SCHEMA);
    for (const Case& one : std::vector<Case>{{0, "", "unknown", 0, 3},
                                             {3, "", "unknown", 0, 3},
                                             {4, "now", "fixed", 1, 1},
                                             {4, "before", "pass", 1, 1},
                                             {4, "", "unknown", 1, 1},
                                             {5, "now", "fail", 2, 3},
                                             {6, "", "notchecked", 5, 2},
                                             {7, "", "error", 6, 3},
                                             {8, "", "error", 6, 3},
                                             {9, "", "fail", 2, 3},
                                             {10, "", "fail", 2, 3},
                                             {11, "", "fail", 2, 3},
                                             {12, "", "error", 6, 3},
                                             {13, "", "notchecked", 2, 2},
                                             {99, "", "fail", 2, 3}}) {
        SCOPED_TRACE(one.value);
        const json document = results({{"cpe:/o:x||Name", request(one.value, one.applied)}});
        pugi::xml_document xml;
        ASSERT_TRUE(xml.load_string(exported(document, ExportFormat::xccdf).c_str()));
        EXPECT_EQ(xml.select_node("//rule-result/result").node().child_value(), one.xccdf);
        json event = json::parse(exported(document, ExportFormat::ocsf));
        EXPECT_EQ(schema.problem(event), "");
        EXPECT_EQ(event["status_id"], one.ocsf);
        EXPECT_EQ(event["severity_id"], one.severity);
        EXPECT_EQ(event["status_code"], std::to_string(one.value));
        event["status_id"] = 4;
        EXPECT_EQ(schema.problem(event), "$.status_id breaks enum");
    }
}

TEST(Export, EscapesEveryText) {
    json failed = request(13);
    failed["reason"] = failed["identifier"] = kHostile;
    failed["beforeCancel"] = {{"value", 5}, {"state", "failed"}, {"reason", kHostile}};
    json document = results({{kHostile, failed}, {"cpe:/o:y", request(4, "now")}});
    const std::string text = exported(document, ExportFormat::xccdf);
    for (const char* raw : {"]]>", "\x01", "\x1b", "\xe2\x80\xae", "\xef\xbf\xbe"})
        EXPECT_EQ(text.find(raw), std::string::npos) << raw;
    pugi::xml_document xml;
    ASSERT_TRUE(xml.load_string(text.c_str()));
    const std::string shown = "]]><&\"'\\\n{}??[31m ? ?";
    EXPECT_STREQ(xml.select_node("//Rule/description").node().child_value(), ("cpe:/a:x||" + shown).c_str());
    EXPECT_THAT(xml.select_node("//message").node().child_value(), HasSubstr("; before the cancel failed: "));
    std::istringstream lines(exported(document, ExportFormat::ocsf));
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(json::parse(line)["device"]["hostname"], kHostile) << "JSON keeps what it can escape";
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_FALSE(std::getline(lines, line));
    EXPECT_EQ(exported(document, ExportFormat::prometheus).find("content_age"), std::string::npos);
    document["contentSigned"] = "2026-11-20T10:15:05Z";
    const std::string metrics = exported(document, ExportFormat::prometheus);
    EXPECT_THAT(metrics, HasSubstr("\nzelor_remediation_content_age_seconds 86400\n"));
    EXPECT_THAT(metrics, HasSubstr(",host=\"cpe:/a:x||]]><&\\\"'\\\\?{}??[31m ? ?\","));
    EXPECT_THAT(metrics, HasSubstr("requests{state=\"aborted\"} 1\n"));
    EXPECT_THAT(metrics, HasSubstr("requests{state=\"failed\"} 0\n"));
    EXPECT_THAT(metrics, HasSubstr("\nzelor_remediation_last_run_timestamp_seconds 1795256105\n"));
    EXPECT_THAT(metrics, HasSubstr("\nzelor_remediation_last_run_duration_seconds 3.12\n"));
    EXPECT_THAT(metrics, HasSubstr("\nzelor_remediation_reboot_needed 1\n"));
}

TEST(Export, ShowsWhatChecksProve) {
    const std::vector<std::pair<json, std::string>> cases = {
        {true, "check after the run: it holds: why <&>"},
        {false, "check after the run: it does not hold: why <&>"},
        {nullptr, "check after the run: cannot decide whether it holds: why <&>"}};
    const test::JsonSchema schema = schemaIn(ZELOR_OCSF_SCHEMA);
    for (const auto& [verified, message] : cases) {
        json checked = request(4, "now");
        checked["verified"] = verified;
        checked["verifiedReason"] = "why <&>";
        const json document = results({{"cpe:/o:x", checked}});
        pugi::xml_document xml;
        ASSERT_TRUE(xml.load_string(exported(document, ExportFormat::xccdf).c_str()));
        EXPECT_EQ(xml.select_node("//message").node().child_value(), message);
        EXPECT_STREQ(xml.select_node("//rule-result/result").node().child_value(), "fixed");
        const json event = json::parse(exported(document, ExportFormat::ocsf));
        EXPECT_EQ(schema.problem(event), "");
        EXPECT_EQ(event["unmapped"]["verified"], verified);
        const std::string name = verified.is_null() ? "unknown" : verified.dump();
        EXPECT_THAT(exported(document, ExportFormat::prometheus),
                    HasSubstr("verified_requests{verified=\"" + name + "\"} 1\n"));
    }
}

TEST(Export, RefusesWhatIsNoResults) {
    const auto with = [](const char* path, const json& value) {
        json document = results({{"k", request(4)}});
        document[json::json_pointer(path)] = value;
        return document.dump();
    };
    const std::map<std::string, std::string> cases = {
        {"", "byte 1: not valid JSON"},
        {"[]", "the text is not an object"},
        {"[1e999]", "too large"},
        {"{}", "it has no member \"schema\""},
        {with("/schema", 2), "its format is 2, not 1"},
        {with("/requests", json::object()), "it has no requests"},
        {with("/requests", 5), "it has no requests"},
        {with("/requests/k/value", -1), "the request \"k\": \"value\" is not a value"},
        {with("/requests/k/seconds", 1e300), "\"seconds\" is not a number of seconds"},
        {with("/requests/k", json::array()), "the request \"k\" is not an object"},
        {with("/started", "2026-13-21T10:15:02Z"), "\"started\" is not a time"},
        {with("/platform/cpe", nullptr), "\"platform\": \"cpe\" is not a string"}};
    for (const auto& [text, problem] : cases) {
        try {
            parseResults(text, "r.json");
            ADD_FAILURE() << problem;
        } catch (const InputError& e) {
            EXPECT_THAT(e.what(), testing::AllOf(HasSubstr(problem), HasSubstr("r.json")));
        }
    }
    EXPECT_NO_THROW(parseResults(with("/later", 1), "r.json")) << "later versions may add members";
}

}  // namespace
}  // namespace zelor::controller

namespace zelor::test {
namespace {

TEST_F(ControllerTest, ExportsWhenTheRunEndsAndAfterwards) {
    fixture.addScript("CCE-1", "good", "sleep 0.05\n");
    const std::string results = fixture.dir / "results.json", ocsf = fixture.dir / "o.jsonl";
    const nlohmann::json map = {{"cpe:/o:y||Good", "CCE-1"}, {"cpe:/o:z", "CCE-2"}};
    const ControllerRun run =
        on("run", map, {"--json", results, "--export", "ocsf=" + ocsf, "--export=prometheus=-"});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, testing::StartsWith("# HELP zelor_remediation_requests"));
    const ControllerRun later = controller({"export", results, "--format", "ocsf"});
    EXPECT_EQ(later.status, 0) << later.err;
    EXPECT_EQ(later.out, readFile(ocsf));
    const auto event = nlohmann::json::parse(later.out.substr(0, later.out.find('\n')));
    EXPECT_EQ(event["time"].get<long>(), event["start_time"].get<long>() + event["duration"].get<long>());
    EXPECT_GE(event["duration"].get<long>(), 40);

    const std::vector<std::vector<std::string>> refused = {{"--export", "html=x"},
                                                           {"--export", "ocsf="},
                                                           {"--export", "ocsf"},
                                                           {"--export", "xccdf=" + requests},
                                                           {"--export", "ocsf=-", "--json", "-"}};
    for (const auto& options : refused)
        EXPECT_EQ(on("run", map, options).status, 2) << options.back();
    EXPECT_EQ(controller({"export", results, "--format", "xccdf", "--out", results}).status, 2);
    EXPECT_EQ(controller({"export", results, "--format", "html"}).status, 2);
    EXPECT_EQ(controller({"export", requests, "--format", "xccdf"}).status, 2);
    EXPECT_EQ(controller({"export", results, "--format", "xccdf", "--out", "/dev/full"}).status, 2);
}

}  // namespace
}  // namespace zelor::test

#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <sstream>

#include "authoring/fleet/FleetPage.h"
#include "tests/tools/AuthoringFixture.h"

namespace zelor::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

json resultsOf(const std::string& host, const std::string& day, const json& requests) {
    return {{"schema", 1},
            {"version", "1.0.0"},
            {"host", host},
            {"platform", {{"name", "macOS"}, {"version", "15.1"}, {"cpe", "cpe:/o:apple:mac_os_x"}}},
            {"started", "2026-11-" + day + "T10:15:02Z"},
            {"finished", "2026-11-" + day + "T10:15:05Z"},
            {"seconds", 3},
            {"requests", requests},
            {"rebootNeeded", host == "b"},
            {"restartNeededByThisRun", false},
            {"scanNeeded", false},
            {"allFailed", false},
            {"end", "complete"}};
}

json ended(unsigned value, const std::string& identifier, const std::string& reason = "") {
    json entry = {{"identifier", identifier}, {"value", value}, {"state", "x"}, {"seconds", 0.5}};
    if (!reason.empty()) entry["reason"] = reason;
    return entry;
}

struct PageOf {
    ToolRun run;
    std::string text;
    pugi::xml_document document;

    explicit PageOf(const std::vector<std::string>& inputs) {
        std::vector<std::string> arguments = {"fleet"};
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        run = contentTool(arguments);
        text = run.out;
        EXPECT_TRUE(text.empty() || document.load_string(text.c_str(), pugi::parse_full)) << text;
    }
    /// The text of all that an XPath finds, blanks joined.
    std::string at(const std::string& path) const {
        std::string all;
        for (const pugi::xpath_node& node : document.select_nodes(path.c_str()))
            all +=
                (all.empty() ? "" : "|") + std::string(pugi::xpath_query("string(.)").evaluate_string(node));
        return all;
    }
};

TEST(Fleet, MergesTheNewestResultsOfEachMachine) {
    const TempDir dir;
    const auto put = [&](const std::string& name, const json& document) {
        writeFile(dir / name, document.dump());
    };
    json disproved = ended(4, "CVE-3"), warned = ended(4, "CVE-4");
    disproved["verified"] = false;
    disproved["verifiedReason"] = "version 1 is there";
    warned["warning"] = "nothing was installed";
    put("a.json", resultsOf("a", "20",
                            {{"cpe:/o:x||One", ended(5, "CVE-1", "full")},
                             {"cpe:/o:x||Two", ended(12, "CVE-2", "gone")},
                             {"cpe:/o:x||Good", ended(4, "CVE-5")}}));
    put("sub/b.json", resultsOf("b", "21",
                                {{"cpe:/o:x||One", ended(5, "CVE-1", "full")},
                                 {"cpe:/o:x||Two", disproved},
                                 {"cpe:/o:x||Three", warned}}));
    put("sub/old.json", resultsOf("a", "19", {{"cpe:/o:x||Old", ended(13, "CVE-9")}}));
    put("c.json",
        resultsOf("c", "21",
                  {{"cpe:/o:x||One", ended(4, "CVE-1")}, {"cpe:/o:x||Two", ended(13, "CVE-2", "stopped")}}));
    put("notes.txt", "not read");
    const PageOf page({dir.path().string()});
    EXPECT_EQ(page.run.status, 0) << page.run.err;
    EXPECT_EQ(page.at("//h1"), "Remediation of 3 machines");
    EXPECT_EQ(page.at("//div[contains(@class,'count')]"),
              "3machines|0all good|2with "
              "failures|1undecided|8requests|4success|2failed|1file-unavailable|1aborted");
    EXPECT_EQ(page.at("//section[@id='machines']//td[position()<4]"), "b|2|1|a|2|0|c|0|1");
    EXPECT_EQ(page.at("//section[@id='identifiers']//tbody/tr[1]/td"), "CVE-1|2|0|3|full");
    EXPECT_EQ(page.at("//section[@id='identifiers']//tbody/tr/td[1]"), "CVE-1|CVE-2|CVE-3|CVE-4");
    EXPECT_EQ(page.at("//section[@id='restarts']//li"), "b");
    EXPECT_EQ(page.at("//section[@id='days']//td"), "2026-11-21|2|2026-11-20|1");
    EXPECT_THAT(page.at("//ul[@class='flags']"), HasSubstr("1 older result of 1 machine left out"));
    EXPECT_THAT(page.text,
                HasSubstr("Checked after the run: 0 hold, 1 do not hold, 0 cannot be decided, 7 have"));
    EXPECT_EQ(page.at("//*[@id='machine-1']//td[4]"),
              "full|the check says that it does not hold: version 1 is there|nothing was installed");
    EXPECT_EQ(page.at("//*[@id='identifier-1']//td[position()>1]"), "b|One|full|a|One|full");
    for (const pugi::xpath_node& link : page.document.select_nodes("//a/@href")) {
        const std::string target = std::string(link.attribute().value()).substr(1);
        EXPECT_EQ(page.document.select_nodes(("//*[@id='" + target + "']").c_str()).size(), 1U) << target;
    }
}

TEST(Fleet, ListsWhatItCannotRead) {
    const TempDir dir;
    const auto with = [](const char* path, const json& value) {
        json document = resultsOf("a", "20", {{"k", ended(4, "CVE-1")}});
        document[json::json_pointer(path)] = value;
        return document.dump();
    };
    const std::map<std::string, std::pair<std::string, std::string>> cases = {
        {"deep", {std::string(100000, '['), "not valid JSON"}},
        {"empty", {"", "not valid JSON"}},
        {"huge", {with("/seconds", 1).replace(1, 0, "\"x\":1e9999,"), "too large"}},
        {"host", {with("/host", std::string(300, 'h')), "too long"}},
        {"nohost", {with("/host", ""), "\"host\" is empty"}},
        {"type", {with("/requests/k/value", "4"), "is not a value"}},
        {"verified", {with("/requests/k/verified", "yes"), "is not true or false"}},
        {"<b>&\x01", {"[]", "is not an object"}}};
    for (const auto& [name, one] : cases)
        writeFile(dir / (name + ".json"), one.first);
    boost::filesystem::create_symlink("/etc/passwd", dir / "link.json");
    EXPECT_EQ(::mkfifo((dir / "pipe.json").c_str(), 0600), 0);
    writeFile(dir / "large.json", "");
    boost::filesystem::resize_file(dir / "large.json", (32U << 20U) + 1);
    EXPECT_EQ(contentTool({"fleet", dir.path().string()}).status, 2) << "no results at all";
    writeFile(dir / "good.json", with("/host", "<b>\x1b[2J&\"'"));
    const std::string missing = dir / "missing.json";
    const PageOf page({dir.path().string(), missing});
    EXPECT_EQ(page.run.status, 1);
    EXPECT_EQ(page.document.select_nodes("//*[@id='unread']//tbody/tr").size(), cases.size() + 4);
    for (const auto& [name, one] : cases)
        EXPECT_THAT(page.at("//*[@id='unread']//td"), HasSubstr(one.second)) << name;
    for (const char* reason : {"link.json|a symbolic link", "pipe.json is not a regular file",
                               "large.json is larger than", "missing.json: No such file"})
        EXPECT_THAT(page.at("//*[@id='unread']//td"), HasSubstr(reason));
    EXPECT_THAT(page.run.err, HasSubstr(missing));
    for (const char* raw : {"<script", "<b>&", "\x1b", "\x01", "src=", "url("})
        EXPECT_EQ(page.text.find(raw), std::string::npos) << raw;
    const std::string good = dir / "good.json";
    EXPECT_EQ(contentTool({"fleet", good, "--out", good}).status, 2);
    EXPECT_EQ(contentTool({"fleet", good, "--out", dir.path().string()}).status, 2);
    EXPECT_EQ(contentTool({"fleet", good, "--out", dir / "page.html"}).status, 0);
    EXPECT_THAT(readFile(dir / "page.html"), HasSubstr("Remediation of 1 machine"));
}

TEST(Fleet, StaysWithinItsBounds) {
    authoring::Fleet fleet({20000, 3000});
    results::Run run;
    run.end = "complete";
    for (std::size_t i = 0; i < 40; ++i) {
        results::Request request;
        request.key = "cpe:/o:x||P" + std::to_string(i);
        request.identifier = "CVE-" + std::to_string(i);
        request.value = 5;
        request.detail = std::string(5000, 'r') + std::to_string(i);
        run.requests.push_back(request);
    }
    for (int host = 0; host < 200; ++host) {
        run.host = "mac-" + std::to_string(host);
        ASSERT_TRUE(fleet.add(run));
    }
    std::ostringstream out;
    const std::vector<authoring::UnreadFile> unread(2000, {"f.json", "bad"});
    writeFleetPage(out, fleet, unread);
    EXPECT_LT(out.str().size(), std::size_t{2} << 20U);
    for (const char* text : {"and 150 more machines", "and 1500 more files", "there was no room for more",
                             "<b>8000</b><span>failed"})
        EXPECT_THAT(out.str(), HasSubstr(text));
}

}  // namespace
}  // namespace zelor::test

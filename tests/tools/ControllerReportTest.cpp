#include <pugixml.hpp>
#include <sstream>

#include "controller/Text.h"
#include "controller/report/ReportPage.h"
#include "controller/report/ReportTimeline.h"
#include "tests/tools/ControllerFixture.h"

namespace zelor::test {
namespace {

using testing::HasSubstr;

constexpr char kHostile[] = "cpe:/o:x||</td><script>alert('1')</script>\x1b[31m\"& \xe2\x80\xae";

/// Parses the page as XML; fails when it is not well-formed.
pugi::xml_document parsed(const std::string& page) {
    pugi::xml_document document;
    const pugi::xml_parse_result result = document.load_string(page.c_str(), pugi::parse_full);
    EXPECT_TRUE(result) << result.description() << " at "
                        << page.substr(static_cast<std::size_t>(result.offset), 80);
    return document;
}

struct Elements : pugi::xml_tree_walker {
    std::map<std::string, int> count;
    bool for_each(pugi::xml_node& node) override {
        ++count[node.name()];
        return true;
    }
};

TEST_F(ControllerTest, WritesAReport) {
    fixture.addScript("CCE-1", "good", "exit 0\n");
    fixture.addScript("CCE-2", "bad", "printf 'first\\n<b>&\\033[2J ]]> last\\n'; exit 3\n");
    const nlohmann::json map = {{kHostile, "CCE-2"}, {"cpe:/o:y", "CCE-1"}, {"cpe:/o:z", "CCE-<i>"}};
    const std::string file = fixture.dir / "report.html";
    EXPECT_EQ(on("run", map, {"--report", file, "--quiet"}).status, 1);
    const std::string page = readFile(file);
    for (const char* raw : {"<script", "<b>&", "<i>", "\x1b", "\xe2\x80\xae", "href", "src=", "url("})
        EXPECT_EQ(page.find(raw), std::string::npos) << raw;
    const pugi::xml_document document = parsed(page);
    EXPECT_TRUE(document.select_node("//tbody/tr[last()]/td[.='CCE-1']"))
        << "what did not succeed comes first";
    const pugi::xml_node bad = document.select_node("//tbody/tr[td='failed']").node();
    EXPECT_THAT(bad.next_sibling().select_node(".//pre").node().child_value(),
                HasSubstr("first\n<b>&?[2J ]]> last"));
    EXPECT_THAT(bad.select_node("td[@class='reason']").node().child_value(), HasSubstr("exit status 3"));
    EXPECT_EQ(document.select_nodes("//svg[@class='timeline']/g").size(), 3U);
    EXPECT_THAT(page, HasSubstr("<b>3</b><span>requests</span>"));
    EXPECT_THAT(page, HasSubstr("<dt>System</dt><dd>Mac OS X 10.10.5</dd>"));
    EXPECT_THAT(page, HasSubstr("<dt>Program</dt><dd>zelor-remediate "));
    const ControllerRun shown = on("run", map, {"--report", "-"});
    EXPECT_THAT(shown.out, testing::StartsWith("<!DOCTYPE html>"));
    EXPECT_EQ(on("run", map, {"--report", "-", "--json", "-"}).status, 2);
}

TEST(ReportPage, StaysLegibleForManyRequests) {
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{300}, std::size_t{10000}, controller::kReportTableRows + 5}) {
        controller::RequestMap requests;
        for (std::size_t i = 0; i < size; ++i)
            requests.emplace("cpe:/a:" + std::to_string(i), "CVE-1");
        const controller::ResultTable table(requests);
        controller::RunTimeline timeline;
        for (std::size_t i = 0; i < size; ++i) {
            timeline.changed(table, {{i, 1}}, 0.001 * static_cast<double>(i));
            timeline.changed(table, {{i, i % 9 == 0 ? 5UL : 4UL}}, 0.001 * static_cast<double>(i + 1));
        }
        controller::RunReport report{table,
                                     timeline.spans(size),
                                     {true, false, false},
                                     true,
                                     {},
                                     "log",
                                     [](const controller::Result&) { return std::string(); },
                                     [](const controller::Result&) { return controller::Outcome(); }};
        report.facts.seconds = 20;
        report.facts.host = "<host>";
        report.facts.repository = "https://repository.example";
        std::ostringstream page;
        controller::writeReportPage(page, report);
        Elements elements;
        pugi::xml_document document = parsed(page.str());
        document.traverse(elements);
        EXPECT_EQ(elements.count["g"], static_cast<int>(std::min(size, controller::kReportTimelineRows)));
        EXPECT_EQ(elements.count["tr"], static_cast<int>(std::min(size, controller::kReportTableRows)) + 1);
        EXPECT_EQ(elements.count["polygon"], size > controller::kReportTimelineRows ? 3 : 0);
        EXPECT_EQ(page.str().find("most telling") != std::string::npos,
                  size > controller::kReportTimelineRows);
        EXPECT_EQ(page.str().find("The table has") != std::string::npos, size > controller::kReportTableRows);
        EXPECT_THAT(page.str(), HasSubstr("Cancelled by a signal"));
        EXPECT_THAT(page.str(), HasSubstr("https://repository.example"));
        EXPECT_LT(page.str().find("<tbody>"), page.str().find("class=\"timeline\""));
        EXPECT_EQ(page.str().find("<details open") == std::string::npos, size > 40);
    }
}

TEST(ReportPage, MarksTimeInRoundSteps) {
    for (const double seconds : {0.0, 0.0004, 0.4, 1.0, 59.0, 3600.0, 1e7}) {
        const std::vector<double> times = controller::axisTimes(seconds, 8);
        EXPECT_GE(times.size(), 1U);
        EXPECT_LE(times.size(), 8U);
        EXPECT_LE(times.back(), seconds);
    }
    EXPECT_EQ(controller::axisTimes(0.4, 8), (std::vector<double>{0, 0.1, 0.1 * 2, 0.1 * 3, 0.1 * 4}));
    EXPECT_EQ(controller::markupText("a<b\n'&'\t"), "a&lt;b\n&#39;&amp;&#39;?");
}

}  // namespace
}  // namespace zelor::test

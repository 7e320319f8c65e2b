#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "remediation/RemediationManager.h"
#include "remediation/intake/RequestParsing.h"
#include "tests/library/FakeAgent.h"

using zelor::remediation::parseRequestKey;
using zelor::remediation::ProgressKey;

namespace {

using Cpes = std::vector<std::string>;

TEST(RequestKeys, AreTakenApart) {
    struct {
        std::string key;
        bool configuration;
        Cpes cpes;
        std::string package;
    } rows[] = {
        {"cpe:/o:a,cpe:/a:b||Editor", false, {"cpe:/o:a", "cpe:/a:b"}, "Editor"},
        {"cpe:/o:a,||", true, {"cpe:/o:a"}, ""},
        {"cpe:/o:a||ignored", true, {"cpe:/o:a"}, ""},
        {"cpe:/o:a,,cpe:/a:b||x||y", false, {"cpe:/o:a", "cpe:/a:b"}, "x||y"},
        {"cpe:/o:a", false, {"cpe:/o:a"}, ""},
        {"||Editor", false, {}, "Editor"},
        {",||Editor", false, {}, "Editor"},
        {",,,||", true, {}, ""},
        {"a,b,c||", false, {"a", "b", "c"}, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        const auto parsed = parseRequestKey(row.key, row.configuration);
        EXPECT_EQ(parsed.cpes, row.cpes);
        EXPECT_EQ(parsed.packageName, row.package);
    }
}

TEST(RequestKeys, AreShortenedForOvalIdentifiersAlone) {
    EXPECT_EQ(ProgressKey("cpe:/a:b||oval:org.x:def:1").text(), "cpe:/a:b");
    EXPECT_EQ(ProgressKey("cpe:/a:b||Editor oval: x").text(), "cpe:/a:b");
    EXPECT_EQ(ProgressKey("cpe:/a:b||Editor").text(), "cpe:/a:b||Editor");
    EXPECT_EQ(ProgressKey("oval:x").text(), "oval:x");
    EXPECT_EQ(ProgressKey("oval:x||Editor").text(), "oval:x||Editor");
}

class Requests : public testing::Test {
  protected:
    void parse(const std::map<std::string, std::string>& requests) {
        manager.setovalIdMap(requests);
        manager.parseCreEriForSupersedesTrue();
    }
    auto progress() { return manager.getRemediationProgressMap(); }
    std::vector<remediateMetadata>& patches() { return RemediationManagerPeer::cveRows(manager); }
    std::vector<remediateMetadata>& configurations() { return RemediationManagerPeer::cceRows(manager); }

    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(Requests, BecomeRowsOrFailures) {
    agent.addContent("CVE-1", {{"ERI-1", "a.pkg"}});
    agent.addContent("CCE-1", {{"ERI-2", "a.sh"}});
    parse({{"cpe:/o:x,cpe:/a:y||Editor", " CVE-1\n"},
           {"cpe:/o:x,||", "CCE-1"},
           {"cpe:/a:lost||", "CVE-404"},
           {"a,b,c||p", "CVE-2"},
           {"||Editor", "CVE-3"},
           {"  \t", "CVE-4"}});
    const std::map<std::string, unsigned long> expected{{"cpe:/o:x,cpe:/a:y||Editor", 0},
                                                        {"cpe:/o:x,||", 0},
                                                        {"cpe:/a:lost||", 6},
                                                        {"a,b,c||p", 8},
                                                        {"||Editor", 8},
                                                        {"  \t", 0}};
    EXPECT_EQ(progress(), expected);
    ASSERT_EQ(patches().size(), 2U);
    ASSERT_EQ(configurations().size(), 1U);
    remediateMetadata& row = patches()[1];
    EXPECT_EQ(row.getCveOrCceId(), "CVE-1");
    EXPECT_EQ(row.getPackageName(), "Editor");
    EXPECT_EQ(row.getPlatformCpe(), "cpe:/o:x");
    EXPECT_EQ(row.getProductCpe(), "cpe:/a:y");
    EXPECT_TRUE(row.getCreEriDataPresent());
    EXPECT_FALSE(patches()[0].getCreEriDataPresent());
    EXPECT_EQ(patches()[0].getPlatformCpe(), "cpe:/o:apple:mac_os_x")
        << "the system's own, when none is named";
    EXPECT_TRUE(manager.getAllRemFailed());
    EXPECT_TRUE(agent.logged("ERROR", " [Remediation Manager] No CPEs given by UI for CVE/CCE :CVE-3"));
    EXPECT_TRUE(agent.logged(
        "ERROR",
        " [Remediation Manager] More than 2 CPEs given by UI for CVE/CCE :CVE-2and cpes are: a,b,c||p"));
    EXPECT_TRUE(agent.logged("DEBUG",
                             " [Remediation Manager] (getAndParseCreEriForSupersedesTrue) For platformCpe = "
                             "'cpe:/o:x' and productCpe = 'cpe:/a:y'; pEriDataV.size = 1"));
    EXPECT_EQ(agent.calls.back(), "getCre cpe:/o:x  CCE-1") << "configurations come after patches";
}

TEST_F(Requests, RepeatedKeysNeedAResultEach) {
    agent.addContent("CVE-1", {{"ERI-1", "a.pkg"}});
    const std::string first = "cpe:/a:1,", second = "cpe:/a:2,";
    parse({{first, "CVE-1"}});
    parse({{second, "CVE-1"}});
    manager.insertRemProgressInMap(first, RemediationManager::REM_SUCCESS);
    EXPECT_EQ(progress()[first], 4U) << "no key came twice yet";
    parse({{first, "CVE-1"}, {second, "CVE-none"}});
    manager.insertRemProgressInMap(first, RemediationManager::REM_FAILED);
    EXPECT_EQ(progress()[first], 0U) << "held back until the second result";
    manager.insertRemProgressInMap(first, RemediationManager::REM_SUCCESS);
    EXPECT_EQ(progress()[first], 5U);
    EXPECT_EQ(progress()[second], 6U) << "the row without content does not count";
}

TEST_F(Requests, SpecialCaseSystemsAreProducts) {
    agent.specialCases = {"cpe:/o:special"};
    parse({{"cpe:/o:special", "CVE-1"}, {"cpe:/x:odd", "CVE-2"}, {"cpe:/a:1,cpe:/a:2", "CVE-3"}});
    EXPECT_EQ(patches()[0].getProductCpe(), "cpe:/a:2");
    EXPECT_EQ(patches()[1].getProductCpe(), "cpe:/o:special");
    EXPECT_EQ(patches()[1].getPlatformCpe(), "cpe:/o:apple:mac_os_x");
    EXPECT_EQ(patches()[2].getProductCpe(), "");
}

TEST_F(Requests, OsRemediationsAreAppleContentThatSaysSo) {
    struct {
        std::string product, instructions;
        bool os;
    } rows[] = {
        {"CPE:/O:APPLE:MAC_OS_X", "OS Remediation: update", true},
        {"cpe:/a:apple:safari", "os remediation", true},
        {"cpe:/a:apple:safari", "Install. os remediation", false},
        {"cpe:/a:example:editor", "os remediation", false},
        {"cpe:/o:apple", "", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.product + " / " + row.instructions);
        zelor::test::Eri eri{"ERI-1", "x"};
        eri.product = row.product;
        eri.instructions = row.instructions;
        EXPECT_EQ(manager.getOsRemediationFromCre({zelor::test::makeEri(eri)}), row.os);
        EXPECT_EQ(manager.getOsRemediationFromCre(
                      {zelor::test::makeEri({"ERI-0", "y"}), zelor::test::makeEri(eri)}),
                  row.os);
    }
    EXPECT_FALSE(manager.getOsRemediationFromCre({}));
}

TEST_F(Requests, AreOrderedUnattendedFirst) {
    zelor::test::Eri attended{"E1", "a.pkg"};
    zelor::test::Eri unattended{"E2", "b.pkg"};
    unattended.impact = "none";
    zelor::test::Eri windows{"E3", "c.exe.zip"};
    windows.impact = "none";
    zelor::test::Eri silentWindows{"E4", "d.exe"};
    silentWindows.silent = "/s";
    zelor::test::Eri os{"E5", ""};
    os.product = "cpe:/o:apple";
    os.instructions = "os remediation";
    agent.addContent("CVE-1", {attended});
    agent.addContent("CVE-2", {unattended});
    agent.addContent("CVE-3", {windows});
    agent.addContent("CVE-4", {silentWindows, attended});
    agent.addContent("CVE-5", {os});
    agent.addContent("CVE-6", {});
    agent.addContent("CVE-7", {silentWindows});
    parse({{"1", "CVE-1"},
           {"2", "CVE-2"},
           {"3", "CVE-3"},
           {"4", "CVE-4"},
           {"5", "CVE-5"},
           {"6", "CVE-6"},
           {"7", "CVE-7"},
           {"8", "CVE-none"}});
    manager.reArrangeRemMetadata();
    std::string order;
    for (auto& row : patches())
        order += row.getCombinedCpes();
    EXPECT_EQ(order, "25671348");
    EXPECT_EQ(agent.countLogged("silent mode is not supported"), 3)
        << "a row without content is passed over silently";
    EXPECT_TRUE(agent.logged(
        "DEBUG",
        " [Remediation Manager] (checkIfSilentModeSupported) The silent mode is not supported for "
        "cpe (key) = '3'. CVE = 'CVE-3'"));

    std::swap(patches()[0], patches()[7]);
    manager.setCancelAllRem(true);
    manager.reArrangeRemMetadata();
    EXPECT_EQ(patches()[0].getCombinedCpes(), "8") << "a cancelled run leaves the order alone";
}

}  // namespace

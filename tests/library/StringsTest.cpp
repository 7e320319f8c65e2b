#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "base/Strings.h"
#include "platform/macos/InstallerKinds.h"
#include "remediation/RemediationManager.h"
#include "remediation/fetch/PatchName.h"
#include "tests/library/FakeAgent.h"

namespace {

class Strings : public testing::Test {
  protected:
    zelor::test::FakeAgent agent;
    RemediationManager manager{agent.installPath()};
};

TEST_F(Strings, BeginningsEndingsAndSubsets) {
    struct {
        std::string text, part;
        bool begins, ends, subset;
    } rows[] = {
        {"cpe:/a:x", "cpe:/a", true, false, true},
        {"cpe:/a", "cpe:/a", true, true, false},
        {"ab", "abc", false, false, false},
        {"", "", true, true, false},
        {"x", "", true, true, true},
        {"a.app", ".app", false, true, false},
        {"Abc", "abc", false, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text + " / " + row.part);
        const std::wstring text(row.text.begin(), row.text.end());
        const std::wstring part(row.part.begin(), row.part.end());
        EXPECT_EQ(manager.stringHasBegining(row.text, row.part), row.begins);
        EXPECT_EQ(manager.wstringHasBegining(text, part), row.begins);
        EXPECT_EQ(manager.stringHasEnding(row.text, row.part), row.ends);
        EXPECT_EQ(manager.wstringHasEnding(text, part), row.ends);
        EXPECT_EQ(manager.stringIsSubset(row.text, row.part), row.subset);
    }
}

TEST_F(Strings, TrimSplitAndArchitecture) {
    EXPECT_EQ(manager.trimString("\r\n \t value \t\r\n"), "value");
    EXPECT_EQ(manager.trimString("inner  blank"), "inner  blank");
    EXPECT_EQ(manager.trimString(" \n\r\t"), "");
    EXPECT_EQ(manager.trimString(""), "");

    using Pieces = std::vector<std::string>;
    EXPECT_EQ(manager.splitStr("a||b||c", "||"), (Pieces{"a", "b||c"}));
    EXPECT_EQ(manager.splitStr("a||", "||"), (Pieces{"a", ""}));
    EXPECT_EQ(manager.splitStr("plain", "||"), (Pieces{"plain"}));

    std::string text = "a,b,,";
    manager.trimTrailingCharacter(text, ',');
    EXPECT_EQ(text, "a,b,");
    manager.trimTrailingCharacter(text, ';');
    EXPECT_EQ(text, "a,b,");

    EXPECT_EQ(manager.getApplicationArchitecture("Editor X64 and x86"), "x86");
    EXPECT_EQ(manager.getApplicationArchitecture("X64"), "x64");
    EXPECT_EQ(manager.getApplicationArchitecture("IA64"), "ia64");
    EXPECT_EQ(manager.getApplicationArchitecture("arm"), "");
    EXPECT_EQ(manager.parseCpeAndGetSearchString("cpe:/a:x"), "");
}

TEST_F(Strings, ReferencesThatNameMoreThanIdentifiers) {
    EXPECT_FALSE(manager.refContainsPatchId("CVE-2014-1 CCE-2"));
    EXPECT_FALSE(manager.refContainsPatchId("CVE-2014-1  CVE-2014-2"));
    EXPECT_TRUE(manager.refContainsPatchId("CVE-2014-1 MS14-001"));
    EXPECT_TRUE(manager.refContainsPatchId("cve-2014-1"));
    EXPECT_TRUE(manager.refContainsPatchId(""));
}

TEST(PatchNames, AreCutAndRefused) {
    EXPECT_EQ(zelor::remediation::splitAtLastDot("a.b.c.pkg")->stem, "a.b.c");
    EXPECT_EQ(zelor::remediation::splitAtLastDot("a.b.c.pkg")->extension, ".pkg");
    EXPECT_FALSE(zelor::remediation::splitAtLastDot("noextension"));
    EXPECT_EQ(zelor::remediation::cutFourCharacters("tool.sh").stem, "too");
    EXPECT_EQ(zelor::remediation::cutFourCharacters("sh").stem, "sh");
    for (const char* name : {"../x.sh", "a/b.sh", ".", "..", "a\nb.sh", "a\x7f.sh"}) {
        EXPECT_FALSE(zelor::remediation::checkFileName(name)) << name;
    }
    EXPECT_TRUE(zelor::remediation::checkFileName("Editor 2.1 (final).pkg"));
    EXPECT_EQ(zelor::remediation::signaturePath("/d.pkg/foo.pkg", ".pkg"), "/d.sig/foo.sig");
}

TEST(InstallerKinds, AreKnownByTheirMarkerInTheOrderOfTheTable) {
    namespace platform = zelor::platform;
    const std::map<std::string, std::string> kinds = {
        {"/c/foo.app.pkg", "app"}, {"/c/foo.pkg", "pkg"}, {"/c/foo.dmg", "dmg"}, {"/c/foo.sh", ""}};
    for (const auto& [path, name] : kinds) {
        const platform::InstallerKind* const kind = platform::installerKindOf(path);
        EXPECT_EQ(kind == nullptr ? "" : kind->name, name) << path;
    }
    EXPECT_EQ(platform::installableText(), ".app, .pkg or .dmg");
    EXPECT_EQ(platform::installableOnImageText(), ".app or .pkg");
    EXPECT_EQ(platform::installableFileText(), ".pkg or .dmg");
}

TEST(ShellText, KeepsOrdinaryWordsAndHoldsHostileOnes) {
    EXPECT_EQ(zelor::base::shellWord("/var/zelor/mountpoint"), "/var/zelor/mountpoint");
    EXPECT_EQ(zelor::base::shellWord("/My Mac/mountpoint"), "'/My Mac/mountpoint'");
    EXPECT_EQ(zelor::base::shellWord("$(id)"), "'$(id)'");
    EXPECT_EQ(zelor::base::shellWord(""), "''");
    EXPECT_EQ(zelor::base::insideSingleQuotes("it's"), "it'\\''s");
    EXPECT_EQ(zelor::base::insideSingleQuotes("Safari (10.1)"), "Safari (10.1)");
}

}  // namespace

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/Strings.h"
#include "platform/macos/MacPatchManager.h"
#include "platform/macos/UpdateSelection.h"
#include "remediation/CallReport.h"
#include "tests/library/FakeAgent.h"

using zelor::platform::candidateLabel;
using zelor::platform::selectUpdates;
using zelor::platform::starredLines;

namespace {

const char* const kYosemite =
    "Software Update Tool\nCopyright 2002-2012 Apple Inc.\n\nFinding available software\n"
    "Software Update found the following new or updated software:\n"
    "   * Command Line Tools (OS X 10.10)-6.0\n"
    "    Command Line Tools (OS X 10.10) (6.0), 108534K [recommended]\n"
    "   * iTunesX-12.0\n    iTunes (12.0), 160725K [recommended]\n"
    "   * OSXUpd10.10.5-10.10.5\n\tOS X Update (10.10.5), 1000K [recommended] [restart]\n"
    "   * OS X SecUpd2015-7\n\tSecurity Update (1.0), 10K [recommended] [restart]\n";
const char* const kMountainLion =
    "   * Safari6.1.4MountainLion-6.1.4\n       Safari (6.1.4), 51692K [recommended]\n"
    "   * Mac App Store Update-1.0\n       Mac App Store Update (1.0), 3697K [recommended] [restart]\n"
    "   * SecUpd2014-002MtLion-1.0\n       Security Update 2014-002 (1.0), 132404K [recommended] [restart]\n";
const char* const kMojave =
    "   * Safari14.0.1MojaveAuto-14.0.1\n\tSafari (14.0.1), 67518K [recommended]\n"
    "   * Security Update 2020-005-10.14.6\n\tSecurity Update 2020-005 (10.14.6), 1633218K [recommended] "
    "[restart]\n"
    "   * Safari14.0MojaveAuto-10.14.6\n\tmacOS Supplemental Update (10.14.6), 67310K [recommended] "
    "[restart]\n";
const char* const kCatalina =
    "* Label: Command Line Tools for Xcode-11.2\n\tTitle: Command Line Tools for Xcode, Version: 11.2, Size: "
    "224942K, "
    "Recommended: YES,\n";

// The labels that would be installed, in order.
std::vector<std::string> labels(const std::string& listing, const std::string& name,
                                const std::string& version) {
    return zelor::platform::labelsToInstall(
        selectUpdates(starredLines(listing, 1999), name, [&version] { return version; }));
}

TEST(UpdateSelection, OnRealListings) {
    using Labels = std::vector<std::string>;
    const std::string tools = "Command Line Tools (OS X 10.10)-6.0";
    struct {
        const char* listing;
        std::string name, version;
        Labels expected;
    } rows[] = {
        {kYosemite,
         "Apple Mac OS X",
         "10.10.4\n",
         {tools, "OSXUpd10.10.5-10.10.5", "OS X SecUpd2015-7", "OS X SecUpd2015-7"}},
        {kYosemite, "apple mac os x", "10.9.5\n", {tools, "OS X SecUpd2015-7", "OS X SecUpd2015-7"}},
        {kYosemite, "APPLE MAC OS X", "10.11.6\n", {}},
        {kYosemite, "Apple Mac OS X", "", {}},
        {kYosemite, "Apple iTunes", "10.10", {"iTunesX-12.0"}},
        {kYosemite, "iTunes", "", {"iTunesX-12.0"}},
        {kYosemite, "Apple\tCommand Line Tools", "", {tools}},
        {kYosemite, "10.10", "", {"10.10)-6.0"}},
        {kYosemite, "Apple Aperture", "", {}},
        {kYosemite, "apple", "", {}},
        {kMountainLion, "Apple Mac OS X", "10.9", {"SecUpd2014-002MtLion-1.0"}},
        {kMountainLion, "Apple Safari", "", {"Safari6.1.4MountainLion-6.1.4"}},
        {kMountainLion, "Apple Apple Mac App Store", "", {"Mac App Store Update-1.0"}},
        {kMojave, "Apple Safari", "", {"Safari14.0.1MojaveAuto-14.0.1"}},
        {kMojave, "Apple Mac OS X", "10.14.6", {}},
        {kCatalina, "Apple Command Line Tools", "", {"Command Line Tools for Xcode-11.2"}},
        {"", "Apple Safari", "", {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(labels(row.listing, row.name, row.version), row.expected)
            << row.name << " on " << row.version;
    }
}

TEST(UpdateSelection, LabelsOfCandidateLines) {
    EXPECT_EQ(candidateLabel("   * Foo-1.0 \n"), "Foo-1.0");
    EXPECT_EQ(candidateLabel("*Foo Bar"), "Bar") << "up to and with the first blank";
    EXPECT_EQ(candidateLabel("*Foo"), "Foo");
    EXPECT_EQ(candidateLabel("* Label: Foo-1"), "Label: Foo-1");
    EXPECT_EQ(candidateLabel("#    * 031-4751"), "031-4751");
    EXPECT_EQ(candidateLabel(" \n"), "");
}

TEST(UpdateSelection, AHugeListingCostsOneQuestionAndAHundredLabels) {
    const std::vector<std::string> listing(1000000, "   * OS X osx secupd\n");
    int asked = 0;
    const auto selection = selectUpdates(listing, "Apple Mac OS X", [&asked] {
        ++asked;
        return std::string("10.10.5");
    });
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(zelor::platform::labelsToInstall(selection).size(), 100U);
    EXPECT_LE(selection.candidates.size(), 100U);
}

// A tool that answers from files and records its calls.
class OsUpdates : public testing::Test {
  protected:
    int install(const std::string& listing, const std::string& name, const std::string& answers) {
        zelor::test::writeFile(agent.dir / "listing", listing);
        agent.addTool("softwareupdate", "case $1 in -l) cat '" + agent.dir / "listing" +
                                            "';; *) echo \"$2\" >> '" + agent.dir / "installed" +
                                            "'; case $2 in " + answers + " esac;; esac");
        boost::filesystem::remove(agent.dir / "installed");
        return MacPatchManager().installOSPatch(name);
    }
    std::string installed() { return zelor::test::readFile(agent.dir / "installed"); }
    zelor::test::FakeAgent agent;
};

TEST_F(OsUpdates, AreJudgedByTheirOutput) {
    const std::string two = "   * OS X A-1\n   * OS X B-2\n";
    const std::string doneThenNone = "*A-1) echo Done.;; *) echo 'No updates are available.';;";
    const std::string failThenDone = "*A-1) echo broken; exit 1;; *) echo Done; exit 1;;";
    struct {
        std::string name, answers, installed;
        int result;
    } rows[] = {
        {"Apple Mac OS X", "*) echo Done.;;", "OS X A-1\nOS X B-2\n", 0},
        {"Apple Mac OS X", doneThenNone, "OS X A-1\nOS X B-2\n", -1},
        {"Apple Mac OS X", failThenDone, "OS X A-1\nOS X B-2\n", 0},
        {"Apple A-1", "*) echo Done.;;", "A-1\n", 0},
        {"Apple B-2", doneThenNone, "B-2\n", 0},
        {"Apple A-1", failThenDone, "A-1\n", -1},
        {"Apple Quicktime", "*) echo Done.;;", "", -1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(install(two, row.name, row.answers), row.result) << row.name << " / " << row.answers;
        EXPECT_EQ(installed(), row.installed) << row.name;
    }
    EXPECT_TRUE(agent.logged("INFO", " [MacPatchManager] Install OS Patch, PackageName = Apple Mac OS X"));
    EXPECT_TRUE(agent.logged("DEBUG", " Package Name = A-1\n"));
    EXPECT_TRUE(agent.logged("DEBUG", "[MacPatchManager] Installing softwareupdate -i 'OS X A-1' 2>&1"));
    EXPECT_TRUE(agent.logged("INFO", "[MacPatchManager] No updates are available."));
    EXPECT_TRUE(agent.logged("ERROR", "[MacPatchManager] The pkg remediation failed = broken\n"));
    EXPECT_TRUE(agent.logged("ERROR", "[MacPatchManager] Cant get os application name!!!"));
}

TEST_F(OsUpdates, ACancelEndsBetweenTwoCommands) {
    bool cancelled = false;
    const zelor::CallReport report({}, [&] {
        cancelled = cancelled || !installed().empty();
        return cancelled;
    });
    EXPECT_EQ(install("   * OS X A-1\n   * OS X B-2\n", "Apple Mac OS X", "*) echo Done.;;"), -1);
    EXPECT_EQ(installed(), "OS X A-1\n");
}

TEST_F(OsUpdates, AHostileLabelStaysOneWord) {
    EXPECT_EQ(
        install("   * OS X '; touch " + agent.dir / "pwned" + "; '-1\n", "Apple Mac OS X", "*) echo Done;;"),
        0);
    EXPECT_FALSE(boost::filesystem::exists(agent.dir / "pwned"));
    EXPECT_EQ(installed(), "OS X '; touch " + agent.dir / "pwned" + "; '-1\n");
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rehearsal/InstallText.h"
#include "rehearsal/OsVersion.h"
#include "rehearsal/Unpacking.h"
#include "rehearsal/UpdateText.h"

namespace zelor::rehearsal {

namespace {

Update update(const std::string& label, const std::string& title, const std::string& version,
              std::uint64_t size) {
    Update result;
    result.label = label;
    result.title = title;
    result.version = version;
    result.sizeK = size;
    return result;
}

std::vector<Update> threeUpdates() {
    std::vector<Update> updates{update("SecUpd2014-005", "Security Update 2014-005", "1.0", 1633218),
                                update("iTunesX-12.0", "iTunes", "12.0", 160725),
                                update("Fonts", "Fonts", "2", 7)};
    updates[0].restart = true;
    updates[2].recommended = false;
    return updates;
}

constexpr char kStarred[] =
    "Finding available software\n"
    "Software Update found the following new or updated software:\n"
    "   * SecUpd2014-005\n"
    "\tSecurity Update 2014-005 (1.0), 1633218K [recommended] [restart]\n"
    "   * iTunesX-12.0\n"
    "\tiTunes (12.0), 160725K [recommended]\n"
    "   - Fonts\n"
    "\tFonts (2), 7K\n";
constexpr char kLabelled[] =
    "Finding available software\n"
    "Software Update found the following new or updated software:\n"
    "* Label: SecUpd2014-005\n"
    "\tTitle: Security Update 2014-005, Version: 1.0, Size: 1633218K, Recommended: YES, Action: restart, \n"
    "* Label: iTunesX-12.0\n"
    "\tTitle: iTunes, Version: 12.0, Size: 160725K, Recommended: YES, \n"
    "- Label: Fonts\n"
    "\tTitle: Fonts, Version: 2, Size: 7K, Recommended: NO, \n";
constexpr char kHeader2012[] = "Software Update Tool\nCopyright 2002-2012 Apple Inc.\n\n";
constexpr char kHeader2015[] = "Software Update Tool\nCopyright 2002-2015 Apple Inc.\n\n";
constexpr char kBareHeader[] = "Software Update Tool\n\n";

TEST(RehearsalText, ListsUpdatesInTheStyleOfTheSystem) {
    struct Case {
        const char* version;
        const char* header;
        const char* items;
    };
    const std::vector<Case> cases{{"10.9", kHeader2012, kStarred},    {"10.10.5", kHeader2012, kStarred},
                                  {"10.12.6", kHeader2015, kStarred}, {"10.13.6", kBareHeader, kStarred},
                                  {"10.14.6", kBareHeader, kStarred}, {"10.15.7", kBareHeader, kLabelled},
                                  {"13.2.1", kBareHeader, kLabelled}};
    for (const Case& c : cases) {
        const ToolText text = listing(threeUpdates(), parseOsVersion(c.version));
        EXPECT_EQ(text.out, std::string(c.header) + c.items) << c.version;
        EXPECT_EQ(text.err, "");
    }
    const ToolText none = listing({}, parseOsVersion("10.10.3"));
    EXPECT_EQ(none.out, std::string(kHeader2012) + "Finding available software\n");
    EXPECT_EQ(none.err, "No new software available.\n");
}

struct InstallCase {
    const char* name;
    const char* version;
    std::vector<Update> updates;
    const char* out;  ///< after the header
    int status;
};

std::vector<InstallCase> installCases() {
    Update itunes = update("iTunesX-12.7.3", "iTunes", "12.7.3", 1);
    Update failing = itunes;
    failing.outcome = Outcome::fail;
    Update liar = itunes;
    liar.outcome = Outcome::doneThenError;
    Update system = update("OSXUpd", "OS X Update", "10.10.5", 1);
    system.osUpdate = true;
    Update restarting = update("Sec", "Security Update", "1", 1);
    restarting.restart = true;
    return {
        {"a package",
         "10.10.5",
         {itunes},
         "Finding available software\n\nDownloading iTunes\nDownloaded iTunes\nInstalling iTunes\n"
         "Done with iTunes\nDone.\n",
         0},
        {"terse",
         "10.13.6",
         {itunes},
         "\nDownloaded iTunes\nInstalling iTunes\nDone with iTunes\nDone.\n",
         0},
        {"the system",
         "10.10.5",
         {system},
         "Finding available software\n\nDownloaded OS X Update\nInstalling OS X Update\nDone.\n",
         0},
        {"success told, then an error",
         "10.13.6",
         {liar},
         "\nDownloaded iTunes\nDone.\n\nError installing updates.\n",
         0},
        {"an error",
         "10.13.6",
         {failing},
         "\nDownloaded iTunes\nInstalling iTunes\nError installing updates.\n",
         1},
        {"two, with a restart",
         "10.13.6",
         {itunes, restarting},
         "\nDownloaded iTunes\nDownloaded Security Update\nInstalling iTunes\nInstalling Security Update\n"
         "Done with iTunes\nDone with Security Update\nDone.\n"
         "You have installed one or more updates that requires that you restart your\n"
         "computer.  Please restart immediately.\n",
         0},
    };
}

TEST(RehearsalText, SaysOfInstallations) {
    for (const InstallCase& c : installCases()) {
        const OsVersion version = parseOsVersion(c.version);
        const ToolText text = installTranscript({c.updates, {}}, version);
        EXPECT_EQ(text.out, (version.atLeast(10, 13) ? kBareHeader : kHeader2012) + std::string(c.out))
            << c.name;
        EXPECT_EQ(text.status, c.status) << c.name;
    }
    const ToolText unknown = installTranscript({{}, {""}}, parseOsVersion("10.9.5"));
    EXPECT_EQ(unknown.out, std::string(kHeader2012) + "Finding available software\n: No such update\n");
    EXPECT_EQ(unknown.err, "No updates are available.\n");
}

TEST(RehearsalText, ChoosesUpdatesByLabelOrKind) {
    std::vector<Update> updates = threeUpdates();
    updates.push_back(updates[1]);  // a label may be duplicated
    updates.push_back(update("Withdrawn", "Withdrawn", "1", 1));
    updates.back().outcome = Outcome::notFound;
    struct Case {
        UpdateChoice choice;
        std::size_t chosen;
        std::vector<std::string> unknown;
    };
    const std::vector<Case> cases{{{true, false, {}}, 4, {}},
                                  {{false, true, {}}, 3, {}},
                                  {{false, false, {"iTunesX-12.0", "iTunes"}}, 2, {"iTunes"}},
                                  {{false, false, {"Withdrawn"}}, 0, {"Withdrawn"}}};
    for (const Case& c : cases) {
        const ChosenUpdates chosen = chooseUpdates(updates, c.choice);
        EXPECT_EQ(chosen.updates.size(), c.chosen);
        EXPECT_EQ(chosen.unknownLabels, c.unknown);
    }
}

TEST(RehearsalText, KnowsSystems) {
    EXPECT_EQ(reportedVersion("10.9.0"), "10.9");
    EXPECT_EQ(reportedVersion("10.10.0"), "10.10");
    EXPECT_EQ(reportedVersion("10.10"), "10.10");
    EXPECT_EQ(productNameOf(parseOsVersion("10.15.7")), "Mac OS X");
    EXPECT_EQ(productNameOf(parseOsVersion("11.0")), "macOS");
    EXPECT_EQ(buildOf("13.2.1"), "22D68");
    EXPECT_EQ(buildOf("10.10.1").substr(0, 2), "14");
    for (const char* bad : {"", "ten", "10.8.5", "10.9.5.1", "10.9\n", "9"})
        EXPECT_THROW(parseOsVersion(bad), std::invalid_argument) << bad;
}

TEST(RehearsalText, SaysOfPackagesAndImages) {
    InstallReport report;
    report.title = "maxonapp-2024.1.0";
    report.end = InstallEnd::scriptFailed;
    report.component = "maxonapp-2024.1.0.pkg";
    EXPECT_EQ(
        installText(report).out,
        "installer: Package name is maxonapp-2024.1.0\n"
        "installer: Installing at base path /\n"
        "installer: The install failed. (The Installer encountered an error that caused the installation to "
        "fail. Contact the software manufacturer for assistance. An error occurred while running scripts "
        "from "
        "the package \xe2\x80\x9cmaxonapp-2024.1.0.pkg\xe2\x80\x9d.)\n");
    EXPECT_EQ(attachedLine(5, "/Volumes/A b"),
              "/dev/disk5          \t                               \t/Volumes/A b\n");
}

}  // namespace

}  // namespace zelor::rehearsal

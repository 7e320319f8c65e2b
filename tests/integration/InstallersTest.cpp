#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "base/CommandRunner.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/CallReport.h"
#include "tests/integration/IntegrationFixture.h"

using zelor::test::IntegrationFixture;
using zelor::test::readFile;
using zelor::test::writeFile;
namespace fs = boost::filesystem;

namespace {

/// The library's installers on a rehearsal Mac: real packages and images, tools that fail on demand.
class Installers : public testing::Test {
  protected:
    Installers() {
        mac({"init", tools, "--root", root, "--os", "10.10.5"});
        oldPath = getenv("PATH");
        setenv("PATH", (tools + ":" + oldPath).c_str(), 1);
        writeFile(fixture.dir / "src/package/Example Editor/about.txt", "2.1");
        mac({"build-pkg", "--id", "com.example.editor", "--version", "2.1", "--install-location",
             "/Applications", fixture.dir / "src/package", fixture.dir / "src/editor.pkg"});
    }
    ~Installers() override { setenv("PATH", oldPath.c_str(), 1); }

    /// The rehearsal Mac's own program.
    void mac(std::vector<std::string> words) {
        words.insert(words.begin(), ZELOR_REHEARSAL_PROGRAM);
        const auto result = zelor::base::runCommand(words, true, std::chrono::seconds(0));
        ASSERT_EQ(result.status, 0) << result.output;
    }
    void fault(const std::string& subject, const std::string& name, const std::string& outcome) {
        mac({"fault", "--tools", tools, subject, name, outcome});
    }
    /// A disk image of the directory "src/NAME".
    std::string image(const std::string& name) {
        const std::string path = fixture.dir / ("src/" + name + ".dmg");
        fs::create_directories(fixture.dir / ("src/" + name));
        mac({"build-dmg", "--volume", name, fixture.dir / ("src/" + name), path});
        return path;
    }
    int dmg(const std::string& path) { return manager.install3rdPartyPatch(path, "Example", "dmg"); }

    IntegrationFixture fixture;
    std::string root = fixture.dir.path().string();
    std::string tools = fixture.dir / "tools";
    std::string package = fixture.dir / "src/editor.pkg";
    std::string installed = fixture.dir / "Applications/Example Editor/about.txt";
    std::string oldPath;
    MacPatchManager manager;
};

TEST_F(Installers, PackagesByOutcome) {
    struct {
        const char* outcome;
        int result;
    } rows[] = {{"fail", -1}, {"not-root", -1}, {"signal", -1}, {"binary", 0}, {"flood", 0}, {"ok", 0}};
    for (const auto& row : rows) {
        fs::remove_all(fixture.dir / "Applications/Example Editor");
        fault("--package", "com.example.editor", row.outcome);
        EXPECT_EQ(manager.install3rdPartyPatch(package, "Example Editor", "pkg"), row.result) << row.outcome;
        EXPECT_EQ(fs::exists(installed), row.result == 0) << row.outcome;
    }
    EXPECT_EQ(manager.pkgInstallation(fixture.dir / "none.pkg"), -1);
    EXPECT_TRUE(fixture.logged("[MacPatchManager] The pkg remediation failed = "));
    EXPECT_TRUE(fixture.logged("(runCommand) The output had "));
}

TEST_F(Installers, AHangingInstallerIsCutOffAtTheLimit) {
    fault("--package", "com.example.editor", "hang");
    const auto cut = zelor::base::runCommand(
        {"/bin/sh", "-c", "installer -pkg '" + package + "' -target / 2>&1"}, false, std::chrono::seconds(1));
    EXPECT_TRUE(cut.timedOut);
    EXPECT_EQ(cut.output.find("successful"), std::string::npos);
}

TEST_F(Installers, ImagesWithAPackageABundleOrNeither) {
    fs::create_directories(fixture.dir / "src/WithPackage");
    fs::copy_file(package, fixture.dir / "src/WithPackage/Editor.pkg");
    EXPECT_EQ(dmg(image("WithPackage")), 0);
    EXPECT_EQ(readFile(installed), "2.1");
    EXPECT_TRUE(fs::is_empty(fixture.dir / "var/zelor/mountpoint")) << "detached";

    const std::string bundle = fixture.dir / "src/WithBundle/Player.app/Contents";
    writeFile(bundle + "/MacOS/player", "binary");
    fs::create_directory_symlink("MacOS", bundle + "/Current");
    EXPECT_EQ(dmg(image("WithBundle")), 0);
    EXPECT_EQ(readFile(fixture.dir / "Applications/Player.app/Contents/MacOS/player"), "binary");
    EXPECT_TRUE(fs::is_symlink(fixture.dir / "Applications/Player.app/Contents/Current"));

    writeFile(fixture.dir / "src/Neither/readme.txt", "x");
    EXPECT_EQ(dmg(image("Neither")), 0) << "an image without either counts as installed";
    writeFile(fixture.dir / "src/broken.dmg", "no image");
    EXPECT_EQ(dmg(fixture.dir / "src/broken.dmg"), 0) << "so does one that cannot be attached";
    EXPECT_TRUE(fixture.logged("[MacPatchManager] Installation SUCCESS!! Error in disk unmounting!!"));

    fault("--package", "com.example.editor", "fail");
    EXPECT_EQ(dmg(fixture.dir / "src/WithPackage.dmg"), -1);
    EXPECT_TRUE(fs::is_empty(fixture.dir / "var/zelor/mountpoint")) << "detached after a failure too";
}

TEST_F(Installers, SaysWhenAnImageThatCountsAsInstalledInstalledNothing) {
    fs::create_directories(fixture.dir / "src/WithPackage");
    fs::copy_file(package, fixture.dir / "src/WithPackage/Editor.pkg");
    writeFile(fixture.dir / "src/Neither/readme.txt", "x");
    writeFile(fixture.dir / "src/broken.dmg", "no image");
    writeFile(fixture.dir / "src/WithBundle/Player.app/Contents/MacOS/player", "binary");
    const struct {
        std::string image, silent, warning;
    } rows[] = {
        {image("WithPackage"), "", ""},
        {image("Neither"), "", "there is no .app and no .pkg on the image"},
        {fixture.dir / "src/broken.dmg", "", "the image was not attached: hdiutil: attach failed - "},
        {image("WithBundle"), "", "the shell cannot parse the command of the bundle's installer"},
        {image("WithBundle"), "Contents/MacOS/player && (", "the shell cannot parse"},
    };
    for (const auto& row : rows) {
        manager.setInstallOption(true);
        manager.setSilentModeOption(row.silent);
        const zelor::CallReport report;
        EXPECT_EQ(dmg(row.image), 0) << row.image;
        EXPECT_EQ(report.warning().substr(0, row.warning.size()), row.warning) << row.image;
        EXPECT_EQ(report.warning().empty(), row.warning.empty()) << report.warning();
    }
}

TEST_F(Installers, ABusyImageStaysAndIsClearedByTheNextOne) {
    fs::create_directories(fixture.dir / "src/Busy");
    fs::copy_file(package, fixture.dir / "src/Busy/Editor.pkg");
    const std::string path = image("Busy");
    fault("--image", "Busy", "busy");
    EXPECT_EQ(dmg(path), 0);
    EXPECT_TRUE(fixture.logged("[MacPatchManager] Installation SUCCESS!! Error in disk unmounting!!"));
    fault("--image", "Busy", "ok");
    EXPECT_EQ(dmg(path), 0);
    EXPECT_TRUE(fixture.logged("[MacPatchManager] Installation SUCCESS!! Disk unmounted successfully!!"));
}

TEST_F(Installers, ABusyImageIsInstalledInPlaceOfTheNextOne) {
    for (const std::string name : {"Old", "New"})
        writeFile(fixture.dir / ("src/" + name + "/Player.app/Contents/version"), name);
    fault("--image", "Old", "busy");
    EXPECT_EQ(dmg(image("Old")), 0);
    fs::remove_all(fixture.dir / "Applications/Player.app");
    const zelor::CallReport report;
    EXPECT_EQ(dmg(image("New")), 0);
    EXPECT_EQ(readFile(fixture.dir / "Applications/Player.app/Contents/version"), "Old");
    EXPECT_NE(report.warning().find("; 'Player.app' of another image, which cannot be detached, was taken"),
              std::string::npos)
        << report.warning();
}

TEST_F(Installers, ABundlesOwnInstallerOnAnImage) {
    const std::string setup = fixture.dir / "src/Setup/Setup.app/Contents/MacOS/setup";
    writeFile(setup, "#!/bin/sh\necho \"$1\" > '" + fixture.dir / "ran" + "'\n");
    chmod(setup.c_str(), 0755);
    const std::string path = image("Setup");
    manager.setInstallOption(true);
    manager.setSilentModeOption("Contents/MacOS/setup --quiet");
    EXPECT_EQ(dmg(path), 0);
    EXPECT_EQ(readFile(fixture.dir / "ran"), "--quiet\n");
    EXPECT_FALSE(fs::exists(fixture.dir / "Applications/Setup.app"));

    fs::remove(fixture.dir / "ran");
    manager.setSilentModeOption("");
    EXPECT_EQ(dmg(path), 0) << "the shell refuses the command, and no output counts as success";
    EXPECT_FALSE(fs::exists(fixture.dir / "ran"));
}

TEST_F(Installers, OsUpdatesByOutcome) {
    struct {
        const char* outcome;
        int named, osWide;
    } rows[] = {{"ok", 0, 0},           {"fail", -1, -1},     {"done-then-error", 0, 0}, {"not-found", 0, -1},
                {"no-network", -1, -1}, {"not-root", -1, -1}, {"signal", -1, -1},        {"binary", 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.outcome);
        for (const bool osWide : {false, true}) {
            mac({"reset", "--tools", tools});
            mac({"add-update", "--tools", tools, "--label", "SecUpd2015-007", "--version", "1.0", "--size",
                 "10", "--outcome", row.outcome});
            EXPECT_EQ(manager.installOSPatch(osWide ? "Apple Mac OS X" : "Apple SecUpd"),
                      osWide ? row.osWide : row.named);
        }
    }
    // The blank belongs to the label, but is not asked for.
    mac({"reset", "--tools", tools});
    mac({"add-update", "--tools", tools, "--label", "Safari9.0 ", "--version", "9.0", "--size", "10"});
    EXPECT_EQ(manager.installOSPatch("Apple Safari"), 0);
    EXPECT_EQ(manager.getOsCmdline("softwareupdate -l 2>&1"), std::vector<std::string>{"   * Safari9.0 \n"});

    mac({"os", "13.2.1", "--tools", tools});
    EXPECT_EQ(manager.installOSPatch("Apple Mac OS X"), -1) << "no keywords are known for this system";
}

}  // namespace

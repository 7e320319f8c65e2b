#include <gtest/gtest.h>

#include <thread>

#include "platform/macos/MacPatchManager.h"
#include "remediation/RemediationManager.h"
#include "tests/library/FakeAgent.h"

using zelor::test::Eri;
using zelor::test::readFile;
using zelor::test::writeFile;

namespace {

using Map = std::map<std::string, unsigned long>;

class InstallationPhase : public testing::Test {
  protected:
    InstallationPhase() {
        manager.setContentDownloadDir(agent.contentDir());
        // The tools record their arguments.
        agent.addTool("installer", "echo \"installer $*\" >> '" + commands + "'; cat \"$2\"");
        agent.addTool("softwareupdate", "echo \"softwareupdate $*\" >> '" + commands +
                                            "'; case $1 in -l) cat '" + listing + "';; *) echo Done.;; esac");
        writeFile(listing, "Software Update found:\n   * Safari9.0-9.0\n\tSafari (9.0), 1K\n");
    }
    Map run(const std::map<std::string, std::string>& requests) {
        manager.setovalIdMap(requests);
        manager.concertedRemediationStart();
        return manager.getRemediationProgressMap();
    }
    void addOsContent(const std::string& identifier) {
        Eri os{"ERI-OS", "", true};
        os.product = "cpe:/o:apple:mac_os_x";
        os.instructions = "OS remediation";
        agent.addContent(identifier, {os});
    }
    zelor::test::FakeAgent agent;
    std::string commands = agent.dir / "commands";
    std::string listing = agent.dir / "listing";
    RemediationManager manager{agent.installPath()};
};

TEST_F(InstallationPhase, InstallsOsUpdatesByNameThenPackages) {
    addOsContent("CVE-1");
    agent.addContent("CVE-2", {{"ERI-2", "editor.pkg", true}});
    agent.addFile("editor.pkg", "installer: The install was successful.");
    EXPECT_EQ(run({{"cpe:/a:a||Editor", "CVE-2"}, {"cpe:/o:z||Apple Safari", "CVE-1"}}),
              (Map{{"cpe:/a:a||Editor", 4}, {"cpe:/o:z||Apple Safari", 4}}));
    EXPECT_EQ(readFile(commands), "softwareupdate -l\nsoftwareupdate -i Safari9.0-9.0\ninstaller -pkg " +
                                      agent.contentDir() + "/editor.pkg -target /\n");
    EXPECT_TRUE(manager.getRebootNeeded()) << "asked for by the package; OS updates do not say";
    EXPECT_EQ(readFile(agent.recordPath()), "ERI-2\n") << "OS updates are not recorded";
    for (const std::string& line : std::vector<std::string>{
             "DEBUG   >>> [Remediation Manager] (installPatches) starting ...",
             "DEBUG  [Remediation Manager]  Inside installOsPatches ",
             "DEBUG  [Remediation Manager] (installOsPatches) Patching OS Package = Apple Safari",
             "DEBUG [MacPatchManager] Installing softwareupdate -i 'Safari9.0-9.0' 2>&1",
             "INFO  [Remediation Manager] (installOsPatches) Remediation for \"Apple Safari\" succeeded !!",
             "INFO [MacPatchManager] The pkg remediation succeeded !!",
             "INFO  [Remediation Manager] (installNonOsPatches) The remediation result for cpe = "
             "cpe:/a:a||Editor is "
             "\"Succeeded\"",
             "DEBUG  <<< [Remediation Manager] (installPatches) DONE!! ..."}) {
        EXPECT_GT(agent.countLogged(line), 0) << line;
    }
}

TEST_F(InstallationPhase, InteractiveInstallationLeavesOsUpdatesAlone) {
    agent.vendorInstallationType = "InterActive";
    addOsContent("CVE-1");
    agent.addContent("CVE-2", {{"ERI-2", "editor.pkg"}});
    agent.addFile("editor.pkg", "successful");
    EXPECT_EQ(run({{"1", "CVE-1"}, {"2", "CVE-2"}}), (Map{{"1", 0}, {"2", 4}}));
}

TEST_F(InstallationPhase, EveryBlockStateHasItsValue) {
    Eri microsoft{"ERI-9", "kb.exe"};
    microsoft.mskb = "KB1";
    agent.addContent("CVE-1", {{"ERI-1", "bad.pkg"}});
    agent.addContent("CVE-2", {{"ERI-2", "lost.pkg"}});
    agent.addContent("CVE-3", {{"ERI-3", ""}});
    agent.addContent("CVE-4", {{"ERI-4", "nodot"}});
    agent.addContent("CVE-5", {{"ERI-5", "strange.tar"}});
    agent.addContent("CVE-6", {microsoft});
    agent.addContent("CVE-7", {});
    agent.addContent("CVE-8", {{"ERI-8", "recorded.pkg"}});
    agent.addFile("bad.pkg", "installer: The install failed (...)");
    agent.addFile("strange.tar", "x");
    writeFile(agent.recordPath(), "ERI-8\n");
    EXPECT_EQ(run({{"1", "CVE-1"},
                   {"2", "CVE-2"},
                   {"3", "CVE-3"},
                   {"4", "CVE-4"},
                   {"5", "CVE-5"},
                   {"6", "CVE-6"},
                   {"7", "CVE-7"},
                   {"8", "CVE-8"}}),
              (Map{{"1", 5}, {"2", 12}, {"3", 5}, {"4", 8}, {"5", 5}, {"6", 0}, {"7", 0}, {"8", 4}}));
    EXPECT_EQ(readFile(agent.recordPath()), "ERI-8\n");
    EXPECT_EQ(agent.countLogged("The remediation result for cpe = 4"), 0);
    EXPECT_TRUE(agent.logged("ERROR",
                             " [Remediation Manager] The patch file '' DOES NOT exist OR it failed signature "
                             "verification."));
    EXPECT_TRUE(RemediationManagerPeer::cveRows(manager)[7].getcreEriData().getInstalledSuccessfully());
}

TEST_F(InstallationPhase, ACancelDuringAFetchEndsBeforeTheInstaller) {
    agent.addContent("CVE-1", {{"ERI-1", "a.pkg"}});
    agent.addContent("CVE-2", {{"ERI-2", "b.pkg"}});
    agent.addFile("a.pkg", "successful");
    agent.addFile("b.pkg", "successful");
    agent.beforeDownload = [this](const std::string& stem) {
        if (stem == "b") manager.setCancelAllRem(true);
    };
    EXPECT_EQ(run({{"1", "CVE-1"}, {"2", "CVE-2"}}), (Map{{"1", 4}, {"2", 13}}));
    EXPECT_EQ(readFile(commands).find("b.pkg"), std::string::npos);
    EXPECT_EQ(agent.countLogged("(installPatches) DONE!!"), 0);
}

TEST_F(InstallationPhase, ACancelledRequestKeepsItsContentAsItWas) {
    agent.addContent("CVE-1", {{"ERI-1", "a.pkg"}, {"ERI-2", "b.pkg"}});
    agent.addContent("CVE-2", {{"ERI-3", "a.pkg"}, {"ERI-4", ""}, {"ERI-5", "b.pkg"}});
    agent.addFile("a.pkg", "successful");
    agent.addFile("b.pkg", "successful");
    boost::filesystem::create_directory(agent.recordPath());  // what is recorded would end the request
    std::string cancelled;
    agent.beforeDownload = [&](const std::string& stem) {
        if (stem == "b") manager.setCancelRemMap({{cancelled, ""}});
    };
    // A block without a patch name writes back what came before it.
    for (const std::string key : {"1", "2"}) {
        cancelled = key;
        RemediationManagerPeer::cveRows(manager).clear();
        EXPECT_EQ(run({{key, "CVE-" + key}}).at(key), 13U);
        EXPECT_EQ(RemediationManagerPeer::cveRows(manager)[0].getcreEriData().getInstalledSuccessfully(),
                  key == "2");
        manager.setCancelRemMap({});
    }
}

TEST_F(InstallationPhase, AnInternalErrorAfterTheFetchReads7) {
    agent.addContent("CVE-1", {{"ERI-1", "a.pkg"}});
    agent.addFile("a.pkg", "successful");
    agent.beforeDownload = [this](const std::string&) { RemediationManagerPeer::setInternalError(manager); };
    EXPECT_EQ(run({{"1", "CVE-1"}}), (Map{{"1", 7}}));
    EXPECT_EQ(agent.countLogged("Internal error occured in applying the remediation"), 1);
}

TEST_F(InstallationPhase, BundlesGoToTheApplicationsDirectory) {
    MacPatchManager mac;
    writeFile(agent.dir / "mnt/Editor.app/Contents/Info.plist", "new");
    writeFile(agent.dir / "Applications/Other.app/x", "other");
    EXPECT_EQ(mac.absAppInstallation(agent.dir / "mnt/Editor.app", "Editor.app"), 0);
    EXPECT_EQ(readFile(agent.dir / "Applications/Editor.app/Contents/Info.plist"), "new");
    EXPECT_EQ(mac.install3rdPartyPatch(agent.dir / "mnt/Editor.app", "Editor", "app"), 0);
    EXPECT_EQ(readFile(agent.dir / "Applications/Contents/Info.plist"), "new")
        << "the bundle's content, as documented";
    EXPECT_EQ(readFile(agent.dir / "Applications/Other.app/x"), "other");
    EXPECT_EQ(mac.appInstallation(agent.dir / "none.app", agent.dir / "x"), -1);
    EXPECT_EQ(mac.appInstallation("", ""), -1);
}

TEST_F(InstallationPhase, ABundlesOwnInstallerIsRun) {
    const std::string bundle = agent.dir / "Setup.app";
    writeFile(bundle + "/Contents/MacOS/setup", "#!/bin/sh\necho \"$@\"; exit $1\n");
    chmod((bundle + "/Contents/MacOS/setup").c_str(), 0755);
    MacPatchManager mac;
    mac.setSilentModeOption("Contents/MacOS/setup 0");
    EXPECT_EQ(mac.appInstaller(bundle), 0);
    mac.setSilentModeOption("Contents/MacOS/setup 3");
    EXPECT_EQ(mac.appInstaller(bundle), -1);
    mac.setSilentModeOption("");
    mac.appInstaller(bundle);
    EXPECT_TRUE(agent.logged(
        "DEBUG", "[MacPatchManager] Executing " + bundle + "/Contents/MacOS/setup' -install 2>&1"));
    boost::filesystem::remove(bundle + "/Contents/MacOS/setup");
    EXPECT_EQ(mac.appInstaller(bundle), -1) << "an empty directory holds no installer";
}

TEST_F(InstallationPhase, HostileNamesStayInTheirPlace) {
    agent.addTool("hdiutil", "for word in \"$@\"; do printf '[%s]' \"$word\"; done >> '" + commands +
                                 "'; echo >> '" + commands + "'");
    MacPatchManager mac;
    const std::string hostile = agent.dir / "it's $(touch pwned) `id`.pkg";
    writeFile(hostile, "successful");
    EXPECT_EQ(mac.pkgInstallation(hostile), 0);
    EXPECT_EQ(mac.dmgInstallation(hostile, ""), 0);
    EXPECT_NE(readFile(commands).find("[attach][-nobrowse][-mountPoint][" +
                                      agent.dir / "var/zelor/mountpoint" + "][" + hostile + "]"),
              std::string::npos);
    EXPECT_TRUE(agent.logged("INFO", "[MacPatchManager] Installation SUCCESS!! Error in disk unmounting!!"));
}

TEST_F(InstallationPhase, IdentityComesFromTheSystemAndTheAgentFiles) {
    EXPECT_EQ(MacPatchManager::getSystemPlatformCpe(), "cpe:/o:apple:mac_os_x");
    agent.addTool("sw_vers", "echo macOS");
    EXPECT_EQ(MacPatchManager::getSystemPlatformCpe(), "cpe:/o:apple:mac_os_x_server");
    agent.addTool("sw_vers", "exit 1");
    EXPECT_EQ(MacPatchManager::getSystemPlatformCpe(), "");

    MacPatchManager mac;
    const std::string ini = agent.dir / "etc/zelor/zelor.ini";
    EXPECT_EQ(mac.readValueFromIniFile(ini, MPMPROFILEID), "");
    EXPECT_TRUE(agent.logged(
        "ERROR", "[MacPatchManager] Inside readValueFromIniFile, ini file '" + ini + "' doesn't exist!!"));
    writeFile(ini, "[ScanManager]\nProfileId = Mac OS X 10.10\n");
    writeFile(agent.dir / "etc/zelor/build", "platform = mac\n[section]\nplatform = other\n");
    mac.queryAndStoreCurrentOsName();
    EXPECT_TRUE(
        agent.logged("DEBUG", "[MacPatchManager] currentOSName = Mac OS X 10.10, and currentPlatform = mac"));
    writeFile(ini, "[ScanManager\nnot an ini");
    EXPECT_EQ(mac.readValueFromIniFile(ini, MPMPROFILEID), "");
    EXPECT_TRUE(agent.logged("ERROR",
                             "[MacPatchManager] Inside getValueFromIni, Error while getting for the key "
                             "ScanManager.ProfileId"));
    EXPECT_EQ(agent.countLogged("counts as one without keys"), 1);
}

TEST_F(InstallationPhase, DiskImagesOfTwoManagersTakeTurns) {
    const std::string installed = agent.dir / "installed";
    agent.addTool(
        "hdiutil",
        "case $1 in attach) cp \"$5\" \"$4/x.pkg\"; sleep 0.3;; *) rm -f \"$2\"/*; echo ejected;; esac");
    agent.addTool("installer", "cat \"$2\" >> '" + installed + "'; echo successful");
    const auto install = [this](const std::string& name) {
        const std::string image = agent.dir / (name + ".dmg");
        writeFile(image, name + "\n");
        EXPECT_EQ(MacPatchManager().install3rdPartyPatch(image, "", "dmg"), 0) << name;
    };
    std::thread other(install, "one");
    install("two");
    other.join();
    const std::string text = readFile(installed);
    EXPECT_TRUE(text == "one\ntwo\n" || text == "two\none\n") << text;
}

}  // namespace

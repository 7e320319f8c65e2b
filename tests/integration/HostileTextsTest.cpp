#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "platform/macos/MacPatchManager.h"
#include "tests/integration/IntegrationFixture.h"
#include "tests/integration/Snapshot.h"

using zelor::test::ArchiveBuilder;
using zelor::test::changes;
using zelor::test::IntegrationFixture;
using zelor::test::readFile;
using zelor::test::snapshotOf;
using zelor::test::writeFile;
namespace fs = boost::filesystem;

namespace {

/// "canary" is a command that leaves a mark, and occurs wherever a text could be run.
const std::vector<std::string> kTexts = {
    "'; canary; '",
    "\"; canary; \"",
    "';canary;echo 'Success successful Done",
    "$(canary)",
    "`canary`",
    "${IFS}canary;canary",
    "x\ncanary\n",
    "x\r\n1999-01-01T00:00:00.000Z ERROR forged",
    "\xe2\x80\xa8"
    "1999 forged \xe2\x80\xae",
    std::string("x\0; canary", 11),
    "\x1b[2J\x1b]0;canary\x07",
    "-rf",
    "--help; canary",
    "canary|canary&canary>../left<../left",
    "../../left",
    "/left",
    "..",
    ".",
    " ",
    "",
    "*?[a-z]{b,c}~!#\\",
    "%s%n%x%99999d",
    "\xff\xfe caf\xe9 \xc0\xaf",
    std::string(4096, 'n'),
    "a=b=[c]\"",
    "]]><evil/>&lol;&#0;",
};

std::string xmlEscaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte >= 0x20 && c != '<' && c != '&' && c != '"' && c != '>';
        out += plain ? std::string(1, c) : "&#" + std::to_string(byte) + ";";
    }
    return out;
}

/// True when any system allows a file of this name.
bool namesAFile(const std::string& text) {
    return !text.empty() && text != "." && text != ".." && text.size() < 200 &&
           text.find('/') == std::string::npos && text.find('\0') == std::string::npos;
}

class HostileTexts : public testing::Test {
  protected:
    HostileTexts() {
        addTool("canary", "touch '" + canary + "'");
        // Each word that a tool gets, on a line of its own, with the line ends inside it made visible.
        const std::string note =
            "for word; do printf '%s' \"$word\" | tr '\\n' '~'; echo; done >> '" + words + "'\n";
        addTool("softwareupdate", "[ \"$1\" = -l ] && exec cat '" + listing + "'\n" + note + "echo Done");
        addTool("installer", note + "cat '" + listing + "'; echo successful");
        addTool("hdiutil", note + "echo ejected");
        addTool("sw_vers", "[ -f '" + listing + "' ] && exec cat '" + listing + "'; echo 10.10");
        setenv("PATH", (fixture.dir / "tools:" + getenv("PATH")).c_str(), 1);
        for (const char* directory : {"work", "state", "var/zelor/mountpoint"})
            fs::create_directories(fixture.dir / directory);
        EXPECT_EQ(chdir((fixture.dir / "work").c_str()), 0);
        before = snapshotOf(fixture.dir.path(), own);
    }
    ~HostileTexts() override { EXPECT_EQ(chdir("/"), 0); }

    void addTool(const std::string& name, const std::string& script) {
        writeFile(fixture.dir / ("tools/" + name), "#!/bin/sh\n" + script + "\n");
        chmod((fixture.dir / ("tools/" + name)).c_str(), 0755);
    }
    void list(const std::string& lines) { writeFile(listing, lines); }

    /// One run with a request for each text; what a text names is made by `add` under its identifier.
    IntegrationFixture::Map runAll(
        const std::string& prefix,
        const std::function<void(const std::string& id, const std::string& text)>& add) {
        std::map<std::string, std::string> requests;
        for (std::size_t i = 0; i < kTexts.size(); ++i) {
            const std::string id = prefix + std::to_string(++count);
            add(id, kTexts[i]);
            requests["text " + std::to_string(i) + "||"] = id;
        }
        return fixture.run(requests);
    }
    void addPatch(const std::string& id, const std::string& name, const std::string& extension) {
        fixture.addContent(id, xmlEscaped(name + extension));
        if (!namesAFile(name)) return;
        fixture.addArchive(name, ArchiveBuilder()
                                     .file(name + extension, "exit 0")
                                     .file(name + ".sig", fixture.key.sign("exit 0"))
                                     .finish());
    }

    /// A content directory and a system root may have any name.
    void expectToWorkIn(const std::string& directory) {
        fixture.addScript("CCE-1", "one", "exit 0");
        fixture.addContent("CVE-2", "two.pkg");
        fixture.addArchive(
            "two", ArchiveBuilder().file("two.pkg", "x").file("two.sig", fixture.key.sign("x")).finish());
        fs::remove(words);
        const auto results = fixture.run({{"1||", "CCE-1"}, {"2||", "CVE-2"}}, directory);
        EXPECT_EQ(results, (IntegrationFixture::Map{{"1||", 4}, {"2||", 4}})) << directory;
        std::string shown = directory;
        std::replace(shown.begin(), shown.end(), '\n', '~');
        EXPECT_EQ(readFile(words), "-pkg\n" + shown + "/two.pkg\n-target\n/\n");
        fs::remove(fixture.dir / "var/log/zelor/ZelorInstalledPatches.txt");
        fs::remove(words);
        setSystemRoot(directory);
        MacPatchManager().dmgInstallation("x.dmg", "x");
        setSystemRoot(fixture.dir.path().string());
        EXPECT_NE(readFile(words).find("-mountPoint\n" + shown + "/var/zelor/mountpoint\nx.dmg\n"),
                  std::string::npos)
            << readFile(words);
    }

    /// Nothing ran, no file was written elsewhere, no line of the log was forged.
    void expectUntouched(const std::string& where) {
        EXPECT_FALSE(fs::exists(canary)) << where;
        fs::remove(canary);
        EXPECT_THAT(changes(before, snapshotOf(fixture.dir.path(), own)), testing::IsEmpty()) << where;
        static const std::regex kLine(
            "2[0-9]{3}-[0-9]{2}-[0-9]{2}T[0-9:.]{12}Z (DEBUG|INFO|ERROR) [^\\x01-\\x1f\\x7f]*");
        std::istringstream log(fixture.log().substr(std::min(read, fixture.log().size())));
        for (std::string text; std::getline(log, text);) {
            // std::regex recurses for each byte.
            EXPECT_TRUE(std::regex_match(text.substr(0, 500), kLine)) << where << ": " << text;
            EXPECT_EQ(text.find('\0'), std::string::npos) << where;
            EXPECT_EQ(text.find("\xe2\x80\xa8"), std::string::npos) << where;
        }
        read = fixture.log().size();
    }

    IntegrationFixture fixture;
    const std::string canary = fixture.dir / "canary-ran", words = fixture.dir / "state/words",
                      listing = fixture.dir / "state/listing";
    const std::vector<std::string> own = {"content", "var/log", "opt",         "repo",
                                          "state",   "etc",     "Applications"};
    zelor::test::Snapshot before;
    std::size_t read = 0;
    int count = 0;
};

TEST_F(HostileTexts, InRequestsAndListings) {
    fixture.addContentText("CVE-1",
                           "<remediation identifier=\"CVE-1\"><cre><eri id=\"E\"><product>cpe:/o:apple:x"
                           "</product><instructions>OS remediation</instructions></eri></cre></remediation>");
    for (const std::string& text : kTexts) {
        list("Software Update found\n   * SecUpd" + text + "\n   * " + text + "\n\tOS X (" + text +
             "), 1K\n");
        const auto results = fixture.run({{text, "CVE-1"},
                                          {"cpe:/a:x||" + text, "CVE-1"},
                                          {"cpe:/a:y||Apple SecUpd", "CVE-1"},
                                          {"cpe:/o:apple:mac_os_x||Apple Mac OS X", "CVE-1"},
                                          {"cpe:/a:z,cpe:/o:" + text + "||z", "CVE-1"},
                                          {"i||", text},
                                          {"j||", "CCE-" + text},
                                          {"k||", "CVE-" + text}});
        EXPECT_EQ(results.at("i||"), 6U) << text;
        EXPECT_EQ(results.at("k||"), 6U) << text;
        expectUntouched("request " + text);
        RemediationManager manager(fixture.dir / "opt");
        manager.setCancelRemMap({{text, text}});
        EXPECT_TRUE(manager.thisRemIsAborted(text) || text.empty());
    }
    const std::string all = readFile(words);
    EXPECT_NE(all.find("-i\nSecUpd$(canary)\n"), std::string::npos) << "a label stays one word: " << all;
    EXPECT_EQ(all.find("-i\n-"), std::string::npos) << "a label is no option";
}

TEST_F(HostileTexts, InContent) {
    const std::string patch = "<patch id=\"none.pkg\"/>";
    const struct {
        const char* name;
        std::string head, tail;
    } fields[] = {
        {"root", "", ""},
        {"cre id", "<cre id=\"", "\"><eri id=\"E\">" + patch + "</eri></cre>"},
        {"platform", "<cre platform=\"", "\"><eri id=\"E\">" + patch + "</eri></cre>"},
        {"product", "<cre><eri id=\"E\"><product>", "</product>" + patch + "</eri></cre>"},
        {"eri id", "<cre><eri id=\"", "\"><patch id=\"done.sh\"/></eri></cre>"},
        {"instructions", "<cre><eri id=\"E\"><instructions>", "</instructions>" + patch + "</eri></cre>"},
        {"silent", "<cre><eri id=\"E\"><silent>", "</silent>" + patch + "</eri></cre>"},
        {"mskb", "<cre><eri id=\"E\"><mskb>", "</mskb>" + patch + "</eri></cre>"},
        {"size", "<cre><eri id=\"E\"><patch id=\"none.pkg\" size=\"", "\"/></eri></cre>"},
        {"md5", "<cre><eri id=\"E\"><patch id=\"none.pkg\" md5=\"", "\"/></eri></cre>"},
    };
    fixture.addScript("CCE-done", "done", "exit 0");
    for (const auto& field : fields) {
        for (const char* prefix : {"CCE-", "CVE-"}) {
            runAll(prefix, [&](const std::string& id, const std::string& text) {
                fixture.addContentText(id, "<remediation identifier=\"" + id + "\">" + field.head +
                                               xmlEscaped(text) + field.tail + "</remediation>");
            });
            expectUntouched(field.name);
        }
    }
    for (const char* extension : {".sh", ".pkg", ".dmg", ".app", "", ".", ".sig", ".zip"}) {
        const bool script = std::string(extension) == ".sh";
        runAll(script ? "CCE-" : "CVE-",
               [&](const std::string& id, const std::string& text) { addPatch(id, text, extension); });
        expectUntouched(std::string("patch id, ") + extension);
    }
    const std::string all = readFile(words);
    EXPECT_NE(all.find("-pkg\n" + fixture.dir / "content/'; canary; '.pkg\n-target\n/\n"), std::string::npos)
        << all;
}

TEST_F(HostileTexts, InArchives) {
    runAll("CCE-", [&](const std::string& id, const std::string& text) {
        ArchiveBuilder zip;
        zip.file(id + ".sh", "exit 0").file(id + ".sig", fixture.key.sign("exit 0"));
        if (!text.empty()) zip.file(text, "x").link(id + "-link", text).directory("d/" + text);
        fixture.addContent(id, id + ".sh");
        fixture.addArchive(id, zip.finish());
    });
    expectUntouched("entry name");
}

TEST_F(HostileTexts, InTheAgentsFiles) {
    const std::string ini = fixture.dir / "etc/zelor/zelor.ini";
    const std::string good = readFile(ini);
    fixture.addScript("CCE-1", "one", "exit 0");
    for (const std::string& text : kTexts) {
        std::string whole = "[ScanManager]\nProfileId = " + text + "\n[Limits]\nCommandMinutes = " + text;
        whole += "\n[Installation]\nVendorProducts = " + text + "\n[Log]\nLevel = " + text + "\n";
        for (const char* key : {"UnzipFolder", "PatchesDir", "PatchesDirSizeMB", "SpeedPercent"}) {
            writeFile(ini, good.substr(0, good.find("[Buffer]")) + "[Buffer]\n" + key + " = " + text + "\n");
            fixture.run({{"1||", "CCE-1"}});
        }
        for (const std::string& more :
             {whole, "[Repository]\nUrl = " + text + "\nTrustedKey = " + text, text}) {
            writeFile(ini, more);
            fixture.run({{"1||", "CCE-1"}});
        }
        writeFile(ini, good);
        writeFile(fixture.dir / "etc/zelor/build", "platform = " + text);
        writeFile(fixture.dir / "var/log/zelor/ZelorInstalledPatches.txt", text + "\n");
        writeFile(fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt", text + "=00\none.sh=" + text);
        fixture.run({{"1||", "CCE-1"}});
        fs::remove(fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt");
        expectUntouched("file of the agent: " + text);
    }
}

TEST_F(HostileTexts, InWhatToolsPrintAndInPaths) {
    const std::string odd = fixture.dir / "work";
    MacPatchManager manager;
    for (const std::string& text : kTexts) {
        list(text + "\n");
        RemediationManager runner(fixture.dir / "opt");
        manager.pkgInstallation(odd + "/" + text + "/x.pkg");
        manager.dmgInstallation(odd + "/" + text + ".dmg", text);
        manager.install3rdPartyPatch(text, text, text);
        const std::string bundle = odd + "/" + text + ".app";
        if (namesAFile(text)) writeFile(bundle + "/Contents/MacOS/" + text, "#!/bin/sh\ncanary\n");
        for (const char* option : {"", "Contents/none --quiet"}) {
            manager.setSilentModeOption(option);
            manager.appInstaller(bundle);
        }
        if (namesAFile(text)) manager.applyConfig(bundle + "/" + text);
        if (namesAFile(text)) expectToWorkIn(odd + "/" + text);
        fs::remove_all(odd);  // from here on the working directory is missing
        fs::create_directory(odd);
        expectUntouched("path or output " + text);
    }
}

TEST_F(HostileTexts, InTheLibrarysOwnOperations) {
    const std::string list = fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt";
    for (const std::string& text : kTexts) {
        RemediationManager manager(fixture.dir / "opt");
        manager.setContentDownloadDir(fixture.dir / "content");
        bool buffered = true;
        for (const char* extension : {"", ".sh"})
            EXPECT_EQ(manager.getFileFromRepo(text + extension, text, text, buffered), "");
        manager.addEntryInInstalledPatchesFile(0, text);
        manager.addPatchBufferedEntry(text, text, list);
        EXPECT_FALSE(manager.patchIsAlreadyBuffered(text, text, list));
        manager.removeEntryFromBufferedPatchesFile(text);
        manager.cleanupBufferedPatch(text, text);
        manager.downloadSizeExceedsAllotedSize(text);
        const std::string lines = fixture.record() + readFile(list);
        for (const char* forged : {"\ncanary\n", "\n1999"})
            EXPECT_EQ(lines.find(forged), std::string::npos) << "a line of the record or list is forged";
        fs::remove(list);
        expectUntouched("operation on " + text);
    }
}

}  // namespace

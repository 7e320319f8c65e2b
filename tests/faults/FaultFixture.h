#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "agent/trust/BundleManifest.h"
#include "base/CommandRunner.h"
#include "tests/integration/IntegrationFixture.h"

namespace zelor::test {

/// What one run of the controller did.
struct Ended {
    bool inTime = true;
    int status = -1;                              ///< raw wait status
    std::string errors;                           ///< standard error: progress and complaints
    std::map<std::string, unsigned long> values;  ///< by request key, as reported on standard output

    int exit() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
};

/// A rehearsal Mac, a repository and the controller as a process of its own that a fault can be put into: two
/// scripts (one of them buffered), a package and a bundle. What each installs can be seen.
class FaultFixture {
  public:
    FaultFixture() {
        mac({"init", tools, "--root", root, "--os", "10.10.5"});
        addScriptPatch("CCE-1", "first");
        addScriptPatch("CCE-2", "second");
        addPackage();
        addBundle();
        writeFile(fixture.dir / "requests.json", R"({"cpe:/o:a||": "CCE-1", "cpe:/o:b||": "CCE-2",
            "cpe:/a:example:editor||Editor": "CVE-1", "cpe:/a:example:notes||Notes": "CVE-2"})");
        setUp("[Log]\nLevel = error\n");
    }

    /// The settings behind those of the repository.
    void setUp(const std::string& more) {
        const std::string ini = fixture.dir / "etc/zelor/zelor.ini";
        const std::string text = readFile(ini);
        writeFile(ini, text.substr(0, text.find("[Log]")) + more);
    }

    void mac(std::vector<std::string> words) {
        words.insert(words.begin(), ZELOR_REHEARSAL_PROGRAM);
        const base::CommandResult result = base::runCommand(words, true, std::chrono::seconds(0));
        ASSERT_EQ(result.status, 0) << result.output;
    }

    /// Nothing installed, one script in the buffer.
    void reset() {
        for (const char* directory : {"var", "opt", "Applications", "done"})
            boost::filesystem::remove_all(fixture.dir.path() / directory);
        for (const char* directory : {"var/zelor/unzip", "var/zelor/buffer", "var/log/zelor", "opt/zelor",
                                      "Applications", "done", "var/zelor/mountpoint"})
            boost::filesystem::create_directories(fixture.dir.path() / directory);
        boost::filesystem::copy_file(fixture.dir.path() / "repo/patches/first-.zip",
                                     fixture.dir.path() / "var/zelor/buffer/first-.zip");
        writeFile(list, "first-.bsh=00\n");
    }

    /// `command` with the shim's settings `orders` ("ZELOR_FAULT=..."); none: without the shim. `before` goes
    /// before the controller's words.
    Ended run(const std::string& command, const std::vector<std::string>& orders = {},
              const std::vector<std::string>& before = {}) {
        std::vector<std::string> words = {
            "/bin/sh", "-c",           "exec 2>'" + (fixture.dir / "errors") + "'; exec \"$@\"",
            "run",     "/usr/bin/env", "ZELOR_REHEARSAL_ROOT=" + root};
        const auto add = [&words](const std::vector<std::string>& more) {
            words.insert(words.end(), more.begin(), more.end());
        };
        add(orders);
        if (!orders.empty()) add({"LD_PRELOAD=" ZELOR_FAULT_SHIM});
        add(before);
        add({ZELOR_REMEDIATE_PROGRAM, command, fixture.dir / "requests.json", "--root", root, "--tools",
             tools, "--json", "-"});
        const base::CommandResult result = base::runCommand(words, false, std::chrono::seconds(300));
        Ended ended;
        ended.inTime = result.started && !result.timedOut;
        ended.status = result.status;
        ended.errors = readFile(fixture.dir / "errors");
        if (command == "run") readValues(result.output, ended.values);
        return ended;
    }

    /// The ERIs whose effect can be seen.
    std::set<std::string> installed() const {
        std::set<std::string> ids;
        for (const auto& [id, path] : effects_) {
            if (boost::filesystem::exists(path)) ids.insert(id);
        }
        return ids;
    }
    /// The lines of a file; one that is torn has no '\n' at its end.
    static std::vector<std::string> lines(const std::string& path) {
        std::vector<std::string> found;
        std::istringstream text(readFile(path));
        for (std::string line; std::getline(text, line);)
            found.push_back(text.eof() ? line : line + '\n');
        return found;
    }
    std::string log() const { return readFile(fixture.dir / "var/log/zelor/remediation.log"); }

    const std::map<std::string, std::string>& keys() const { return keys_; }

    IntegrationFixture fixture;
    std::string root = fixture.dir.path().string();
    std::string tools = fixture.dir / "tools";
    std::string record = fixture.dir / "var/log/zelor/ZelorInstalledPatches.txt";
    std::string list = fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt";

  private:
    void addScriptPatch(const std::string& identifier, const std::string& name) {
        // More than one page, and more than one piece of a copy.
        const std::string text =
            "echo done > '" + (fixture.dir / ("done/" + name)) + "'\n: " + std::string(9000, 'x') + "\n";
        fixture.addContent(identifier, name + "-.bsh");
        fixture.addArchive(name + "-", ArchiveBuilder()
                                           .file(name + "-.bsh", text)
                                           .file(name + "-.sig", fixture.key.sign(text))
                                           .finish());
        effects_["ERI-" + identifier] = fixture.dir / ("done/" + name);
        keys_[identifier == "CCE-1" ? "cpe:/o:a||" : "cpe:/o:b||"] = "ERI-" + identifier;
    }

    void addPackage() {
        writeFile(fixture.dir / "src/Example Editor/about.txt", "2.1");
        mac({"build-pkg", "--id", "com.example.editor", "--version", "2.1", "--install-location",
             "/Applications", fixture.dir / "src", fixture.dir / "editor.pkg"});
        const std::string package = readFile(fixture.dir / "editor.pkg");
        fixture.addContent("CVE-1", "editor-.pkg");
        fixture.addArchive("editor-", ArchiveBuilder()
                                          .file("editor-.pkg", package)
                                          .file("editor-.sig", fixture.key.sign(package))
                                          .finish());
        effects_["ERI-CVE-1"] = fixture.dir / "Applications/Example Editor/about.txt";
        keys_["cpe:/a:example:editor||Editor"] = "ERI-CVE-1";
    }

    void addBundle() {
        const std::string bundle = fixture.dir / "Notes-.app";
        const std::string text(20000, 'n');
        writeFile(bundle + "/Notes/Contents/a.txt", text);
        writeFile(bundle + "/Notes/z.txt", "last");
        ArchiveBuilder archive;
        for (const std::string& directory :
             {std::string(), std::string("/Notes"), std::string("/Notes/Contents")}) {
            ::chmod((bundle + directory).c_str(), 0755);
            archive.directory("Notes-.app" + directory);
        }
        for (const std::string& file : {std::string("/Notes/Contents/a.txt"), std::string("/Notes/z.txt")}) {
            ::chmod((bundle + file).c_str(), 0644);
            archive.file("Notes-.app" + file, readFile(bundle + file));
        }
        archive.link("Notes-.app/Notes/Current", "Contents");
        boost::filesystem::create_symlink("Contents", bundle + "/Notes/Current");
        archive.file("Notes-.sig", fixture.key.sign(agent::bundleManifest(bundle)));
        fixture.addContent("CVE-2", "Notes-.app");
        fixture.addArchive("Notes-", archive.finish());
        effects_["ERI-CVE-2"] = fixture.dir / "Applications/Notes/z.txt";
        keys_["cpe:/a:example:notes||Notes"] = "ERI-CVE-2";
    }

    static void readValues(const std::string& json, std::map<std::string, unsigned long>& values) {
        // "<key>": {"identifier":"...","value":4,...
        const std::string mark = "\"value\":";
        for (auto at = json.find(mark); at != std::string::npos; at = json.find(mark, at + 1)) {
            const auto begin = json.rfind('\n', at) + 1;
            const auto open = json.find('"', begin) + 1;
            values[json.substr(open, json.find('"', open) - open)] =
                std::stoul(json.substr(at + mark.size()));
        }
    }

    std::map<std::string, std::string> effects_;  ///< ERI to the file that it leaves
    std::map<std::string, std::string> keys_;     ///< request to ERI
};

}  // namespace zelor::test

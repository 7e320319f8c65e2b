#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "authoring/CommandLine.h"
#include "support/TempDir.h"

namespace zelor::test {

/// What one run of the author's tool said and how it ended.
struct ToolRun {
    int status = 0;
    std::string out;
    std::string err;
};

inline ToolRun contentTool(const std::vector<std::string>& arguments) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ToolRun run;
    run.status = runContentTool(arguments);
    run.out = testing::internal::GetCapturedStdout();
    run.err = testing::internal::GetCapturedStderr();
    return run;
}

/// An author's folder: keys, sources of every kind and a manifest of them.
struct Authoring : testing::Test {
    TempDir dir;
    std::string repository = dir / "repository", source = dir / "source";
    std::string privateKey = dir / "keys/repository.key", publicKey = dir / "keys/repository.pem";
    std::string manifest = R"([
        {"identifier": "CCE-1", "platform": "cpe:/o:apple:mac_os_x", "file": "lock.bsh", "reboot": true,
         "instructions": "Locks <the> screen & keeps it so"},
        {"identifier": "CVE-1", "cres": [
            {"id": "CRE-7", "product": "cpe:/a:x:one", "file": "editor-2.1.pkg", "silent": "tool -q"},
            {"product": "cpe:/a:x:two", "eris": [{"id": "ERI-8", "file": "image.dmg"}]}]},
        {"identifier": "CVE-2", "product": "cpe:/a:x:bundle", "file": "Bundle.app/"},
        {"identifier": "CVE-3", "platform": "cpe:/o:apple:mac_os_x", "instructions": "OS Remediation: update"}
    ])";

    Authoring() {
        contentTool({"keygen", "--out", dir / "keys"});
        writeFile(source + "/lock.bsh", "#!/bin/bash\nexit 0\n");
        writeFile(source + "/editor-2.1.pkg", std::string(300'000, 'p') + "end");
        writeFile(source + "/image.dmg", "image");
        const std::string app = source + "/Bundle.app/Bundle.app";
        writeFile(app + "/Contents/MacOS/run", "program");
        writeFile(app + "/Versions/A/lib \xc3\xa9", "library");
        boost::filesystem::create_symlink("A", app + "/Versions/Current");
        ::chmod((app + "/Contents/MacOS/run").c_str(), 0755);
        ::chmod((app + "/Versions").c_str(), 0750);
    }

    ToolRun publish() { return publish(manifest); }
    ToolRun publish(const std::string& text) {
        writeFile(source + "/manifest.json", text);
        return contentTool({"publish", source + "/manifest.json", "--key", privateKey, "--out", repository});
    }
    ToolRun check() { return contentTool({"check", repository, "--key", publicKey}); }
    /// Runs a shell command in the author's folder; its exit status.
    int shell(const std::string& command) const {
        const int status =
            std::system(("cd '" + dir.path().string() + "' && { " + command + "; } >/dev/null 2>&1").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

}  // namespace zelor::test

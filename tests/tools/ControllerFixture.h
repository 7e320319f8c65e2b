#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "controller/CommandLine.h"
#include "tests/integration/IntegrationFixture.h"
#include "tests/support/TempDir.h"

namespace zelor::test {

/// Output and exit status of one run of the controller.
struct ControllerRun {
    int status = 0;
    std::string out;
    std::string err;
};

inline ControllerRun controller(const std::vector<std::string>& arguments) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ControllerRun run;
    run.status = controller::runController(arguments);
    run.out = testing::internal::GetCapturedStdout();
    run.err = testing::internal::GetCapturedStderr();
    return run;
}

/// A root with settings and a key, a repository with scripts behind it, and a directory of tools.
struct ControllerTest : testing::Test {
    IntegrationFixture fixture;
    std::string root = fixture.dir.path().string();
    std::string requests = fixture.dir / "requests.json";

    ControllerTest() {
        tool("sw_vers", "case $1 in -productName) echo Mac OS X ;; *) echo 10.10.5 ;; esac");
        tool("softwareupdate", "true");
        tool("installer", "echo The install was successful.");
    }

    void tool(const std::string& name, const std::string& script) {
        const std::string path = fixture.dir / ("tools/" + name);
        writeFile(path, "#!/bin/sh\n" + script + "\n");
        ::chmod(path.c_str(), 0755);
    }
    /// Runs a command on the requests below the root.
    ControllerRun on(const std::string& command, const nlohmann::json& map,
                     const std::vector<std::string>& more = {}) {
        writeFile(requests, map.dump());
        return at(command, more, {requests});
    }
    ControllerRun at(const std::string& command, const std::vector<std::string>& more = {},
                     std::vector<std::string> first = {}) {
        first.insert(first.begin(), command);
        first.insert(first.end(), {"--root", root, "--tools", fixture.dir / "tools"});
        first.insert(first.end(), more.begin(), more.end());
        return controller(first);
    }
    nlohmann::json readJson(const std::string& name) {
        return nlohmann::json::parse(readFile(fixture.dir / name));
    }
};

}  // namespace zelor::test

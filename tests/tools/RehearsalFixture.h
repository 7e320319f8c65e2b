#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempDir.h"

namespace zelor::test {

using Words = std::vector<std::string>;

struct MacRun {
    int status = -1;  ///< as waitpid gives it
    int exit = -1;    ///< -1 when a signal ended it
    std::string out;
    std::string err;
};

/// Like readFile, but fast enough for a flood.
inline std::string wholeFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

/// A rehearsal Mac in a temporary directory, its tools run as processes.
struct RehearsalMac : testing::Test {
    TempDir dir;
    std::string tools = dir / "mac", root = dir / "root";

    RehearsalMac() { run({ZELOR_REHEARSAL_PROGRAM, "init", tools, "--root", root, "--os", "10.10.5"}); }

    /// Runs a command; its first word is a path, or looked up in `path`. After `limit` seconds it gets
    /// SIGALRM.
    pid_t start(const Words& words, const std::string& path, const std::string& streams, unsigned limit) {
        const pid_t child = fork();
        if (child != 0) return child;
        const int out = open((streams + ".out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = open((streams + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        if (!path.empty()) setenv("PATH", path.c_str(), 1);
        alarm(limit);
        std::vector<char*> argv;
        for (const std::string& word : words)
            argv.push_back(const_cast<char*>(word.c_str()));
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(126);
    }

    MacRun finish(pid_t child, const std::string& streams) {
        MacRun result;
        waitpid(child, &result.status, 0);
        if (WIFEXITED(result.status)) result.exit = WEXITSTATUS(result.status);
        result.out = wholeFile(streams + ".out");
        result.err = wholeFile(streams + ".err");
        return result;
    }

    MacRun run(const Words& words, const std::string& path = "", unsigned limit = 0) {
        const std::string streams = dir / "streams";
        return finish(start(words, path, streams, limit), streams);
    }

    MacRun tool(const std::string& name, Words arguments, unsigned limit = 0) {
        arguments.insert(arguments.begin(), tools + "/" + name);
        return run(arguments, "", limit);
    }

    /// Runs the program under its own name in the tools directory; must succeed.
    MacRun mac(const Words& arguments) {
        MacRun result = tool("zelor-rehearsal", arguments);
        EXPECT_EQ(result.exit, 0) << result.err;
        return result;
    }

    void addUpdate(const std::string& label, Words more = {}) {
        Words words{"add-update", "--label", label,    "--title", "Title of " + label,
                    "--version",  "1.0",     "--size", "10"};
        words.insert(words.end(), more.begin(), more.end());
        mac(words);
    }

    nlohmann::json state() { return nlohmann::json::parse(readFile(tools + "/state/state.json")); }
};

/// A directory's entries with type, mode, time, and content or target: equal for equal trees.
inline std::map<std::string, std::string> treeOf(const std::string& directory) {
    namespace fs = boost::filesystem;
    std::map<std::string, std::string> tree;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        struct stat status {};
        lstat(entry.path().c_str(), &status);
        std::string& text = tree[entry.path().lexically_relative(directory).string()];
        if (S_ISLNK(status.st_mode)) {
            text = "-> " + fs::read_symlink(entry.path()).string();
            continue;
        }
        text = std::to_string(status.st_mode);
        if (S_ISREG(status.st_mode)) {
            text += " " + std::to_string(status.st_mtime) + " " + readFile(entry.path().string());
        }
    }
    return tree;
}

/// A source directory like a bundle: nested links, modes, blanks, non-ASCII letters, deep directories.
inline void makeSource(const std::string& directory) {
    namespace fs = boost::filesystem;
    const std::string framework = directory + "/Ex ample.app/Contents/Frameworks/X.framework";
    writeFile(
        framework + "/Versions/A/Resources/en.lproj/deep/er/f\xc3\xa9 with a long name, blanks and more.txt",
        "deep");
    writeFile(framework + "/Versions/A/X", std::string(300'000, 'x'));
    fs::create_symlink("A", framework + "/Versions/Current");
    fs::create_symlink("Versions/Current/X", framework + "/X");
    writeFile(directory + "/Ex ample.app/Contents/MacOS/run", "#!/bin/bash\n");
    writeFile(directory + "/empty", "");
    writeFile(directory + "/empty too", "");
    chmod((directory + "/Ex ample.app/Contents/MacOS/run").c_str(), 0750);
    chmod((directory + "/Ex ample.app/Contents/MacOS").c_str(), 0555);
}

}  // namespace zelor::test

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "authoring/Commands.h"
#include "support/TempDir.h"

namespace zelor::test {

/// A file with the header of a flat package.
inline std::string flatPackage(const std::string& rest) {
    constexpr char kHeader[] = "xar!\0\34\0\1\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\1\0\0\0\1";
    return std::string(kHeader, sizeof kHeader - 1) + rest;
}

/// Output and exit status of one run of the author's tool.
struct ToolRun {
    int status = 0;
    std::string out;
    std::string err;
};

inline ToolRun contentTool(const std::vector<std::string>& arguments) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ToolRun run;
    run.status = authoring::runContentTool(arguments);
    run.out = testing::internal::GetCapturedStdout();
    run.err = testing::internal::GetCapturedStderr();
    return run;
}

/// The tool as another process, with its standard output in a pipe.
class ToolProcess {
  public:
    ToolProcess(std::vector<std::string> arguments, const std::string& errors) {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
        std::vector<char*> words = {const_cast<char*>("zelor-content")};
        for (std::string& argument : arguments)
            words.push_back(argument.data());
        words.push_back(nullptr);
        child_ = ::fork();
        if (child_ == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            ::close(ends[0]);
            if (std::freopen(errors.c_str(), "w", stderr) == nullptr) ::_exit(99);
            ::execv(ZELOR_CONTENT_PROGRAM, words.data());
            ::_exit(98);
        }
        ::close(ends[1]);
        output_ = ::fdopen(ends[0], "r");
    }
    ~ToolProcess() {
        if (child_ > 0) end(SIGKILL);
        std::fclose(output_);
    }
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    /// Waits for the next line; "" at the end of the output.
    std::string line() const {
        std::array<char, 1000> text{};
        if (std::fgets(text.data(), text.size(), output_) == nullptr) return "";
        const std::string found = text.data();
        return found.substr(0, found.find('\n'));
    }
    pid_t pid() const { return child_; }
    bool ended() const {
        siginfo_t info{};
        return ::waitid(P_PID, static_cast<id_t>(child_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == child_;
    }
    /// Sends the signal (0: none) and waits; the raw wait status.
    int end(int signal) {
        int status = -1;
        ::kill(child_, signal);
        ::waitpid(child_, &status, 0);
        child_ = 0;
        return status;
    }

  private:
    pid_t child_ = 0;
    std::FILE* output_ = nullptr;
};

/// An author's directory: keys, sources of every kind and a manifest of them.
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
        writeFile(source + "/editor-2.1.pkg", flatPackage(std::string(300'000, 'p') + "end"));
        writeFile(source + "/image.dmg", image("image"));
        const std::string app = source + "/Bundle.app/Bundle.app";
        writeFile(app + "/Contents/MacOS/run", "program");
        writeFile(app + "/Versions/A/lib \xc3\xa9", "library");
        boost::filesystem::create_symlink("A", app + "/Versions/Current");
        ::chmod((app + "/Contents/MacOS/run").c_str(), 0755);
        ::chmod((app + "/Versions").c_str(), 0750);
    }

    /// Bytes that end as a disk image does.
    static std::string image(const std::string& bytes) {
        return bytes + std::string("koly").append(508, '\0');
    }
    ToolRun publish() { return publish(manifest); }
    ToolRun publish(const std::string& text, std::vector<std::string> more = {}) {
        writeFile(source + "/manifest.json", text);
        more.insert(more.begin(),
                    {"publish", source + "/manifest.json", "--key", privateKey, "--out", repository});
        return contentTool(more);
    }
    ToolRun check() { return contentTool({"check", repository, "--key", publicKey}); }
    /// Runs a shell command in the author's directory; its exit status.
    int shell(const std::string& command) const {
        const int status =
            std::system(("cd '" + dir.path().string() + "' && { " + command + "; } >/dev/null 2>&1").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

}  // namespace zelor::test

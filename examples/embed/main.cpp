// Remediates the requests of the command line: the whole loop of an agent around the library.
// usage: embed-... [--root DIR] [--tools DIR] KEY=IDENTIFIER...
// for example: embed-own --root /tmp/mac 'cpe:/o:apple:mac_os_x||Guest account=CCE-26932-4'
#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <chrono>
#include <exception>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "base/SystemRoot.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunObserver.h"

namespace {

struct Arguments {
    std::string root;
    std::string tools;
    std::map<std::string, std::string> requests;
};

volatile sig_atomic_t interrupted = 0;

void noteInterrupt(int /*signal*/) {
    interrupted = 1;
}

bool parse(int count, char** words, Arguments& arguments) {
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        if ((word == "--root" || word == "--tools") && i + 1 < count) {
            (word == "--root" ? arguments.root : arguments.tools) = words[++i];
            continue;
        }
        const auto equals = word.rfind('=');
        if (equals == std::string::npos || word.front() == '-') return false;
        arguments.requests[word.substr(0, equals)] = word.substr(equals + 1);
    }
    return !arguments.requests.empty();
}

// Process-wide settings are made before the first manager and before other threads.
void prepareProcess(const Arguments& arguments) {
    const std::string system = "/usr/bin:/bin:/usr/sbin:/sbin";
    setenv("PATH", (arguments.tools.empty() ? system : arguments.tools + ":" + system).c_str(), 1);
    setSystemRoot(arguments.root);
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
}

// Receives the reasons of results on the run's thread; the polling thread reads them.
class Reasons : public zelor::RunObserver {
  public:
    void settled(const zelor::RequestResult& result) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::string text = result.reason;
        if (result.applied == zelor::Applied::now) text = "applied by this run";
        if (result.applied == zelor::Applied::before) text = "was applied before";
        // The text can come from servers and tools, so it must not control the terminal.
        std::replace_if(
            text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
        reasons_[result.key] = text;
    }
    std::map<std::string, std::string> all() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return reasons_;
    }

  private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> reasons_;
};

void printChanges(const std::map<std::string, unsigned long>& now,
                  std::map<std::string, unsigned long>& before) {
    for (const auto& [key, value] : now) {
        const auto known = before.find(key);
        if (known == before.end() || known->second != value) std::cout << key << ": " << value << std::endl;
    }
    before = now;
}

int remediate(const Arguments& arguments) {
    const std::string contentDir = underSystemRoot("/var/zelor/content");
    const std::string installPath = underSystemRoot("/opt/zelor");
    for (const auto& directory : {installPath, underSystemRoot("/var/log/zelor")}) {
        boost::filesystem::create_directories(directory);
    }

    Reasons reasons;  // outlives the run
    RemediationManager manager(installPath);
    manager.setRunObserver(&reasons);
    manager.setovalIdMap(arguments.requests);
    manager.setContentDownloadDir(contentDir);
    manager.setFirstRemediationAfterScan(false);
    manager.remediate(true);

    std::map<std::string, unsigned long> shown;
    bool cancelled = false;
    while (!manager.getRemDone()) {
        if (interrupted != 0 && !cancelled) {
            manager.setCancelAllRem(true);
            cancelled = true;
            std::cout << "cancelling" << std::endl;
        }
        printChanges(manager.getRemediationProgressMap(), shown);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }

    const auto results = manager.getRemediationProgressMap();
    printChanges(results, shown);
    for (const auto& [key, reason] : reasons.all()) {
        if (!reason.empty()) std::cout << key << ": " << reason << std::endl;
    }
    std::cout << "reboot needed: " << (manager.getRebootNeeded() ? "yes" : "no")
              << "; scan needed: " << (manager.getScanNeeded() ? "yes" : "no")
              << "; all failed: " << (manager.getAllRemFailed() ? "yes" : "no") << std::endl;
    if (cancelled) return 130;
    for (const auto& [key, value] : results) {
        if (value != RemediationManager::REM_SUCCESS) return 1;
    }
    return 0;
}

}  // namespace

int main(int count, char** words) {
    Arguments arguments;
    if (!parse(count, words, arguments)) {
        std::cerr << "usage: " << words[0] << " [--root DIR] [--tools DIR] KEY=IDENTIFIER...\n";
        return 2;
    }
    try {
        prepareProcess(arguments);
        return remediate(arguments);
    } catch (const std::exception& problem) {
        std::cerr << words[0] << ": " << problem.what() << '\n';
        return 2;
    }
}

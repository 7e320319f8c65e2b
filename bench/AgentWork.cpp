// The default agent's operations on the files that scripts/bench prepared; exits with 1 when one fails.
// usage: zelor_bench_agent fetch ROOT COUNT | content ROOT COUNT | scripts ROOT COUNT | copy SOURCE TARGET

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "base/DirectoryCopy.h"
#include "base/SystemRoot.h"
#include "collaborators/CreCacher.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RemediationManager.h"

namespace {

const char* const kInstallPath = "/opt/zelor";
const char* const kContentDir = "/content";
const char* const kPlatform = "cpe:/o:apple:mac_os_x";
const char* const kProduct = "cpe:/a:example:editor";

void require(bool good, const std::string& what) {
    if (!good) throw std::runtime_error(what + " failed; see var/log/zelor/remediation.log below the root");
}

/// Downloads, unpacks and verifies one archive after the other.
void fetch(int count) {
    RemediationManager manager(underSystemRoot(kInstallPath));
    manager.setContentDownloadDir(underSystemRoot(kContentDir));
    for (int i = 0; i < count; ++i) {
        bool usedBufferedCopy = false;
        const std::string name = "archive-" + std::to_string(i) + ".pkg";
        require(!manager.getFileFromRepo(name, "key", "", usedBufferedCopy).empty(), name);
    }
}

void content(int count) {
    CreCacher* cacher = CreCacher::GetInstance(underSystemRoot(kInstallPath), "");
    for (int i = 0; i < count; ++i) {
        const std::string identifier = "CVE-2014-" + std::to_string(100000 + i);
        require(!cacher->getCre(kPlatform, kProduct, identifier).getParsingFailed(), identifier);
    }
}

void applyScripts(int count) {
    for (int i = 0; i < count; ++i) {
        const std::string path = underSystemRoot("/scripts/script-" + std::to_string(i) + ".sh");
        require(MacPatchManager().applyConfig(path) == 0, path);
    }
}

void run(const std::string& work, const std::string& first, const std::string& second) {
    if (work == "copy") {
        const std::string problem = zelor::base::copyTree(first, second, true);
        if (!problem.empty()) throw std::runtime_error(problem);
        return;
    }
    setSystemRoot(first);
    const int count = std::atoi(second.c_str());
    if (count <= 0) throw std::runtime_error("COUNT is a number above 0");
    if (work == "fetch") return fetch(count);
    if (work == "content") return content(count);
    if (work == "scripts") return applyScripts(count);
    throw std::runtime_error("no work " + work);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr,
                     "usage: zelor_bench_agent fetch|content|scripts ROOT COUNT | copy SOURCE TARGET\n");
        return 2;
    }
    try {
        run(argv[1], argv[2], argv[3]);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "zelor_bench_agent: %s\n", problem.what());
        return 1;
    }
    return 0;
}

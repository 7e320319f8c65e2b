// Adds, replaces and removes entries of the buffered-patches list below a root directory, with their
// archives, until it is killed. Changes only patches named "churn-<n>.pkg". usage: zelor_list_operations ROOT
// SEED

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "base/SystemRoot.h"
#include "collaborators/ConfigurationManager.h"
#include "remediation/RemediationManager.h"
#include "tests/support/TempDir.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: zelor_list_operations ROOT SEED\n", stderr);
        return 2;
    }
    setSystemRoot(argv[1]);
    RemediationManager manager(underSystemRoot("/opt/zelor"));
    ConfigurationManager* configuration = ConfigurationManager::GetInstance("");
    const std::string list = configuration->getUnzipFileFolder() + "/bufferdPatchesList.txt";
    std::mt19937 random(static_cast<unsigned>(std::atoi(argv[2])));
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
        const std::string number = std::to_string(random() % 20);
        const std::string patch = "churn-" + number + "-.pkg";
        if (random() % 3 == 0) {
            manager.cleanupBufferedPatch(patch, "");
        } else {
            // As the downloader does: a complete file appears under its name.
            const std::string archive = configuration->getBufferPatchesDir() + "/churn-" + number + "-.zip";
            zelor::test::writeFile(archive + ".new", "archive");
            boost::filesystem::rename(archive + ".new", archive);
            manager.addPatchBufferedEntry(patch, "0123456789abcdef0123456789abcdef", list);
        }
    }
}

#include <sys/stat.h>

#include <iostream>
#include <sstream>

#include "authoring/Commands.h"
#include "authoring/OutputFile.h"
#include "authoring/UsageError.h"
#include "authoring/fleet/FleetPage.h"
#include "base/PrintableText.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

// The results of a run of 20,000 requests take about 8 MiB; parsing takes up to 20 times a text's size.
constexpr std::size_t kResultsBytesLimit = std::size_t{32} << 20U;

void refuseOutputAmongInputs(const std::string& out, const std::vector<FleetFile>& files) {
    struct stat output {};
    if (::stat(out.c_str(), &output) != 0) return;
    for (const FleetFile& file : files) {
        struct stat input {};
        if (::stat(file.path.c_str(), &input) == 0 && input.st_dev == output.st_dev &&
            input.st_ino == output.st_ino)
            throw UsageError("--out " + out + " is one of the files to read; name another file");
    }
}

/// What speaks against a file, "" when its results were added.
std::string problemOf(Fleet& fleet, const FleetFile& file) {
    try {
        const auto run = results::parseRun(base::readBounded(file.path, kResultsBytesLimit, file.links));
        if (!run) return run.error().text;
        const base::Check added = fleet.add(*run);
        return added ? "" : added.error().text;
    } catch (const std::exception& e) {
        return e.what();
    }
}

}  // namespace

int runFleet(const FleetOptions& options) {
    std::vector<UnreadFile> unread;
    const std::vector<FleetFile> files = fleetFiles(options.results, unread);
    if (options.out != "-") refuseOutputAmongInputs(options.out, files);
    OutputFile out(options.out, "--out");
    Fleet fleet;
    for (const FleetFile& file : files) {
        const std::string problem = problemOf(fleet, file);
        if (!problem.empty()) unread.push_back({file.path, problem});
    }
    for (const UnreadFile& file : unread) {
        const bool named = base::contains(file.reason, file.path);
        std::cerr << "zelor-content: " << base::printable((named ? "" : file.path + ": ") + file.reason)
                  << '\n';
    }
    if (fleet.machines().empty()) {
        throw UsageError(
            "there are no results to show; name files that zelor-remediate run --json wrote, or "
            "directories with such files, named *.json");
    }
    std::ostringstream page;
    writeFleetPage(page, fleet, unread);
    out.write(page.str());
    return unread.empty() ? exitStatus::kGood : exitStatus::kFailed;
}

}  // namespace zelor::authoring

#include "authoring/fleet/FleetFiles.h"

#include <algorithm>
#include <boost/filesystem.hpp>

#include "base/Strings.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

void addDirectory(const std::string& directory, std::vector<FleetFile>& files,
                  std::vector<UnreadFile>& unread) {
    std::vector<std::string> waiting = {directory};
    while (!waiting.empty()) {
        const std::string next = waiting.back();
        waiting.pop_back();
        boost::system::error_code error;
        fs::directory_iterator entry(next, error);
        for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
            const std::string name = entry->path().filename().string();
            boost::system::error_code ignored;
            if (base::hasBeginning(name, ".")) continue;
            const fs::file_type type = entry->symlink_status(ignored).type();
            if (type == fs::directory_file) {
                waiting.push_back(entry->path().string());
            } else if (base::hasEnding(name, ".json") && type == fs::symlink_file) {
                unread.push_back({entry->path().string(), "a symbolic link, which is not followed"});
            } else if (base::hasEnding(name, ".json")) {
                files.push_back({entry->path().string(), base::Links::refuse});
            }
        }
        if (error) unread.push_back({next, "cannot read the directory: " + error.message()});
    }
}

}  // namespace

std::vector<FleetFile> fleetFiles(const std::vector<std::string>& arguments,
                                  std::vector<UnreadFile>& unread) {
    std::vector<FleetFile> files;
    for (const std::string& argument : arguments) {
        boost::system::error_code ignored;
        if (!fs::is_directory(argument, ignored)) {
            files.push_back({argument, base::Links::follow});
            continue;
        }
        const auto first = static_cast<std::ptrdiff_t>(files.size());
        addDirectory(argument, files, unread);
        std::sort(files.begin() + first, files.end(),
                  [](const FleetFile& one, const FleetFile& other) { return one.path < other.path; });
    }
    return files;
}

}  // namespace zelor::authoring

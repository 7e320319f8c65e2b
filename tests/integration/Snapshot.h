#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <map>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"

namespace zelor::test {

/// What lies below a directory: relative path to type, mode and content.
using Snapshot = std::map<std::string, std::string>;

/// Everything below `root` except the paths `except` and what is below them.
inline Snapshot snapshotOf(const boost::filesystem::path& root, const std::vector<std::string>& except) {
    namespace fs = boost::filesystem;
    Snapshot snapshot;
    for (fs::recursive_directory_iterator it(root), end; it != end; ++it) {
        const std::string name = it->path().string().substr(root.string().size() + 1);
        if (std::find(except.begin(), except.end(), name) != except.end()) {
            it.disable_recursion_pending();
            continue;
        }
        struct stat info {};
        if (lstat(it->path().c_str(), &info) != 0) continue;
        std::string& state = snapshot[name];
        state = std::to_string(info.st_mode);
        if (S_ISREG(info.st_mode)) state += " " + readFile(it->path().string());
        if (S_ISLNK(info.st_mode)) state += " " + fs::read_symlink(it->path()).string();
    }
    return snapshot;
}

/// The paths that were added, removed or changed.
inline std::vector<std::string> changes(const Snapshot& before, const Snapshot& after) {
    std::vector<std::string> names;
    for (const auto& [name, state] : before) {
        const auto now = after.find(name);
        if (now == after.end() || now->second != state) names.push_back(name);
    }
    for (const auto& [name, state] : after) {
        if (before.count(name) == 0) names.push_back(name);
    }
    return names;
}

}  // namespace zelor::test

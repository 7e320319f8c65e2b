#pragma once

#include <string>

namespace zelor::rehearsal {

/// A script of a package and what it is told.
struct PackageScript {
    std::string folder;  ///< where it runs, and where its file is
    std::string name;
    std::string packagePath;
    std::string targetLocation;
    std::string targetVolume;
};

/// Runs the script under bash with the three paths as its arguments, its output appended to `logFile`. True
/// when it ended with status 0.
bool runPackageScript(const PackageScript& script, const std::string& logFile);

}  // namespace zelor::rehearsal

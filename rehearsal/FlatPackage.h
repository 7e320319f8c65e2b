#pragma once

#include <map>
#include <string>
#include <vector>

#include "rehearsal/PackageText.h"

namespace zelor::rehearsal {

/// One package of a flat package file, whose archives were extracted to files.
struct PackageComponent {
    std::string name;  ///< as in messages
    PackageInfo info;
    std::string payload;  ///< file with the payload archive, "" for none
    std::string scripts;
};

/// A flat package: the packages of a product in the order of installation, or a single one.
struct FlatPackage {
    std::string title;
    std::vector<PackageComponent> components;
    bool restart = false;
};

/// Opens a flat package: a single one or a product of several. Writes its members to `workDirectory`, which
/// must exist as long as their paths are used. Throws std::runtime_error that names the cause.
FlatPackage openPackage(const std::string& path, const std::string& workDirectory);

/// A script of a package and its arguments.
struct PackageScript {
    std::string directory;  ///< where its file is, and where it runs
    std::string name;
    std::string packagePath;
    std::string targetLocation;
    std::string targetVolume;
};

/// Runs the script under bash with the three paths as its arguments, its output appended to `logFile`. True
/// when it ended with status 0.
bool runPackageScript(const PackageScript& script, const std::string& logFile);

}  // namespace zelor::rehearsal

#pragma once

#include <map>
#include <string>
#include <vector>

#include "rehearsal/PackageText.h"

namespace zelor::rehearsal {

/// One package of a flat package file, its archives unpacked to files.
struct PackageComponent {
    std::string name;  ///< as messages call it
    PackageInfo info;
    std::string payload;  ///< file with the payload archive, "" for none
    std::string scripts;
};

struct FlatPackage {
    std::string title;
    std::vector<PackageComponent> components;
    bool restart = false;
};

/// Opens a flat package: a single one or a product of several. Its members are written into `workDirectory`,
/// which must outlive the use of their paths. Throws std::runtime_error that names the cause.
FlatPackage openPackage(const std::string& path, const std::string& workDirectory);

/// A script of a package and its arguments.
struct PackageScript {
    std::string directory;  ///< where it runs, and where its file is
    std::string name;
    std::string packagePath;
    std::string targetLocation;
    std::string targetVolume;
};

/// Runs the script under bash with the three paths as its arguments, its output appended to `logFile`. True
/// when it ended with status 0.
bool runPackageScript(const PackageScript& script, const std::string& logFile);

}  // namespace zelor::rehearsal

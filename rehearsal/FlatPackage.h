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

/// Opens a flat package: a single one or a product of several. Its members are written into `workFolder`,
/// which must outlive the use of their paths. Throws std::runtime_error that names the cause.
FlatPackage openPackage(const std::string& path, const std::string& workFolder);

}  // namespace zelor::rehearsal

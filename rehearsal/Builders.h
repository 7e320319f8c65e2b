#pragma once

#include <string>

#include "rehearsal/PackageText.h"

/// Makes packages and disk images to rehearse with.
namespace zelor::rehearsal {

struct PackageOrder {
    PackageInfo info;     ///< script names are found in `scripts`
    std::string name;     ///< title of a product; "" makes a single package, which is called as its file
    std::string scripts;  ///< folder with preinstall and postinstall, "" for none
    std::string folder;   ///< what goes to the install location
    std::string output;
};

/// Throws std::runtime_error or std::invalid_argument that names the trouble; then no package is left.
void buildPackage(PackageOrder order);

struct ImageOrder {
    std::string volume;
    std::string folder;
    std::string output;
};

/// As `buildPackage`, for a disk image: ISO 9660 with Rock Ridge, which a Mac mounts too.
void buildImage(const ImageOrder& order);

}  // namespace zelor::rehearsal

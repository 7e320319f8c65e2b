#pragma once

#include <string>

#include "rehearsal/PackageText.h"

/// Makes packages and disk images to rehearse with.
namespace zelor::rehearsal {

struct PackageOptions {
    PackageInfo info;       ///< script names are found in `scripts`
    std::string name;       ///< title of a product; "" makes a single package, which is called as its file
    std::string scripts;    ///< directory with preinstall and postinstall, "" for none
    std::string directory;  ///< what goes to the install location
    std::string output;
};

/// Throws std::runtime_error or std::invalid_argument that names the trouble; then no package is left.
void buildPackage(PackageOptions options);

struct ImageOptions {
    std::string volume;
    std::string directory;
    std::string output;
};

/// As `buildPackage`, for a disk image: ISO 9660 with Rock Ridge, which a Mac mounts too.
void buildImage(const ImageOptions& options);

}  // namespace zelor::rehearsal

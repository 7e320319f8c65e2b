#pragma once

#include <string>

#include "rehearsal/PackageText.h"

/// Makes packages and disk images for rehearsals.
namespace zelor::rehearsal {

/// What a package is made of.
struct PackageOptions {
    PackageInfo info;       ///< script names are found in `scripts`
    std::string name;       ///< title of a product; "" makes a single package, named after its file
    std::string scripts;    ///< directory with preinstall and postinstall, "" for none
    std::string directory;  ///< its content goes to the install location
    std::string output;
};

/// Writes a flat package to `output`. Throws std::runtime_error or std::invalid_argument that names the
/// problem; then no package is left.
void buildPackage(PackageOptions options);

/// What a disk image is made of: all that is in `directory`.
struct ImageOptions {
    std::string volume;
    std::string directory;
    std::string output;
};

/// As `buildPackage`, for a disk image: ISO 9660 with Rock Ridge, which a Mac mounts too.
void buildImage(const ImageOptions& options);

}  // namespace zelor::rehearsal

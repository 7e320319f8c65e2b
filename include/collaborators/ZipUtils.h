#pragma once

#include "base/Export.h"

/// Unpacks the archives that hold patches and scripts.
class ZELOR_API ZipUtils {
  public:
    ZipUtils();
    ~ZipUtils();
    ZipUtils(const ZipUtils&) = delete;
    ZipUtils& operator=(const ZipUtils&) = delete;

    /// Extracts the archive into the directory, overwriting files that exist; both are zero-terminated paths
    /// that stay the caller's. False when the archive is damaged or an entry would leave the directory.
    bool Unzip(char* archivePath, char* destinationDir);
};

#pragma once

#include <string>

#include "base/Export.h"

/// Checks a file (or bundle directory) against its detached signature and the agent's trusted key.
class ZELOR_API FileSignVerifier {
  public:
    FileSignVerifier();
    ~FileSignVerifier();
    FileSignVerifier(const FileSignVerifier&) = delete;
    FileSignVerifier& operator=(const FileSignVerifier&) = delete;

    /// The paths of the file to check and of its detached signature; set both before `verify`.
    void SetFileName(std::string path);
    void SetSigFileName(std::string path);

    /// Non-zero when the signature is good, 0 in every other case (missing file, missing key, bad signature).
    int verify();

  private:
    std::string fileName_;
    std::string sigFileName_;
};

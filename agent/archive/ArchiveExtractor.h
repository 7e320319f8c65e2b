#pragma once

#include <string>

#include "agent/archive/ArchivePolicy.h"

namespace zelor::agent {

/// Unpacks zip archives into a directory, streaming, without following or creating a way out of it. Kept:
/// permission bits, modification times, inner symbolic links. Refused: encrypted, repeated and special
/// entries, paths and links that leave the directory, archives beyond the limits.
class ArchiveExtractor {
  public:
    /// An archive beyond `limits` is refused.
    explicit ArchiveExtractor(const ExtractionLimits& limits = {}) : limits_(limits) {}

    /// Unpacks the archive (a regular file) into `destination`, overwriting files that exist and making the
    /// directory when it is missing. Throws std::runtime_error that names entry and cause; what had been
    /// created is removed then.
    void extract(const std::string& archive, const std::string& destination) const;

  private:
    ExtractionLimits limits_;
};

}  // namespace zelor::agent

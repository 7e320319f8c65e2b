#pragma once

#include <optional>
#include <string>

#include "agent/archive/ArchivePolicy.h"
#include "agent/trust/Sha256.h"

namespace zelor::agent {

/// Unpacks zip archives as streams into a directory; writes nothing outside it and creates no link out of it.
/// Kept: permission bits, modification times, inner symbolic links. Refused: encrypted, duplicate and special
/// entries, paths and links that leave the directory, archives beyond the limits.
class ArchiveExtractor {
  public:
    /// An archive beyond `limits` is refused.
    explicit ArchiveExtractor(const ExtractionLimits& limits = {}) : limits_(limits) {}

    /// Unpacks the archive (a regular file) into a fresh private directory in `destination`, which is made
    /// (0755) when it is missing; what that holds then replaces what is there under the same names, whole.
    /// With a `digest`, an archive that has another is not opened. Throws std::runtime_error that names entry
    /// and cause; `destination` is as before then.
    void extract(const std::string& archive, const std::string& destination,
                 const std::optional<FileDigest>& digest = std::nullopt) const;

  private:
    ExtractionLimits limits_;
};

}  // namespace zelor::agent

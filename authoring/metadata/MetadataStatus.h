#pragma once

#include <map>
#include <string>
#include <vector>

#include "authoring/metadata/MetadataDirectory.h"

namespace zelor::authoring {

/// One role of a repository, or all its bins together.
struct RoleReport {
    std::string role;
    std::int64_t version = 0;  ///< of bins the highest
    trust::Time expires = 0;   ///< of bins the earliest
    bool isSigned = false;     ///< by the keys that the root names
    std::int64_t threshold = 1;
    std::vector<std::string> ids;     ///< of the keys that can sign
    std::vector<std::string> labels;  ///< the same keys for messages
};

/// The state of every role, the root first. Throws std::runtime_error for metadata that cannot be read.
std::vector<RoleReport> metadataStatus(const MetadataDirectory& directory);

/// "" for a role that needs nothing at `now`; otherwise what is wrong and the remedy. `within`: how long
/// before its expiry a role needs attention; negative: as long as is usual for the role.
std::string attention(const RoleReport& role, trust::Time now, trust::Time within);

/// A line for each role that needs attention at `now` and that refresh cannot sign: root, targets and bins.
std::string expiryWarnings(const MetadataDirectory& directory, trust::Time now);

}  // namespace zelor::authoring

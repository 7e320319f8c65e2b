#pragma once

#include <cstdint>

#include "agent/archive/ArchivePolicy.h"
#include "base/Files.h"

namespace zelor::agent {

/// Looks at the directory of a zip archive of `bytes` bytes, and at the header of each entry, before anybody
/// unpacks a byte of it. Throws std::runtime_error that names the entry and the cause when a decoder other
/// than that of deflate would be needed, when the directory is larger or has more entries than `limits`
/// allow, and when readers of zip archives could disagree on where the directory or an entry is.
void requirePlainZip(const base::UniqueFd& file, std::uint64_t bytes, const ExtractionLimits& limits);

}  // namespace zelor::agent

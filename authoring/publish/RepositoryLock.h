#pragma once

#include <string>

#include "base/LockFile.h"

namespace zelor::authoring {

/// Locks the repository for the lifetime of the returned object, so that one command at a time writes to it.
/// Throws UsageError that names the holder.
base::LockFile lockRepository(const std::string& repository);

}  // namespace zelor::authoring

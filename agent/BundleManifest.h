#pragma once

#include <string>

namespace zelor {

/// The text over which a bundle folder is signed: one line per entry below `folder` in byte order of their relative
/// paths, with kind, mode, SHA-256 (files) or target (symbolic links). Throws std::runtime_error when an entry cannot
/// be read or is neither file, folder nor symbolic link.
std::string bundleManifest(const std::string& folder);

}  // namespace zelor

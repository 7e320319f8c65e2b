#pragma once

#include <string>

namespace zelor::agent {

/// The text over which a bundle directory is signed: a version line, the directory itself as ".", then one
/// line for each entry below it in byte order of their relative paths: kind, permission bits, size and
/// SHA-256 (files) or target (symbolic links), path. Names are escaped, so none can forge a line. Throws
/// std::runtime_error when an entry cannot be read, is neither file, directory nor symbolic link, or is a
/// file that would run as another user.
std::string bundleManifest(const std::string& directory);

}  // namespace zelor::agent

#pragma once

#include <optional>
#include <set>
#include <string>

#include "authoring/manifest/Manifest.h"

namespace zelor::authoring {

/// Reads a manifest file for publishing, or only what it says of one identifier, and prints the findings on
/// standard error. Throws UsageError when it cannot be read, has errors, or does not name the identifier.
Manifest readManifest(const std::string& path, const std::string& identifier = "");

/// The identifiers that a manifest file names; nothing when it cannot be read.
std::optional<std::set<std::string>> manifestIdentifiers(const std::string& path);

}  // namespace zelor::authoring

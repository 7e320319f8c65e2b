#pragma once

#include <set>
#include <string>

#include "authoring/Finding.h"

/// Findings on the names of patches, scripts and content; nothing here touches a file.
namespace zelor::authoring {

/// On the id of one patch. `script`: it belongs to a configuration, so that no installer has to take it.
Findings patchNameFindings(const std::string& place, const std::string& patchId, bool script);

/// One for each name that is contained in another: the list of buffered patches cannot tell them apart.
Findings containmentFindings(const std::set<std::string>& patchIds);

/// On an identifier, which is both a request's value and a file name.
Findings identifierFindings(const std::string& place, const std::string& identifier);

}  // namespace zelor::authoring

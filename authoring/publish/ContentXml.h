#pragma once

#include <string>

#include "authoring/Finding.h"
#include "authoring/manifest/ContentEntry.h"

namespace zelor::authoring {

/// The content file of an entry; the same entry gives the same bytes.
std::string contentXml(const ContentEntry& entry);

/// Reads the content file of an identifier. What agents refuse, or read differently from how it looks, is a
/// finding; the entry of a refused file is empty, without a place.
ContentEntry readContentXml(const std::string& xml, const std::string& place, const std::string& identifier,
                            Findings& findings);

}  // namespace zelor::authoring

#pragma once

#include <map>
#include <string>

#include "authoring/manifest/ContentEntry.h"

namespace zelor::authoring {

/// The requests that ask for everything an entry offers: key to identifier, one for each of its CREs.
std::map<std::string, std::string> requestsFor(const ContentEntry& entry);

/// Path below a rehearsal Mac's root to what distinguishes one state of that file from another; the agent's
/// own directories are left out.
using DiskState = std::map<std::string, std::string>;
/// The state of the disk at `root` now.
DiskState diskState(const std::string& root);

/// The differences of two states: a line for each file, at most `limit` of them, and how many there are in
/// all.
std::string diskChanges(const DiskState& before, const DiskState& after, std::size_t limit);

/// The last lines of a text file, indented, without control characters; "" when there is none.
std::string indentedTail(const std::string& file, std::size_t lines);

}  // namespace zelor::authoring

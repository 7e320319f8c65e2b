#pragma once

#include <functional>
#include <string>

#include "authoring/publish/PublishState.h"

namespace zelor::authoring {

/// Notes which published archives no content names any more, and removes those that nobody has named for a
/// day (with `atOnce`: all of them) and that are there as they were published. Nothing is removed while
/// some content cannot be read. Returns how many were; `removed` is called with the path of each.
std::size_t removeRetiredPatches(const std::string& repository, bool atOnce, PublishedPatches& patches,
                                 const std::function<void(const std::string&)>& removed);

}  // namespace zelor::authoring

#pragma once

#include <string>
#include <string_view>

#include "base/Files.h"

namespace zelor::agent {

/// Opens a folder that only this user may look into, making it with mode 0700 where it is missing. A symbolic
/// link and another user's folder are refused. Throws std::runtime_error that names it.
base::UniqueFd openPrivateFolder(const std::string& path);

/// Puts a file of mode 0600 in place of `name` in the folder by one rename; `path` names it in errors. Throws
/// std::runtime_error.
void replaceFileIn(const base::UniqueFd& folder, const std::string& name, const std::string& path,
                   std::string_view bytes);

}  // namespace zelor::agent

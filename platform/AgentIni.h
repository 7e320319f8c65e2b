#pragma once

#include <boost/property_tree/ptree.hpp>
#include <optional>
#include <string>

namespace zelor::platform {

/// The ini file as a tree; nothing when it does not exist. A malformed file reads as one without keys, with
/// an error line that names it.
std::optional<boost::property_tree::ptree> readIniFile(const std::string& path);

}  // namespace zelor::platform

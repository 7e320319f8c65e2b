#pragma once

#include <boost/property_tree/ptree.hpp>
#include <memory>
#include <string>

namespace zelor::platform {

/// The ini file as a tree; null when it does not exist. It is parsed again only when it changed. A malformed
/// file reads as one without keys, with an error line that names it each time that it is parsed. Any thread.
std::shared_ptr<const boost::property_tree::ptree> readIniFile(const std::string& path);

}  // namespace zelor::platform

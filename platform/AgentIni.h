#pragma once

#include <boost/property_tree/ptree.hpp>
#include <memory>
#include <string>

namespace zelor::platform {

/// The ini file as a tree; null when it does not exist. It is parsed again only after it changed. A malformed
/// file reads as one without keys, and each time it is parsed an error line names it. Any thread.
std::shared_ptr<const boost::property_tree::ptree> readIniFile(const std::string& path);

}  // namespace zelor::platform

#include "platform/AgentIni.h"

#include <boost/filesystem/operations.hpp>
#include <boost/property_tree/ini_parser.hpp>

#include "platform/Log.h"

namespace zelor::platform {

std::optional<boost::property_tree::ptree> readIniFile(const std::string& path) {
    boost::system::error_code error;
    if (!boost::filesystem::exists(path, error)) return std::nullopt;
    boost::property_tree::ptree tree;
    try {
        boost::property_tree::ini_parser::read_ini(path, tree);
    } catch (const std::exception& problem) {
        log::error("[MacPatchManager] The ini file '", path,
                   "' cannot be read, so it counts as one without keys: ", problem.what());
        tree.clear();
    }
    return tree;
}

}  // namespace zelor::platform

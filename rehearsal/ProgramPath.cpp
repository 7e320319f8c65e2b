#include "rehearsal/ProgramPath.h"

#include <unistd.h>

#include <boost/filesystem.hpp>
#include <stdexcept>

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

std::string folderOfName(const std::string& name, const std::string& searchPath) {
    if (name.find('/') != std::string::npos) return fs::absolute(name).parent_path().string();
    for (std::size_t begin = 0; begin <= searchPath.size();) {
        const std::size_t end = std::min(searchPath.find(':', begin), searchPath.size());
        const fs::path folder = fs::absolute(searchPath.substr(begin, end - begin));
        const fs::path candidate = folder / name;
        boost::system::error_code ignored;
        if (fs::is_regular_file(candidate, ignored) && ::access(candidate.c_str(), X_OK) == 0) {
            return fs::absolute(folder).string();
        }
        begin = end + 1;
    }
    throw std::runtime_error("cannot find " + name + " in PATH");
}

}  // namespace zelor::rehearsal

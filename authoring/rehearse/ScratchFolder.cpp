#include "authoring/rehearse/ScratchFolder.h"

#include <stdlib.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <stdexcept>

#include "agent/Files.h"

namespace zelor::authoring {

namespace fs = boost::filesystem;

ScratchFolder::ScratchFolder(const std::string& name)
    : path_((fs::temp_directory_path() / ("zelor-" + name + "-XXXXXX")).string()) {
    if (::mkdtemp(path_.data()) == nullptr)
        throw std::runtime_error("cannot make the temporary folder " + path_ + ": " +
                                 agent::errorText(errno));
}

ScratchFolder::~ScratchFolder() {
    if (kept_) return;
    boost::system::error_code ignored;
    for (fs::recursive_directory_iterator it(path_, ignored), end; it != end; it.increment(ignored)) {
        // A bundle may hold folders that even their owner cannot write to.
        if (it->symlink_status().type() == fs::directory_file) fs::permissions(*it, fs::owner_all, ignored);
    }
    fs::remove_all(path_, ignored);
}

}  // namespace zelor::authoring

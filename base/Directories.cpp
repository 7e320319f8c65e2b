#include "base/Directories.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <stdexcept>

namespace zelor::base {

namespace fs = boost::filesystem;

std::string directoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool makeDirectories(const std::string& path) {
    for (auto end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
        if (::mkdir(path.substr(0, end).c_str(), 0755) != 0 && errno != EEXIST && errno != EISDIR)
            return false;
    }
    if (::mkdir(path.c_str(), 0755) == 0) return true;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return false;
    if (S_ISDIR(status.st_mode)) return true;
    errno = ENOTDIR;
    return false;
}

UniqueFd openPrivateDirectory(const std::string& path) {
    constexpr mode_t kMode = 0700;
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
    UniqueFd directory = openFile(path, kFlags);
    if (!directory && errno == ENOENT) {
        const auto slash = path.rfind('/');
        if (slash != std::string::npos && slash != 0) (void)makeDirectories(path.substr(0, slash));
        (void)::mkdir(path.c_str(), kMode);
        directory = openFile(path, kFlags);
    }
    struct stat status {};
    if (!directory || ::fstat(directory.get(), &status) != 0) {
        throw std::runtime_error("cannot use the directory " + path + ": " + errorText(errno));
    }
    if (status.st_uid != ::geteuid()) {
        throw std::runtime_error("the directory " + path + " belongs to another user; remove it");
    }
    if ((status.st_mode & 0777U) != kMode && ::fchmod(directory.get(), kMode) != 0) {
        throw std::runtime_error("cannot close the directory " + path + " to others: " + errorText(errno));
    }
    return directory;
}

bool removeTree(const std::string& path) {
    boost::system::error_code error;
    if (fs::symlink_status(path, error).type() == fs::directory_file) {
        (void)::chmod(path.c_str(), 0700);
        for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
            removeTree(it->path().string());
    }
    fs::remove(path, error);
    return !error;
}

TemporaryDirectory::TemporaryDirectory(const std::string& parent, const std::string& prefix)
    : path_(parent + '/' + prefix + "-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("cannot make the temporary directory " + path_ + ": " + errorText(errno));
    }
}

TemporaryDirectory::TemporaryDirectory(const std::string& prefix)
    : TemporaryDirectory(fs::temp_directory_path().string(), prefix) {}

TemporaryDirectory::~TemporaryDirectory() {
    if (!kept_) removeTree(path_);
}

}  // namespace zelor::base

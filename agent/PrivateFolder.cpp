#include "agent/PrivateFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "agent/Files.h"

namespace zelor::agent {

base::UniqueFd openPrivateFolder(const std::string& path) {
    constexpr mode_t mode = 0700;
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    base::UniqueFd folder(::open(path.c_str(), flags));
    if (!folder.valid() && errno == ENOENT) {
        const auto slash = path.rfind('/');
        if (slash != std::string::npos && slash != 0) (void)makeFolders(path.substr(0, slash));
        (void)::mkdir(path.c_str(), mode);
        folder = base::UniqueFd(::open(path.c_str(), flags));
    }
    struct stat status {};
    if (!folder.valid() || ::fstat(folder.get(), &status) != 0) {
        throw std::runtime_error("cannot use the folder " + path + ": " + errorText(errno));
    }
    if (status.st_uid != ::geteuid()) {
        throw std::runtime_error("the folder " + path + " belongs to another user; remove it");
    }
    if ((status.st_mode & 0777U) != mode && ::fchmod(folder.get(), mode) != 0) {
        throw std::runtime_error("cannot close the folder " + path + " to others: " + errorText(errno));
    }
    return folder;
}

void replaceFileIn(const base::UniqueFd& folder, const std::string& name, const std::string& path,
                   std::string_view bytes) {
    const std::string temporary = name + ".new";
    (void)::unlinkat(folder.get(), temporary.c_str(), 0);
    const base::UniqueFd file(::openat(folder.get(), temporary.c_str(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.valid()) throw std::runtime_error("cannot write " + path + ": " + errorText(errno));
    if (!base::writeAll(file.get(), bytes))
        throw std::runtime_error("cannot write " + path + ": " + errorText(errno));
    if (::renameat(folder.get(), temporary.c_str(), folder.get(), name.c_str()) != 0) {
        throw std::runtime_error("cannot replace " + path + ": " + errorText(errno));
    }
}

}  // namespace zelor::agent

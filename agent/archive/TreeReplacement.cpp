#include "agent/archive/TreeReplacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <stdexcept>

namespace zelor::agent {

namespace {

std::string made(const std::string& destination) {
    if (base::makeDirectories(destination)) return destination;
    throw std::runtime_error("cannot make the directory " + destination + ": " + base::errorText(errno));
}

base::UniqueFd openDirectory(const std::string& path) {
    base::UniqueFd directory = base::openFile(path, O_RDONLY | O_DIRECTORY);
    if (!directory)
        throw std::runtime_error("cannot open the directory " + path + ": " + base::errorText(errno));
    return directory;
}

base::UniqueFd makeIn(const std::string& parent, const char* name) {
    const std::string path = parent + '/' + name;
    if (::mkdir(path.c_str(), 0700) != 0)
        throw std::runtime_error("cannot make the directory " + path + ": " + base::errorText(errno));
    return openDirectory(path);
}

/// Renames; a directory that its owner may not write to has to allow it while it moves.
bool move(const base::UniqueFd& from, const base::UniqueFd& to, const std::string& name) {
    if (::renameat(from.get(), name.c_str(), to.get(), name.c_str()) == 0) return true;
    const int error = errno;
    struct stat info {};
    const bool closed = error == EACCES &&
                        ::fstatat(from.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISDIR(info.st_mode) && (info.st_mode & S_IWUSR) == 0;
    errno = error;
    if (!closed || ::fchmodat(from.get(), name.c_str(), 0700, 0) != 0) return false;
    const bool done = ::renameat(from.get(), name.c_str(), to.get(), name.c_str()) == 0;
    const int renameError = errno;
    // Where this fails, the bundle's signature, which covers the mode, does not match.
    [[maybe_unused]] const int restored =
        ::fchmodat((done ? to : from).get(), name.c_str(), info.st_mode & 07777U, 0);
    errno = renameError;
    return done;
}

}  // namespace

TreeReplacement::TreeReplacement(const std::string& destination)
    : destination_(openDirectory(made(destination))),
      private_(destination, ".unpack"),
      source_(makeIn(private_.path(), "new")),
      old_(makeIn(private_.path(), "old")) {}

std::string TreeReplacement::source() const {
    return private_.path() + "/new";
}

void TreeReplacement::commit() {
    try {
        std::vector<std::string> names;
        for (boost::filesystem::directory_iterator it(source()), end; it != end; ++it)
            names.push_back(it->path().filename().string());
        for (const std::string& name : names)
            replace(name);
    } catch (...) {
        undo();
        throw;
    }
}

void TreeReplacement::replace(const std::string& name) {
    const auto fail = [&] {
        throw std::runtime_error("cannot replace \"" + name + "\": " + base::errorText(errno));
    };
    const bool replaced = move(destination_, old_, name);
    if (!replaced && errno != ENOENT) fail();
    moved_.push_back({name, replaced});
    if (!move(source_, destination_, name)) fail();
}

void TreeReplacement::undo() noexcept {
    for (auto it = moved_.rbegin(); it != moved_.rend(); ++it) {
        (void)move(destination_, source_, it->name);
        if (it->replaced) (void)move(old_, destination_, it->name);
    }
}

}  // namespace zelor::agent

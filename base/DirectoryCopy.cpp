#include "base/DirectoryCopy.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "base/Deleter.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "base/SystemCalls.h"

namespace zelor::base {

namespace {

[[noreturn]] void fail(const char* what, const std::string& name) {
    const int error = errno;  // before anything can change it
    throw std::runtime_error(std::string(what) + " '" + name + "': " + std::strerror(error));
}

std::vector<std::string> entries(int directory, const std::string& shown) {
    // A duplicate, since closedir closes the descriptor.
    UniqueFd copy(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, Deleter<closedir>> stream(copy ? fdopendir(copy.get()) : nullptr);
    if (!stream) fail("cannot list", shown);
    copy.release();
    std::vector<std::string> names;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(stream.get());
        if (entry == nullptr) break;
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    if (errno != 0) fail("cannot list", shown);
    return names;
}

/// Removes `name` in the directory `parent` with its contents, on this file system only. Uses descriptors and
/// follows no link, so that nothing else is removed when someone replaces a directory by a link meanwhile.
void removeTree(int parent, const std::string& name, dev_t device, const std::string& shown) {
    struct stat info {};
    if (fstatat(parent, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) fail("cannot remove", shown);
    if (info.st_dev != device) {
        errno = EXDEV;
        fail("cannot remove", shown);
    }
    const bool isDirectory = S_ISDIR(info.st_mode);
    if (isDirectory) {
        const UniqueFd inside(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!inside) fail("cannot remove", shown);
        for (const std::string& entry : entries(inside.get(), shown))
            removeTree(inside.get(), entry, device, shown + "/" + entry);
    }
    if (unlinkat(parent, name.c_str(), isDirectory ? AT_REMOVEDIR : 0) != 0) fail("cannot remove", shown);
}

/// Copies one directory into another by descriptors, so that replacing a directory meanwhile has no effect.
class TreeCopy {
  public:
    /// The names are for messages. `shared`: what is directly in the target is not removed.
    TreeCopy(const std::string& source, const std::string& target, bool shared)
        : source_(source), target_(target), shared_(shared) {}

    /// Copies what is in the directory `from` to `to`; both are at `path` in the trees, "" at their tops.
    void copyInside(int from, int to, const std::string& path) {
        for (const std::string& name : entries(from, source_ + path))
            copyEntry({from, to, name, path + "/" + name});
    }

    void finish(int source, int target, const struct stat& info, const std::string& path) {
        if (!copyFileAttributes(source, target)) fail("cannot keep the attributes of", target_ + path);
        if (fchmod(target, info.st_mode & 01777) != 0) fail("cannot keep the mode of", target_ + path);
        const struct timespec times[2] = {accessTime(info), modificationTime(info)};
        if (futimens(target, times) != 0) fail("cannot keep the time of", target_ + path);
    }

  private:
    struct Entry {
        int from;  ///< the directories
        int to;
        std::string name;
        std::string path;
    };

    void copyEntry(const Entry& entry) {
        struct stat info {};
        if (fstatat(entry.from, entry.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            fail("cannot read", source_ + entry.path);
        if (S_ISDIR(info.st_mode)) {
            copyDirectory(entry, info);
        } else if (S_ISLNK(info.st_mode)) {
            copyLink(entry, info);
        } else if (S_ISREG(info.st_mode)) {
            copyRegular(entry, info);
        } else {
            errno = EINVAL;
            fail("neither file, directory nor link:", source_ + entry.path);
        }
    }

    void copyDirectory(const Entry& entry, const struct stat& info) {
        const char* name = entry.name.c_str();
        struct stat there {};
        if (fstatat(entry.to, name, &there, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISDIR(there.st_mode) &&
            unlinkat(entry.to, name, 0) != 0) {
            fail("cannot replace", target_ + entry.path);
        }
        if (mkdirat(entry.to, name, 0755) != 0 && errno != EEXIST) fail("cannot make", target_ + entry.path);
        const UniqueFd source(openat(entry.from, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!source) fail("cannot open", source_ + entry.path);
        const UniqueFd target(openat(entry.to, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!target) fail("cannot open", target_ + entry.path);
        copyInside(source.get(), target.get(), entry.path);
        finish(source.get(), target.get(), info, entry.path);
    }

    void copyLink(const Entry& entry, const struct stat& info) {
        std::vector<char> target(static_cast<std::size_t>(info.st_size) + 4096);
        const ssize_t size = readlinkat(entry.from, entry.name.c_str(), target.data(), target.size() - 1);
        if (size < 0) fail("cannot read", source_ + entry.path);
        target[static_cast<std::size_t>(size)] = '\0';
        makeWay(entry);
        const std::string temporary = temporaryName();
        if (symlinkat(target.data(), entry.to, temporary.c_str()) != 0)
            fail("cannot make", target_ + entry.path);
        StagedName staged(entry.to, temporary);
        const struct timespec times[2] = {accessTime(info), modificationTime(info)};
        utimensat(entry.to, temporary.c_str(), times, AT_SYMLINK_NOFOLLOW);
        putInPlace(entry, staged);
    }

    /// Removes a directory in a link's place: it comes from a copy that followed links, as many tools do.
    void makeWay(const Entry& entry) {
        struct stat there {};
        if (fstatat(entry.to, entry.name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0) return;
        const bool isOurs = !shared_ || entry.path.rfind('/') != 0;
        struct stat parent {};
        if (!S_ISDIR(there.st_mode) || !isOurs || fstat(entry.to, &parent) != 0) return;
        removeTree(entry.to, entry.name, parent.st_dev, target_ + entry.path);
    }

    void copyRegular(const Entry& entry, const struct stat& info) {
        const UniqueFd source(openat(entry.from, entry.name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (!source) fail("cannot open", source_ + entry.path);
        const std::string temporary = temporaryName();
        const UniqueFd target(
            openat(entry.to, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!target) fail("cannot make", target_ + entry.path);
        StagedName staged(entry.to, temporary);
        if (!copyFileData(source.get(), target.get())) fail("cannot copy", target_ + entry.path);
        finish(source.get(), target.get(), info, entry.path);
        putInPlace(entry, staged);
    }

    void putInPlace(const Entry& entry, StagedName& staged) {
        if (!staged.renameTo(entry.name)) fail("cannot replace", target_ + entry.path);
    }

    std::string temporaryName() {
        return ".zelor-copy-" + std::to_string(getpid()) + "-" + std::to_string(++count_);
    }

    const std::string source_;
    const std::string target_;
    const bool shared_;
    unsigned long count_ = 0;
};

}  // namespace

std::string copyTree(const std::string& source, const std::string& destination, bool keepOwnAttributes,
                     bool shared) {
    try {
        const UniqueFd from = openFile(source, O_RDONLY | O_DIRECTORY);
        if (!from) fail("cannot open", source);
        const UniqueFd to = openFile(destination, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        if (!to) fail("cannot open", destination);
        TreeCopy copy(source, destination, shared);
        copy.copyInside(from.get(), to.get(), "");
        struct stat info {};
        if (keepOwnAttributes && fstat(from.get(), &info) == 0) copy.finish(from.get(), to.get(), info, "");
    } catch (const std::exception& problem) {
        return problem.what();
    }
    return "";
}

}  // namespace zelor::base

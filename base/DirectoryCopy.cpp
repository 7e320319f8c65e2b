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

#include "base/Files.h"
#include "base/SystemCalls.h"

namespace zelor::base {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

[[noreturn]] void fail(const std::string& what, const std::string& name) {
    throw std::runtime_error(what + " '" + name + "': " + std::strerror(errno));
}

std::vector<std::string> entries(int folder, const std::string& shown) {
    // A descriptor of its own, since closedir closes it.
    UniqueFd copy(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, CloseDirectory> directory(copy ? fdopendir(copy.get()) : nullptr);
    if (!directory) fail("cannot list", shown);
    copy.release();
    std::vector<std::string> names;
    while (const dirent* entry = readdir(directory.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    return names;
}

/// Copies one folder into another, by descriptors, so that nobody can move the ground away.
class TreeCopy {
  public:
    void copyInside(int from, int to, const std::string& shown) {
        for (const std::string& name : entries(from, shown))
            copyEntry(from, to, name, shown + "/" + name);
    }

    void finish(int source, int target, const struct stat& info, const std::string& shown) {
        if (!copyFileAttributes(source, target)) fail("cannot keep the attributes of", shown);
        if (fchmod(target, info.st_mode & 01777) != 0) fail("cannot keep the mode of", shown);
        const struct timespec times[2] = {accessTime(info), modificationTime(info)};
        if (futimens(target, times) != 0) fail("cannot keep the time of", shown);
    }

  private:
    void copyEntry(int from, int to, const std::string& name, const std::string& shown) {
        struct stat info {};
        if (fstatat(from, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) fail("cannot read", shown);
        if (S_ISDIR(info.st_mode)) {
            copyFolder(from, to, name, info, shown);
        } else if (S_ISLNK(info.st_mode)) {
            copyLink(from, to, name, info, shown);
        } else if (S_ISREG(info.st_mode)) {
            copyRegular(from, to, name, info, shown);
        } else {
            errno = EINVAL;
            fail("neither file, folder nor link:", shown);
        }
    }

    void copyFolder(int from, int to, const std::string& name, const struct stat& info,
                    const std::string& shown) {
        struct stat there {};
        if (fstatat(to, name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISDIR(there.st_mode) &&
            unlinkat(to, name.c_str(), 0) != 0) {
            fail("cannot replace", shown);
        }
        if (mkdirat(to, name.c_str(), 0755) != 0 && errno != EEXIST) fail("cannot make", shown);
        const UniqueFd source(openat(from, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        const UniqueFd target(openat(to, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!source || !target) fail("cannot open", shown);
        copyInside(source.get(), target.get(), shown);
        finish(source.get(), target.get(), info, shown);
    }

    void copyLink(int from, int to, const std::string& name, const struct stat& info,
                  const std::string& shown) {
        std::vector<char> target(static_cast<std::size_t>(info.st_size) + 4096);
        const ssize_t size = readlinkat(from, name.c_str(), target.data(), target.size() - 1);
        if (size < 0) fail("cannot read", shown);
        target[static_cast<std::size_t>(size)] = '\0';
        const std::string temporary = temporaryName();
        if (symlinkat(target.data(), to, temporary.c_str()) != 0) fail("cannot make", shown);
        const struct timespec times[2] = {accessTime(info), modificationTime(info)};
        utimensat(to, temporary.c_str(), times, AT_SYMLINK_NOFOLLOW);
        putInPlace(to, temporary, name, shown);
    }

    void copyRegular(int from, int to, const std::string& name, const struct stat& info,
                     const std::string& shown) {
        const UniqueFd source(openat(from, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (!source) fail("cannot open", shown);
        const std::string temporary = temporaryName();
        const UniqueFd target(
            openat(to, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!target) fail("cannot make", shown);
        try {
            if (!copyFileData(source.get(), target.get())) fail("cannot copy", shown);
            finish(source.get(), target.get(), info, shown);
            putInPlace(to, temporary, name, shown);
        } catch (...) {
            unlinkat(to, temporary.c_str(), 0);
            throw;
        }
    }

    void putInPlace(int to, const std::string& temporary, const std::string& name, const std::string& shown) {
        if (renameat(to, temporary.c_str(), to, name.c_str()) == 0) return;
        const int error = errno;
        unlinkat(to, temporary.c_str(), 0);
        errno = error;
        fail("cannot replace", shown);
    }

    std::string temporaryName() {
        return ".zelor-copy-" + std::to_string(getpid()) + "-" + std::to_string(++count_);
    }

    unsigned long count_ = 0;
};

}  // namespace

std::string copyTree(const std::string& source, const std::string& destination, bool keepOwnAttributes) {
    try {
        const UniqueFd from = openFile(source, O_RDONLY | O_DIRECTORY);
        const UniqueFd to = openFile(destination, O_RDONLY | O_DIRECTORY);
        if (!from) fail("cannot open", source);
        if (!to) fail("cannot open", destination);
        TreeCopy copy;
        copy.copyInside(from.get(), to.get(), source);
        struct stat info {};
        if (keepOwnAttributes && fstat(from.get(), &info) == 0)
            copy.finish(from.get(), to.get(), info, source);
    } catch (const std::exception& problem) {
        return problem.what();
    }
    return "";
}

}  // namespace zelor::base

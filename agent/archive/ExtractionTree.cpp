#include "agent/archive/ExtractionTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "agent/archive/ArchivePolicy.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/SystemCalls.h"

namespace zelor::agent {

namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t kImpliedDirectoryMode = 0755;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + base::errorText(errno));
}

/// Leaves the access time unchanged, sets the modification time.
std::array<timespec, 2> timesFor(const timespec& modified) {
    std::array<timespec, 2> times{};
    times[0].tv_nsec = UTIME_OMIT;
    times[1] = modified;
    return times;
}

}  // namespace

ExtractionTree::ExtractionTree(const std::string& destination, Undo undo) : undo_(undo) {
    if (!base::makeDirectories(destination)) fail("cannot make the directory " + destination);
    root_ = base::openFile(destination, kDirectoryFlags);
    if (!root_) fail("cannot open the directory " + destination);
}

void ExtractionTree::created(const Path& path, bool isDirectory) {
    if (undo_ == Undo::possible) created_.push_back({path, isDirectory});
}

std::uint64_t ExtractionTree::freeBytes() const {
    const auto bytes = base::availableBytes(root_.get());
    if (!bytes) fail("cannot examine the destination's file system");
    return *bytes;
}

base::UniqueFd ExtractionTree::walk(const Path& directory, bool make) {
    base::UniqueFd here(::openat(root_.get(), ".", kDirectoryFlags));
    for (auto it = directory.begin(); here && it != directory.end(); ++it) {
        const bool made = make && ::mkdirat(here.get(), it->c_str(), 0700) == 0;
        if (make && !made && errno != EEXIST) fail("cannot make a directory for it");
        if (made) created(Path(directory.begin(), it + 1), true);
        here = base::UniqueFd(::openat(here.get(), it->c_str(), kDirectoryFlags | O_NOFOLLOW));
        if (made && here && ::fchmod(here.get(), kImpliedDirectoryMode) != 0)
            fail("cannot set a directory's mode");
    }
    if (!here) fail("a file, a link or a closed directory is where a directory is needed");
    return here;
}

int ExtractionTree::parentOf(const Path& path) {
    Path parent(path.begin(), path.end() - 1);
    if (!parent_ || parent != parentPath_) {
        parent_ = walk(parent, true);
        parentPath_ = std::move(parent);
    }
    return parent_.get();
}

void ExtractionTree::makeRoomFor(int parent, const Path& path) {
    if (::unlinkat(parent, path.back().c_str(), 0) != 0 && errno != ENOENT) {
        fail("cannot replace what exists");
    }
}

void ExtractionTree::addDirectory(const Path& path, mode_t mode, const Time& time) {
    walk(path, true);
    std::string joined;
    for (const std::string& component : path)
        joined += (joined.empty() ? "" : "/") + component;
    directories_[joined] = {mode, time};
}

base::UniqueFd ExtractionTree::createFile(const Path& path) {
    const int parent = parentOf(path);
    makeRoomFor(parent, path);
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    base::UniqueFd file(::openat(parent, path.back().c_str(), kFlags, 0600));
    if (!file) fail("cannot create the file");
    created(path, false);
    return file;
}

void ExtractionTree::finishFile(base::UniqueFd file, mode_t mode, const Time& time) {
    if (::fchmod(file.get(), mode) != 0) fail("cannot set the file's mode");
    if (time && ::futimens(file.get(), timesFor(*time).data()) != 0) fail("cannot set the file's time");
    if (!file.close()) fail("cannot write the file");
}

void ExtractionTree::addLink(const Path& path, const std::string& target, const Time& time) {
    const int parent = parentOf(path);
    makeRoomFor(parent, path);
    if (::symlinkat(target.c_str(), parent, path.back().c_str()) != 0)
        fail("cannot create the symbolic link");
    created(path, false);
    if (time && ::utimensat(parent, path.back().c_str(), timesFor(*time).data(), AT_SYMLINK_NOFOLLOW) != 0) {
        fail("cannot set the symbolic link's time");
    }
}

void ExtractionTree::finish() {
    // A directory sorts before its contents.
    for (auto it = directories_.rbegin(); it != directories_.rend(); ++it) {
        const base::UniqueFd directory = walk(pathComponents(it->first), false);
        if (::fchmod(directory.get(), it->second.mode) != 0) fail("cannot set a directory's mode");
        const Time& time = it->second.time;
        if (time && ::futimens(directory.get(), timesFor(*time).data()) != 0)
            fail("cannot set a directory's time");
    }
}

void ExtractionTree::rollBack() noexcept {
    for (auto it = created_.rbegin(); it != created_.rend(); ++it) {
        try {
            const base::UniqueFd parent = walk(Path(it->path.begin(), it->path.end() - 1), false);
            ::unlinkat(parent.get(), it->path.back().c_str(), it->isDirectory ? AT_REMOVEDIR : 0);
        } catch (const std::exception&) {
            continue;  // already removed, or not reachable
        }
    }
    created_.clear();
    directories_.clear();
}

}  // namespace zelor::agent

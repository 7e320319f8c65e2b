#pragma once

// Part of the shim: the order of what a process does to files, so that a test can tell what a power cut
// leaves.
//
// One record for each operation, in the order in which they took effect. Files are named by inode, names by
// the inode of their directory; what follows the last blank of a line is the rest of it:
//   create DIRECTORY INODE MODE NAME     a new file; mkdir: a new directory
//   symlink DIRECTORY INODE MODE NAME    its target is a record "write INODE 0 SIZE"
//   link DIRECTORY INODE 0 NAME          another name of a file
//   unlink DIRECTORY 0 0 NAME            also of a directory
//   rename, exchange DIRECTORY OTHER 0 NAME/NEWNAME
//   write INODE OFFSET SIZE 0 x          SIZE bytes and a line end follow
//   size INODE SIZE 0 x
//   flush INODE 0 0 x                    of a file or directory; sync: of all
//   child 0 0 0 x                        a process that was started has ended

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

namespace zelor::test {

class OperationLog {
  public:
    /// Begins to record into a new file; descriptors that the process opens later keep their numbers.
    void begin(const char* path) {
        const int fd = ::creat(path, 0600);
        descriptor_ = ::fcntl(fd, F_DUPFD_CLOEXEC, 900);
        ::close(fd);
    }
    bool isOn() const { return descriptor_ >= 0; }
    /// Held over an operation and its record, so that both have one order. Not held when nothing is recorded.
    std::unique_lock<std::mutex> lock() {
        return isOn() ? std::unique_lock<std::mutex>(mutex_) : std::unique_lock<std::mutex>();
    }

    void named(const char* kind, int directory, const char* path) {
        struct stat info {};
        if (!isOn() || ::fstatat(directory, path, &info, AT_SYMLINK_NOFOLLOW) != 0) return;
        line(kind, parentOf(directory, path), info.st_ino, info.st_mode & 07777U, nameOf(path));
    }
    void unnamed(ino_t parent, const char* path) {
        if (isOn()) line("unlink", parent, 0, 0, nameOf(path));
    }
    void moved(const char* kind, ino_t from, const char* path, ino_t to, const char* newPath) {
        if (isOn()) line(kind, from, to, 0, nameOf(path) + "/" + nameOf(newPath));
    }
    void written(int fd, off_t at, const void* bytes, size_t size) {
        struct stat info {};
        if (!isOn() || ::fstat(fd, &info) != 0) return;
        text(info.st_ino, static_cast<unsigned long long>(at),
             std::string(static_cast<const char*>(bytes), size));
    }
    void linkText(int directory, const char* path, const char* target) {
        struct stat info {};
        if (isOn() && ::fstatat(directory, path, &info, AT_SYMLINK_NOFOLLOW) == 0)
            text(info.st_ino, 0, target);
    }
    /// Of an open file: "size", "flush".
    void ofFile(const char* kind, int fd) {
        struct stat info {};
        if (!isOn() || ::fstat(fd, &info) != 0) return;
        line(kind, info.st_ino, static_cast<unsigned long long>(info.st_size), 0, "x");
    }
    void plain(const char* kind) {
        if (isOn()) line(kind, 0, 0, 0, "x");
    }

    /// The inode of the directory that a path names an entry of; 0 when nothing is recorded.
    ino_t parentOf(int directory, const char* path) const {
        if (!isOn()) return 0;
        const std::string whole = trimmed(path);
        const auto slash = whole.rfind('/');
        struct stat info {};
        const std::string parent = slash == std::string::npos ? "." : whole.substr(0, slash + 1);
        return ::fstatat(directory, parent.c_str(), &info, 0) == 0 ? info.st_ino : 0;
    }

  private:
    static std::string trimmed(std::string path) {
        while (path.size() > 1 && path.back() == '/')
            path.pop_back();
        return path;
    }
    static std::string nameOf(const char* path) {
        const std::string whole = trimmed(path);
        return whole.substr(whole.rfind('/') + 1);
    }
    void line(const char* kind, unsigned long long one, unsigned long long other, unsigned more,
              const std::string& rest) const {
        put(std::string(kind) + ' ' + std::to_string(one) + ' ' + std::to_string(other) + ' ' +
            std::to_string(more) + ' ' + rest + '\n');
    }
    void text(unsigned long long inode, unsigned long long at, const std::string& bytes) const {
        put("write " + std::to_string(inode) + ' ' + std::to_string(at) + ' ' + std::to_string(bytes.size()) +
            " x\n" + bytes + '\n');
    }
    /// By the system call: the process's own `write` is what is recorded.
    void put(const std::string& bytes) const {
        if (::pwrite(descriptor_, bytes.data(), bytes.size(), ::lseek(descriptor_, 0, SEEK_END)) < 0)
            descriptor_ = -1;
    }

    mutable int descriptor_ = -1;
    std::mutex mutex_;
};

}  // namespace zelor::test

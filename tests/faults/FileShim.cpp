// The shim's calls that work on files.

#include <dirent.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "tests/faults/FaultShim.h"

using namespace zelor::test::shim;

namespace {

bool isPlainFile(int fd) {
    struct stat info;
    return fd > 2 && fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

bool isMissing(int directory, const char* path) {
    struct stat info;
    return operations.isOn() && fstatat(directory, path, &info, AT_SYMLINK_NOFOLLOW) != 0;
}

/// Records what opening a file did: `isNew`, it was not there before.
void recordOpened(int fd, int directory, const char* path, int flags, bool isNew) {
    if (fd < 0 || !operations.isOn()) return;
    if (isNew) operations.named("create", directory, path);
    if (!isNew && (flags & O_TRUNC) != 0) operations.ofFile("size", fd);
}

/// Records what was just put into a file, up to its offset.
void recordWritten(int fd, const void* bytes, ssize_t size) {
    if (size > 0) operations.written(fd, lseek(fd, 0, SEEK_CUR) - size, bytes, static_cast<size_t>(size));
}

bool failsToOpen(const char* path, int flags) {
    const size_t size = std::strlen(path);
    if (size > 5 && std::strcmp(path + size - 5, ".json") == 0) beginWork();
    return fails(Open) || ((flags & (O_CREAT | O_WRONLY | O_RDWR)) != 0 && fails(Create));
}

}  // namespace

extern "C" {

ssize_t write(int fd, const void* bytes, size_t size) {
    REAL(write);
    if (!isPlainFile(fd)) return next(fd, bytes, size);
    if (fails(Write)) return -1;
    const auto lock = operations.lock();
    if (fails(Torn)) {  // the disk takes half of it, then it is full
        static std::atomic<bool> half{false};
        if (size > 1 && !half.exchange(true)) return next(fd, bytes, size / 2);
        errno = errorOfFaults();
        return -1;
    }
    const ssize_t done = next(fd, bytes, size);
    recordWritten(fd, bytes, done);
    return done;
}
ssize_t writev(int fd, const iovec* pieces, int number) {
    REAL(writev);
    if (!operations.isOn() || !isPlainFile(fd)) return next(fd, pieces, number);
    return number == 0 ? 0 : write(fd, pieces[0].iov_base, pieces[0].iov_len);  // callers go on with the rest
}

ssize_t read(int fd, void* bytes, size_t size) {
    REAL(read);
    return isPlainFile(fd) && fails(Read) ? -1 : next(fd, bytes, size);
}

ssize_t pread(int fd, void* bytes, size_t size, off_t at) {
    REAL(pread);
    return isPlainFile(fd) && fails(Read) ? -1 : next(fd, bytes, size, at);
}
ssize_t pread64(int fd, void* bytes, size_t size, off64_t at) {
    return pread(fd, bytes, size, at);
}

int openat(int directory, const char* path, int flags, ...) {
    REAL(openat);
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    if (failsToOpen(path, flags)) return -1;
    if ((flags & (O_CREAT | O_TRUNC)) == 0) return next(directory, path, flags, mode);
    const auto lock = operations.lock();
    const bool isNew = isMissing(directory, path);
    const int fd = next(directory, path, flags, mode);
    recordOpened(fd, directory, path, flags, isNew);
    return fd;
}
int openat64(int directory, const char* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return openat(directory, path, flags, mode);
}
int mkostemp(char* path, int flags) {
    REAL(mkostemp);
    const auto lock = operations.lock();
    const int fd = next(path, flags);
    recordOpened(fd, AT_FDCWD, path, flags, true);
    return fd;
}
int open(const char* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return openat(AT_FDCWD, path, flags, mode);
}
int open64(const char* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return openat(AT_FDCWD, path, flags, mode);
}
FILE* fopen(const char* path, const char* mode) {
    REAL(fopen);
    const bool reads = mode[0] == 'r';
    if (failsToOpen(path, reads ? O_RDONLY : O_WRONLY)) return nullptr;
    if (reads) return next(path, mode);
    const auto lock = operations.lock();
    const bool isNew = isMissing(AT_FDCWD, path);
    FILE* file = next(path, mode);
    if (file != nullptr) recordOpened(fileno(file), AT_FDCWD, path, mode[0] == 'w' ? O_TRUNC : 0, isNew);
    return file;
}
FILE* fopen64(const char* path, const char* mode) {
    return fopen(path, mode);
}
DIR* opendir(const char* path) {
    REAL(opendir);
    return fails(List) ? nullptr : next(path);
}
DIR* fdopendir(int fd) {
    REAL(fdopendir);
    return fails(List) ? nullptr : next(fd);
}

int renameat2(int one, const char* from, int other, const char* to, unsigned flags) {
    REAL(renameat2);
    if (fails(Rename)) return -1;
    const auto lock = operations.lock();
    const ino_t source = operations.parentOf(one, from);
    const ino_t target = operations.parentOf(other, to);
    const int result = next(one, from, other, to, flags);
    if (result == 0)
        operations.moved((flags & RENAME_EXCHANGE) != 0 ? "exchange" : "rename", source, from, target, to);
    return result;
}
int renameat(int one, const char* from, int other, const char* to) {
    return renameat2(one, from, other, to, 0);
}
int rename(const char* from, const char* to) {
    return renameat2(AT_FDCWD, from, AT_FDCWD, to, 0);
}
int mkdirat(int directory, const char* path, mode_t mode) {
    REAL(mkdirat);
    if (fails(Mkdir)) return -1;
    const auto lock = operations.lock();
    const int result = next(directory, path, mode);
    if (result == 0) operations.named("mkdir", directory, path);
    return result;
}
int mkdir(const char* path, mode_t mode) {
    return mkdirat(AT_FDCWD, path, mode);
}
int linkat(int one, const char* from, int other, const char* to, int flags) {
    REAL(linkat);
    const auto lock = operations.lock();
    const int result = next(one, from, other, to, flags);
    if (result == 0) operations.named("link", other, to);
    return result;
}
int link(const char* from, const char* to) {
    return linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
}
int symlinkat(const char* target, int directory, const char* path) {
    REAL(symlinkat);
    const auto lock = operations.lock();
    const int result = next(target, directory, path);
    if (result != 0) return result;
    operations.named("symlink", directory, path);
    operations.linkText(directory, path, target);
    return 0;
}
int symlink(const char* target, const char* path) {
    return symlinkat(target, AT_FDCWD, path);
}
int unlinkat(int directory, const char* path, int flags) {
    REAL(unlinkat);
    if (fails(Unlink)) return -1;
    const auto lock = operations.lock();
    const ino_t parent = operations.parentOf(directory, path);
    const int result = next(directory, path, flags);
    if (result == 0) operations.unnamed(parent, path);
    return result;
}
int unlink(const char* path) {
    return unlinkat(AT_FDCWD, path, 0);
}
int rmdir(const char* path) {
    return unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
}
int remove(const char* path) {
    struct stat info;
    const bool isDirectory = lstat(path, &info) == 0 && S_ISDIR(info.st_mode);
    return unlinkat(AT_FDCWD, path, isDirectory ? AT_REMOVEDIR : 0);
}
int fsync(int fd) {
    REAL(fsync);
    if (fails(Fsync)) return -1;
    const auto lock = operations.lock();
    const int result = next(fd);
    if (result == 0) operations.ofFile("flush", fd);
    return result;
}
int fdatasync(int fd) {
    return fsync(fd);
}
int syncfs(int fd) {
    REAL(syncfs);
    if (fails(Fsync)) return -1;
    const auto lock = operations.lock();
    const int result = next(fd);
    if (result == 0) operations.plain("sync");
    return result;
}
int ftruncate(int fd, off_t size) {
    REAL(ftruncate);
    if (fails(Truncate)) return -1;
    const auto lock = operations.lock();
    const int result = next(fd, size);
    if (result == 0) operations.ofFile("size", fd);
    return result;
}
pid_t waitpid(pid_t pid, int* status, int options) {
    REAL(waitpid);
    const pid_t ended = next(pid, status, options);
    const auto lock = operations.lock();
    if (ended > 0) operations.plain("child");
    return ended;
}
int fchmod(int fd, mode_t mode) {
    REAL(fchmod);
    return fails(Mode) ? -1 : next(fd, mode);
}
int futimens(int fd, const timespec times[2]) {
    REAL(futimens);
    return fails(Mode) ? -1 : next(fd, times);
}
ssize_t copy_file_range(int from, off64_t* at, int to, off64_t* toAt, size_t size, unsigned flags) {
    REAL(copy_file_range);
    if (fails(Copy)) return -1;
    if (operations.isOn()) {  // by hand, where what is copied is seen
        errno = ENOSYS;
        return -1;
    }
    return next(from, at, to, toAt, size, flags);
}
// Its own name would hide a type.
int lockFile(int fd, int operation) __asm__("flock");
int lockFile(int fd, int operation) {
    static const auto kNext = real<int (*)(int, int)>("flock");
    return fails(Lock) ? -1 : kNext(fd, operation);
}

}  // extern "C"

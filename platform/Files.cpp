#include "platform/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/SystemCalls.h"

namespace zelor {

namespace {

bool endsInsideLine(int fd) {
    struct stat info {};
    if (fstat(fd, &info) != 0 || info.st_size == 0) return false;
    char last = '\n';
    return pread(fd, &last, 1, info.st_size - 1) == 1 && last != '\n';
}

}  // namespace

void UniqueFd::reset(int fd) {
    close();
    fd_ = fd;
}

bool UniqueFd::close() {
    const int fd = release();
    return fd < 0 || ::close(fd) == 0;
}

UniqueFd openFile(const std::string& path, int flags, unsigned mode) {
    int fd = -1;
    do {
        fd = open(path.c_str(), flags | O_CLOEXEC, static_cast<mode_t>(mode));
    } while (fd < 0 && errno == EINTR);
    return UniqueFd(fd);
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool flushToDisk(int fd) {
    return flushDescriptor(fd);
}

void flushDirectory(const std::string& directory) {
    const UniqueFd fd = openFile(directory, O_RDONLY | O_DIRECTORY);
    if (fd) flushDescriptor(fd.get());
}

bool appendLine(const std::string& path, const std::string& line) {
    const UniqueFd fd = openFile(path, O_RDWR | O_APPEND | O_CREAT);
    if (!fd) return false;
    return writeAll(fd.get(), (endsInsideLine(fd.get()) ? "\n" : "") + line + "\n");
}

}  // namespace zelor

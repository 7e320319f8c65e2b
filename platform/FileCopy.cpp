#include "platform/FileCopy.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#ifdef __APPLE__
#include <copyfile.h>
#endif

namespace zelor {

#ifdef __APPLE__

bool copyFileData(int source, int target) {
    return fcopyfile(source, target, nullptr, COPYFILE_DATA) == 0;
}

bool copyFileAttributes(int source, int target) {
    return fcopyfile(source, target, nullptr, COPYFILE_XATTR) == 0;
}

struct timespec accessTime(const struct stat& info) {
    return info.st_atimespec;
}
struct timespec modificationTime(const struct stat& info) {
    return info.st_mtimespec;
}

#else

namespace {

bool copyByHand(int source, int target) {
    constexpr std::size_t kChunk = std::size_t{1} << 18;
    const auto buffer = std::make_unique<char[]>(kChunk);
    for (;;) {
        const ssize_t count = read(source, buffer.get(), kChunk);
        if (count == 0) return true;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        for (ssize_t done = 0; done < count;) {
            const ssize_t put = write(target, buffer.get() + done, static_cast<std::size_t>(count - done));
            if (put < 0 && errno != EINTR) return false;
            if (put > 0) done += put;
        }
    }
}

}  // namespace

bool copyFileData(int source, int target) {
#ifdef __linux__
    constexpr std::size_t kRange = std::size_t{1} << 30;
    bool any = false;
    for (;;) {
        const ssize_t count = copy_file_range(source, nullptr, target, nullptr, kRange, 0);
        if (count > 0) {
            any = true;
        } else if (count == 0 && any) {
            return true;
        } else if (count < 0 && errno == EINTR) {
            continue;
        } else {
            break;  // not between these file systems, or a file that only reads can tell the size of
        }
    }
#endif
    return copyByHand(source, target);
}

bool copyFileAttributes(int /*source*/, int /*target*/) {
    return true;
}

struct timespec accessTime(const struct stat& info) {
    return info.st_atim;
}
struct timespec modificationTime(const struct stat& info) {
    return info.st_mtim;
}

#endif

}  // namespace zelor

#include "agent/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace zelor::agent {

namespace {

constexpr std::size_t pieceBytes = 1U << 20U;

/// At most `room` bytes into `buffer`; 0 at the end of the file.
std::size_t readSome(const base::UniqueFd& file, const std::string& path, char* buffer, std::size_t room) {
    for (;;) {
        const ssize_t got = ::read(file.get(), buffer, room);
        if (got >= 0) return static_cast<std::size_t>(got);
        if (errno != EINTR) throw std::runtime_error("cannot read " + path + ": " + errorText(errno));
    }
}

}  // namespace

base::UniqueFd openRegularFile(const std::string& path, Links links, std::uint64_t* bytes) {
    const int noFollow = links == Links::refuse ? O_NOFOLLOW : 0;
    base::UniqueFd file = base::openFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | noFollow);
    if (!file) throw std::runtime_error("cannot open " + path + ": " + errorText(errno));
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        throw std::runtime_error("cannot examine " + path + ": " + errorText(errno));
    }
    if (!S_ISREG(status.st_mode)) throw std::runtime_error(path + " is not a regular file");
    if (bytes != nullptr) *bytes = static_cast<std::uint64_t>(status.st_size);
    return file;
}

std::uint64_t readInPieces(const base::UniqueFd& file, const std::string& path,
                           const std::function<void(std::string_view)>& consume) {
    std::vector<char> buffer(pieceBytes);
    std::uint64_t total = 0;
    while (const std::size_t got = readSome(file, path, buffer.data(), buffer.size())) {
        consume({buffer.data(), got});
        total += got;
    }
    return total;
}

std::string readBounded(const std::string& path, std::size_t limit, Links links) {
    std::uint64_t announced = 0;
    const base::UniqueFd file = openRegularFile(path, links, &announced);
    // One byte more than announced is asked for: the file may have grown since.
    const auto wanted = [limit](std::uint64_t bytes) {
        return static_cast<std::size_t>(std::min<std::uint64_t>(bytes, limit)) + 1;
    };
    std::string text(wanted(announced), '\0');
    std::size_t filled = 0;
    while (const std::size_t got = readSome(file, path, text.data() + filled, text.size() - filled)) {
        filled += got;
        if (filled > limit) break;
        if (filled == text.size()) text.resize(wanted(std::uint64_t{2} * filled));
    }
    if (filled > limit) {
        throw std::runtime_error(path + " is larger than the " + std::to_string(limit) + " bytes allowed");
    }
    text.resize(filled);
    return text;
}

bool makeFolders(const std::string& path) {
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

std::string errorText(int error) {
    return std::generic_category().message(error);
}

}  // namespace zelor::agent

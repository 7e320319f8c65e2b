#include "controller/run/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <map>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <tuple>

#include "base/Directories.h"
#include "base/StagedFile.h"
#include "controller/InputError.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 16U;
constexpr unsigned kFileMode = 0644;
constexpr std::chrono::seconds kReaderWait{5};  ///< for the reader of a pipe, while runs are locked out

std::string cannotWrite(const std::string& path, int error) {
    return "cannot write " + path + ": " + base::errorText(error);
}

/// Pipes, terminals and /dev/null are written in place; other devices could be anything, a disk too.
bool isWrittenInPlace(const struct stat& info, int fd) {
    struct stat null {};
    if (S_ISFIFO(info.st_mode)) return true;
    if (!S_ISCHR(info.st_mode)) return false;
    return ::isatty(fd) == 1 || (::stat("/dev/null", &null) == 0 && null.st_rdev == info.st_rdev);
}

enum class Target { file, inPlace };

/// open(2) itself would wait for the reader of a pipe without end.
base::UniqueFd openInPlace(const std::string& path, bool pipe) {
    const auto late = std::chrono::steady_clock::now() + kReaderWait;
    for (;;) {
        base::UniqueFd file = base::openFile(path, O_WRONLY | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK);
        const bool mayCome = !file && errno == ENXIO && pipe;
        if (!mayCome || std::chrono::steady_clock::now() >= late) return file;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

/// Checks what is at `path`, and opens it when it is written in place. Creates and truncates nothing and
/// follows no symbolic link. Without `wait`, a pipe is `inPlace` but not opened. Returns what is wrong, or
/// "".
std::string lookAt(const std::string& path, bool wait, Target& target, base::UniqueFd& file) {
    struct stat info {};
    target = Target::file;
    if (::lstat(path.c_str(), &info) != 0)
        return errno == ENOENT ? "" : cannotWrite(path, errno) + "; choose another file";
    if (S_ISLNK(info.st_mode)) return path + " is a symbolic link; name the file itself";
    if (S_ISDIR(info.st_mode)) return path + " is a directory; name a file in it";
    if (::access(path.c_str(), W_OK) != 0) return cannotWrite(path, errno) + "; choose another file";
    if (S_ISREG(info.st_mode)) return "";
    target = Target::inPlace;
    if (S_ISFIFO(info.st_mode) && !wait) return "";  // closing it again would be end of file for its reader
    if (!S_ISFIFO(info.st_mode) && !S_ISCHR(info.st_mode))
        return "cannot write " + path + ", a device or socket; name a file, a pipe, a terminal or /dev/null";
    file = openInPlace(path, S_ISFIFO(info.st_mode));
    if (!file && errno == ENXIO && S_ISFIFO(info.st_mode))
        return "nobody reads the pipe " + path + "; start its reader first";
    if (!file || ::fstat(file.get(), &info) != 0) return cannotWrite(path, errno) + "; choose another file";
    if (!isWrittenInPlace(info, file.get()))
        return "cannot write " + path + ", a device; name a file, a pipe, a terminal or /dev/null";
    ::fcntl(file.get(), F_SETFL, ::fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
    return "";
}

/// Why a named descriptor is not one that the caller left open for writing. Our own ones close on exec.
std::string descriptorProblem(int fd, const std::string& path) {
    const int own = ::fcntl(fd, F_GETFD);
    const int mode = own < 0 ? 0 : ::fcntl(fd, F_GETFL) & O_ACCMODE;
    if (own < 0 || (own & FD_CLOEXEC) != 0 || mode == O_RDONLY)
        return path + " is not open for writing; open it, or name a file";
    return "";
}

/// Returns what is wrong, or "" when everything was written.
std::string fill(int fd, const std::string& path, const std::function<void(std::ostream&)>& write) {
    FdBuffer buffer(fd);
    std::ostream out(&buffer);
    write(out);
    out.flush();
    return buffer.failed() ? cannotWrite(path, buffer.error()) : "";
}

base::StagedFile stagedFile(const std::string& path) {
    return base::StagedFile(path, '.' + std::to_string(::getpid()) + ".tmp", kFileMode);
}

std::string replaceFile(const std::string& path, const std::function<void(std::ostream&)>& write) {
    try {
        base::StagedFile file = stagedFile(path);
        std::string problem = fill(file.descriptor(), path, write);
        if (problem.empty()) file.commit();
        return problem;
    } catch (const std::runtime_error& e) {
        return e.what();
    }
}

/// A file's device and inode; for a missing file, its directory's and its name.
using Identity = std::tuple<dev_t, ino_t, std::string>;

/// None for anything but a regular file: devices and pipes may be used twice.
std::optional<Identity> identityOf(const std::string& path) {
    struct stat info {};
    const int result = path == "-" ? ::fstat(STDIN_FILENO, &info) : ::stat(path.c_str(), &info);
    if (result == 0) {
        if (!S_ISREG(info.st_mode)) return std::nullopt;
        return Identity(info.st_dev, info.st_ino, "");
    }
    if (::stat(base::directoryOf(path).c_str(), &info) != 0) return std::nullopt;
    return Identity(info.st_dev, info.st_ino, path.substr(path.rfind('/') + 1));
}

/// Checks that the output can be written at the end. A pipe is not opened, since closing it again would be
/// end of file for its reader.
void checkOutput(const std::string& path, const std::string& option) {
    const auto descriptor = namedDescriptor(path);
    Target target = Target::inPlace;
    base::UniqueFd file;
    const std::string problem =
        descriptor ? descriptorProblem(*descriptor, path) : lookAt(path, false, target, file);
    if (!problem.empty()) throw InputError(option + ": " + problem);
    if (target == Target::inPlace) return;
    try {
        (void)stagedFile(path);
    } catch (const std::runtime_error& e) {
        throw InputError(option + ": " + e.what() +
                         "; choose a file in a directory that exists and that you may write");
    }
}

/// Truncates the file. Refuses one with several hard links: another name may be a file nobody meant to empty.
std::string openEmptied(const std::string& path, base::UniqueFd& file) {
    file = base::openFile(path, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, kFileMode);
    struct stat info {};
    if (!file || ::fstat(file.get(), &info) != 0) return cannotWrite(path, errno) + "; choose another file";
    if (!S_ISREG(info.st_mode)) return path + " is no longer a regular file; choose another file";
    if (info.st_nlink > 1) return path + " has another name too, a hard link; choose another file";
    return ::ftruncate(file.get(), 0) == 0 ? "" : cannotWrite(path, errno) + "; choose another file";
}

}  // namespace

std::optional<int> namedDescriptor(const std::string& path) {
    if (path == "/dev/stdout") return STDOUT_FILENO;
    if (path == "/dev/stderr") return STDERR_FILENO;
    for (const std::string directory : {"/dev/fd/", "/proc/self/fd/"}) {
        if (path.compare(0, directory.size(), directory) != 0) continue;
        int fd = -1;
        const char* const end = path.data() + path.size();
        const auto [after, error] = std::from_chars(path.data() + directory.size(), end, fd);
        if (error == std::errc() && after == end && fd >= 0) return fd;
    }
    return std::nullopt;
}

FdBuffer::FdBuffer(int fd) : fd_(fd), room_(kBufferBytes, '\0') {
    setp(room_.data(), room_.data() + room_.size());
}

FdBuffer::~FdBuffer() {
    FdBuffer::sync();
}

FdBuffer::int_type FdBuffer::overflow(int_type next) {
    if (FdBuffer::sync() != 0) return traits_type::eof();
    if (!traits_type::eq_int_type(next, traits_type::eof())) sputc(traits_type::to_char_type(next));
    return traits_type::not_eof(next);
}

int FdBuffer::sync() {
    const std::string bytes(pbase(), pptr());
    setp(room_.data(), room_.data() + room_.size());
    if (error_ == 0 && !base::writeAll(fd_, bytes)) error_ = errno;
    return failed() ? -1 : 0;
}

void checkOutputs(const std::vector<RequestedOutput>& outputs, const std::string& requests) {
    std::map<Identity, std::string> taken;
    const auto ofRequests = identityOf(requests);
    std::string onStandardOutput;
    for (const auto& [option, path] : outputs) {
        if (path.empty()) continue;
        if (path == "-") {
            if (!onStandardOutput.empty())
                throw InputError(onStandardOutput + " - and " + option +
                                 " - cannot share standard output; give one of them a file");
            onStandardOutput = option;
            continue;
        }
        const auto identity = namedDescriptor(path) ? std::nullopt : identityOf(path);
        if (identity && identity == ofRequests)
            throw InputError(option + ' ' + path + " is the file of the requests; name another file");
        if (identity && !taken.emplace(*identity, option).second)
            throw InputError(option + " and " + taken[*identity] + " name the same file, " + path +
                             "; choose a different file for each");
        checkOutput(path, option);
    }
}

std::string writeOutput(const std::string& path, const std::function<void(std::ostream&)>& write) {
    if (path == "-") return fill(STDOUT_FILENO, "standard output", write);
    if (const auto descriptor = namedDescriptor(path)) return fill(*descriptor, path, write);
    Target target = Target::file;
    base::UniqueFd file;
    std::string problem = lookAt(path, true, target, file);
    if (!problem.empty()) return problem;
    return target == Target::file ? replaceFile(path, write) : fill(file.get(), path, write);
}

std::string writeTalk(int fd, const std::string& text) {
    return base::writeAll(fd, text) || fd != STDOUT_FILENO ? "" : cannotWrite("standard output", errno);
}

LineOutput::LineOutput(const std::string& path, const std::string& option) : path_(path), fd_(STDOUT_FILENO) {
    if (path == "-") return;
    if (const auto descriptor = namedDescriptor(path)) {
        fd_ = *descriptor;
        return;
    }
    Target target = Target::file;
    std::string problem = lookAt(path, true, target, file_);
    if (problem.empty() && target == Target::file) problem = openEmptied(path, file_);
    if (!problem.empty()) throw InputError(option + ": " + problem);
    fd_ = file_.get();
}

void LineOutput::write(const std::string& line) {
    if (problem_.empty() && !base::writeAll(fd_, line + '\n'))
        problem_ = cannotWrite(path_ == "-" ? "standard output" : path_, errno);
}

}  // namespace zelor::controller

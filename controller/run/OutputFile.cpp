#include "controller/run/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <optional>
#include <stdexcept>
#include <tuple>

#include "base/Directories.h"
#include "base/StagedFile.h"
#include "controller/InputError.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 16U;
constexpr unsigned kFileMode = 0644;

/// Devices, pipes and the like are written in place.
bool isSpecial(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode);
}

std::string cannotWrite(const std::string& path, int error) {
    return "cannot write " + path + ": " + base::errorText(error);
}

/// "" when everything is written to the open file.
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

/// Tells one file from another by device and inode; one that is not there yet by its directory's and its
/// name.
using Identity = std::tuple<dev_t, ino_t, std::string>;

/// None for what is no regular file: devices and pipes may be used twice.
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

/// Opens the output as it will be opened at the end. A pipe is left alone: its reader would see an end.
void checkOutput(const std::string& path, const std::string& option) {
    struct stat info {};
    const bool there = ::stat(path.c_str(), &info) == 0;
    if (there && S_ISDIR(info.st_mode))
        throw InputError(option + ' ' + path + " is a directory; name a file in it");
    if (there && S_ISFIFO(info.st_mode)) return;
    if (there && ::access(path.c_str(), W_OK) != 0)
        throw InputError(option + ": " + cannotWrite(path, errno) + "; choose another file");
    if (there && !S_ISREG(info.st_mode)) {
        if (!base::openFile(path, O_WRONLY | O_NOCTTY | O_NONBLOCK))
            throw InputError(option + ": " + cannotWrite(path, errno) + "; choose another file");
        return;
    }
    try {
        (void)stagedFile(path);
    } catch (const std::runtime_error& e) {
        throw InputError(option + ": " + e.what() +
                         "; choose a file in a directory that exists and that you may write");
    }
}

}  // namespace

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
        const auto identity = identityOf(path);
        if (identity && identity == ofRequests)
            throw InputError(option + ' ' + path + " is the file of the requests; name another file");
        if (identity && !taken.emplace(*identity, option).second)
            throw InputError(option + " and " + taken[*identity] + " name the same file, " + path +
                             "; give each a file of its own");
        checkOutput(path, option);
    }
}

std::string writeOutput(const std::string& path, const std::function<void(std::ostream&)>& write) {
    if (path == "-") return fill(STDOUT_FILENO, "standard output", write);
    if (!isSpecial(path)) return replaceFile(path, write);
    const base::UniqueFd file = base::openFile(path, O_WRONLY | O_NOCTTY);
    return file ? fill(file.get(), path, write) : cannotWrite(path, errno);
}

std::string writeTalk(int fd, const std::string& text) {
    return base::writeAll(fd, text) || fd != STDOUT_FILENO ? "" : cannotWrite("standard output", errno);
}

LineOutput::LineOutput(const std::string& path, const std::string& option) : path_(path), fd_(STDOUT_FILENO) {
    if (path == "-") return;
    file_ = base::openFile(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY, kFileMode);
    if (!file_) throw InputError(option + ": " + cannotWrite(path, errno) + "; choose another file");
    fd_ = file_.get();
}

void LineOutput::write(const std::string& line) {
    if (problem_.empty() && !base::writeAll(fd_, line + '\n'))
        problem_ = cannotWrite(path_ == "-" ? "standard output" : path_, errno);
}

}  // namespace zelor::controller

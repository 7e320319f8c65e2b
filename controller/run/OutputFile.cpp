#include "controller/run/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <optional>
#include <tuple>

#include "agent/Files.h"
#include "controller/InputError.h"

namespace zelor::controller {

namespace {

constexpr std::size_t bufferBytes = std::size_t{1} << 16U;
constexpr unsigned fileMode = 0644;

std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Devices, pipes and the like are written in place.
bool isSpecial(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode);
}

std::string cannotWrite(const std::string& path, int error) {
    return "cannot write " + path + ": " + agent::errorText(error);
}

/// "" when everything is written to the open file.
std::string fill(int fd, const std::string& path, const std::function<void(std::ostream&)>& write) {
    FdBuffer buffer(fd);
    std::ostream out(&buffer);
    write(out);
    out.flush();
    return buffer.failed() ? cannotWrite(path, buffer.error()) : "";
}

std::string temporaryName(const std::string& path) {
    return path + "." + std::to_string(::getpid()) + ".tmp";
}

std::string replaceFile(const std::string& path, const std::function<void(std::ostream&)>& write) {
    const std::string temporary = temporaryName(path);
    base::UniqueFd file = base::openFile(temporary, O_WRONLY | O_CREAT | O_EXCL, fileMode);
    if (!file) return cannotWrite(temporary, errno);
    std::string problem = fill(file.get(), temporary, write);
    if (problem.empty() && !base::flushToDisk(file.get())) problem = cannotWrite(temporary, errno);
    file.reset();
    if (problem.empty() && std::rename(temporary.c_str(), path.c_str()) != 0)
        problem = cannotWrite(path, errno);
    if (!problem.empty()) ::unlink(temporary.c_str());
    return problem;
}

/// Tells one file from another by device and inode; one that is not there yet by its folder's and its name.
using Identity = std::tuple<dev_t, ino_t, std::string>;

/// None for what is no regular file: devices and pipes may be used twice.
std::optional<Identity> identityOf(const std::string& path) {
    struct stat info {};
    const int result = path == "-" ? ::fstat(STDIN_FILENO, &info) : ::stat(path.c_str(), &info);
    if (result == 0) {
        if (!S_ISREG(info.st_mode)) return std::nullopt;
        return Identity(info.st_dev, info.st_ino, "");
    }
    if (::stat(folderOf(path).c_str(), &info) != 0) return std::nullopt;
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
    const std::string temporary = temporaryName(path);
    if (!base::openFile(temporary, O_WRONLY | O_CREAT | O_EXCL, fileMode)) {
        throw InputError(option + ": " + cannotWrite(path, errno) +
                         "; choose a file in a directory that exists and that you may write");
    }
    ::unlink(temporary.c_str());
}

}  // namespace

FdBuffer::FdBuffer(int fd) : fd_(fd), room_(bufferBytes, '\0') {
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
    file_ = base::openFile(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY, fileMode);
    if (!file_) throw InputError(option + ": " + cannotWrite(path, errno) + "; choose another file");
    fd_ = file_.get();
}

void LineOutput::write(const std::string& line) {
    if (problem_.empty() && !base::writeAll(fd_, line + '\n'))
        problem_ = cannotWrite(path_ == "-" ? "standard output" : path_, errno);
}

}  // namespace zelor::controller

#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "base/Files.h"

namespace zelor::controller {

/// Writes to a descriptor that stays the caller's. What fails is dropped: ask `failed`.
class FdBuffer : public std::streambuf {
  public:
    /// Buffers; what is left is written at the end of its life.
    explicit FdBuffer(int fd);
    ~FdBuffer() override;
    FdBuffer(const FdBuffer&) = delete;
    FdBuffer& operator=(const FdBuffer&) = delete;
    /// True once a write failed.
    bool failed() const { return error_ != 0; }
    /// The errno value of the first write that failed, or 0.
    int error() const { return error_; }

  protected:
    int_type overflow(int_type next) override;
    int sync() override;

  private:
    int fd_;
    int error_ = 0;
    std::string room_;
};

/// An output that an option asks for.
struct RequestedOutput {
    std::string option;
    std::string path;  ///< "-": standard output; "": none
};

/// The descriptor that one of the system's own names stands for: 1 for "/dev/stdout", 5 for "/dev/fd/5";
/// nothing for another path. Outputs to such a name are written to that descriptor, as to "-", since on Linux
/// the names are links to whatever it is. Pure.
std::optional<int> namedDescriptor(const std::string& path);

/// Throws InputError when an output is a symbolic link or a device other than a terminal, a pipe and
/// /dev/null, when it cannot be opened for writing, is the file of the requests ("-": standard
/// input) under whatever name, or is the same as another one. Leaves no file behind. Call it before anything
/// else opens files: a descriptor that is named must have come from the caller of the program.
void checkOutputs(const std::vector<RequestedOutput>& outputs, const std::string& requests);

/// Writes the whole of an output ("-": standard output): a file appears complete under its name or not at
/// all. What `checkOutputs` refuses is refused here too. Returns what went wrong, "" when all is written.
std::string writeOutput(const std::string& path, const std::function<void(std::ostream&)>& write);

/// Writes what is meant for people. Returns what went wrong; "" also for standard error, which is the last
/// place to report it to.
std::string writeTalk(int fd, const std::string& text);

/// Lines that are out as soon as they are written, to a file that is emptied first or, for "-", to standard
/// output.
class LineOutput {
  public:
    /// Throws InputError when the file cannot be opened.
    LineOutput(const std::string& path, const std::string& option);
    /// Writes the line and a line end; after a failure, nothing more.
    void write(const std::string& line);
    /// What went wrong first, "" when every line is out.
    const std::string& problem() const { return problem_; }

  private:
    std::string path_;
    base::UniqueFd file_;
    int fd_;
    std::string problem_;
};

}  // namespace zelor::controller

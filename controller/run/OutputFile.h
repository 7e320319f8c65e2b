#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "base/Files.h"

namespace zelor::controller {

/// A stream buffer that writes to a descriptor, which stays the caller's. After a failed write, output is
/// dropped: check `failed`.
class FdBuffer : public std::streambuf {
  public:
    /// Output is buffered; the destructor writes the rest.
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

/// An output that was asked for by an option.
struct RequestedOutput {
    std::string option;
    std::string path;  ///< "-": standard output; "": none
};

/// The descriptor that one of the system's own names means: 1 for "/dev/stdout", 5 for "/dev/fd/5";
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

/// Writes text for people. Returns what went wrong; always "" for standard error, since there is nowhere else
/// to report it.
std::string writeTalk(int fd, const std::string& text);

/// Writes lines, unbuffered, to a file that is emptied first or, for "-", to standard output.
class LineOutput {
  public:
    /// Throws InputError when the file cannot be opened.
    LineOutput(const std::string& path, const std::string& option);
    /// Writes the line and a line end; after a failure, nothing more.
    void write(const std::string& line);
    /// The first error, "" when every line was written.
    const std::string& problem() const { return problem_; }

  private:
    std::string path_;
    base::UniqueFd file_;
    int fd_;
    std::string problem_;
};

}  // namespace zelor::controller

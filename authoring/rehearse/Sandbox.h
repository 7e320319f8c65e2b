#pragma once

#include <string>
#include <vector>

namespace zelor::authoring {

/// A sandbox in which a program can change nothing but a rehearsal Mac: new user, mount and process
/// namespaces, made by bubblewrap. The Mac's disk is its root directory, so absolute paths lead to the disk.
/// Directories of this machine that the Mac's disk lacks, and those of the system (/usr, /bin, /lib), are
/// read-only there. /tmp is empty and discarded at the end.
struct SandboxOptions {
    std::string disk;                   ///< the rehearsal Mac's root, canonical
    std::vector<std::string> writable;  ///< further directories, absolute
    std::vector<std::string> readable;  ///< the same, read-only; writable ones may be below them
};

/// Tries to make a sandbox. Returns why none can be made on this machine, "" when one can.
std::string whyNoSandbox();

/// Runs commands in one sandbox. Mount points that the disk lacks exist as long as this object.
class Sandbox {
  public:
    /// Makes the missing mount points. Throws UsageError when a file on the disk is in the place of one.
    explicit Sandbox(SandboxOptions options);
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    /// The argument vector that runs `command` inside; its first word is a path. The program outside ignores
    /// SIGINT, SIGTERM and SIGHUP: send them to the whole process group, and the command handles them.
    std::vector<std::string> words(const std::vector<std::string>& command) const;

  private:
    void bind(const std::string& how, const std::string& path);
    void rememberMissing(const std::string& path);

    SandboxOptions options_;
    std::vector<std::string> arguments_;
    std::vector<std::string> missing_;  // on the disk, outermost first
};

}  // namespace zelor::authoring

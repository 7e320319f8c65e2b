#pragma once

#include <string>
#include <vector>

namespace zelor::authoring {

/// Where a program runs so that nothing but a rehearsal Mac can be changed: user, mount and process
/// namespaces of its own, made by bubblewrap. The Mac's disk is the root there, so that absolute paths lead
/// to it. The directories of this machine that a Mac's disk does not have, and those of the system (/usr,
/// /bin, /lib), are there to be read. /tmp is empty and forgotten at the end.
struct SandboxOptions {
    std::string disk;                   ///< the rehearsal Mac's root, canonical
    std::vector<std::string> writable;  ///< further directories, absolute
    std::vector<std::string> readable;  ///< the same, to be read alone; what is writable may lie below
};

/// Why no sandbox can be made on this machine, "" when one can: tries one.
std::string whyNoSandbox();

/// Runs commands in one sandbox. The mount points that its disk lacks are there for as long as this object.
class Sandbox {
  public:
    /// Throws UsageError when something on the disk is in the way of a mount point.
    explicit Sandbox(SandboxOptions options);
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    /// The words that run `command` inside; the first is a path. The program outside ignores SIGINT, SIGTERM
    /// and SIGHUP, so that they may be sent to the whole process group for the command to handle.
    std::vector<std::string> words(const std::vector<std::string>& command) const;

  private:
    void bind(const std::string& how, const std::string& path);
    void rememberMissing(const std::string& path);

    SandboxOptions options_;
    std::vector<std::string> arguments_;
    std::vector<std::string> missing_;  // on the disk, outermost first
};

}  // namespace zelor::authoring

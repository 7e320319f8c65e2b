#pragma once

#include <list>
#include <string>
#include <vector>

namespace zelor::authoring {

/// A program of this installation: the file `name` in the directory of the running program. Throws UsageError
/// when it is not there.
std::string siblingProgram(const std::string& name);

/// A file that exists as long as this object. What was there before is moved aside and restored at the
/// end, even when the process of an earlier object was killed.
class PlacedFile {
  public:
    /// Moves the file or directory at `path` aside; what comes in its place is removed at the end. Throws
    /// when that fails.
    explicit PlacedFile(std::string path);
    /// The same, and writes `text` to `path`.
    PlacedFile(std::string path, const std::string& text);
    ~PlacedFile();
    PlacedFile(const PlacedFile&) = delete;
    PlacedFile& operator=(const PlacedFile&) = delete;
    /// Leaves the file in place.
    void keep() { kept_ = true; }

  private:
    std::string path_;
    std::string aside_;
    bool kept_ = false;
};

/// Which Mac to use, or how to make one.
struct RehearsalMacOptions {
    std::string tools;                 ///< an existing tools directory; "": make one
    std::string root;                  ///< the disk of a new Mac; "": one in the scratch directory
    std::string version;               ///< of the system of a new Mac
    std::vector<std::string> updates;  ///< labels that a new Mac is offered
};

/// A rehearsal Mac, made by zelor-rehearsal or existing, with an agent's settings for one repository.
class RehearsalMac {
  public:
    /// Uses or makes the Mac; the tools directory of a new one is below `scratch`. Throws UsageError when
    /// that is not possible.
    RehearsalMac(const std::string& scratch, const RehearsalMacOptions& options);

    /// The tools directory; the directory that is its disk; its system.
    const std::string& tools() const { return tools_; }
    const std::string& root() const { return root_; }
    const std::string& system() const { return system_; }  ///< "Mac OS X 10.10.5"

    /// Makes its agent use the repository at `url` alone, trust the public key, and require freshness by the
    /// metadata from `metadataRoot` on, until this object is destroyed. Metadata that it kept is put aside.
    void configure(const std::string& url, const std::string& publicPem, const std::string& metadataRoot);
    /// Keeps these settings beyond the object's life.
    void keepSettings();

  private:
    std::string tools_;
    std::string root_;
    std::string system_;
    std::list<PlacedFile> settings_;
};

}  // namespace zelor::authoring

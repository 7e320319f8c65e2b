#pragma once

#include <list>
#include <string>
#include <vector>

namespace zelor::authoring {

/// A program of this installation: the file `name` in the directory of the running program. Throws UsageError
/// when it is not there.
std::string siblingProgram(const std::string& name);

/// A file that is there for as long as this object; what was there before is put aside meanwhile, also
/// when an earlier object's process was killed.
class PlacedFile {
  public:
    PlacedFile(std::string path, const std::string& text);
    ~PlacedFile();
    PlacedFile(const PlacedFile&) = delete;
    PlacedFile& operator=(const PlacedFile&) = delete;
    /// Leaves the file where it is.
    void keep() { kept_ = true; }

  private:
    std::string path_;
    std::string aside_;
    bool kept_ = false;
};

struct RehearsalMacOptions {
    std::string tools;                 ///< an existing tools directory; "" makes one
    std::string root;                  ///< the disk of a new Mac; "" takes one in the scratch directory
    std::string version;               ///< of a new Mac's system
    std::vector<std::string> updates;  ///< labels that a new Mac is offered
};

/// A rehearsal Mac, made by zelor-rehearsal or taken as it is, with an agent's settings for one repository.
class RehearsalMac {
  public:
    /// Throws UsageError when the order cannot be carried out.
    RehearsalMac(const std::string& scratch, const RehearsalMacOptions& options);

    const std::string& tools() const { return tools_; }
    const std::string& root() const { return root_; }
    const std::string& system() const { return system_; }  ///< "Mac OS X 10.10.5"

    /// Makes its agent use the repository at `url` and trust the public key, until this object ends.
    void configure(const std::string& url, const std::string& publicPem);
    /// Lets the settings stay.
    void keepSettings();

  private:
    std::string tools_;
    std::string root_;
    std::string system_;
    std::list<PlacedFile> settings_;
};

}  // namespace zelor::authoring

#pragma once

#include <map>
#include <set>
#include <string>

#include "authoring/publish/SigningKey.h"

namespace zelor::authoring {

/// The content/ directory of a repository. Changes are collected and then appear all at once: a complete new
/// directory (unchanged files are hard links) is exchanged with the old one in one step. Where the file
/// system cannot do that, each file is renamed into place, its signature first.
class ContentDirectory {
  public:
    /// Removes what an interrupted `commit` left; the directory may be missing. Throws when it cannot.
    explicit ContentDirectory(const std::string& repository);

    /// Collects a content file and its signature. False when the directory already has this file, signed by
    /// this key.
    bool put(const std::string& identifier, const std::string& xml, const SigningKey& key);
    /// Collects the removal of a content file and its signature.
    void withdraw(const std::string& identifier);
    /// The identifiers that have content now.
    std::set<std::string> identifiers() const;
    /// Makes the collected changes, if any. Throws std::runtime_error.
    void commit();

  private:
    bool exchange();
    void renameEach();

    std::string directory_;
    std::string next_;
    std::map<std::string, std::string> changed_;  // file name to bytes; a signature sorts after its content
    std::set<std::string> removed_;               // file names, in the same order
};

}  // namespace zelor::authoring

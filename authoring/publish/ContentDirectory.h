#pragma once

#include <map>
#include <set>
#include <string>

#include "authoring/publish/SigningKey.h"
#include "trust/Metadata.h"

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
    /// Collects a second name for every content file that `commit` leaves: its SHA-256 digest and a dot
    /// before the name, under which clients that read metadata ask for it. Returns these files by their path
    /// in the repository. Throws std::runtime_error for a file that `key` did not sign.
    std::map<std::string, trust::TargetFile> nameByDigest(const SigningKey& key);
    /// Makes the collected changes, if any. Throws std::runtime_error.
    void commit();

  private:
    bool exchange();
    void renameEach();
    std::string signedContent(const std::string& name, const SigningKey& key) const;

    std::string directory_;
    std::string next_;
    std::map<std::string, std::string> changed_;  // file name to bytes; a signature sorts after its content
    std::set<std::string> removed_;               // file names, in the same order
    std::map<std::string, std::string> named_;  // name by digest to file name, where it is missing or damaged
    std::set<std::string> unchanged_;           // names of files that `put` found as they should be
};

}  // namespace zelor::authoring

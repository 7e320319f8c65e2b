#pragma once

#include <optional>
#include <string>

#include "base/Files.h"
#include "base/Mutex.h"

namespace zelor::agent {

/// One content file with its detached signature, and what the repository said identifies this version.
struct SignedContent {
    std::string xml;
    std::string signature;
    std::string etag;
    std::string lastModified;
};

/// Content files kept on disk: `<identifier>.xml`, `.xml.sig` and `.xml.version` in one directory of mode
/// 0700. Nothing read from it is to be trusted before its signature was checked: a crash between the renames
/// of a pair leaves two that do not match, and no version, so that the next use fetches both anew. Files are
/// not flushed for the same reason. Any thread; failures are std::runtime_error that names the file.
class ContentStore {
  public:
    /// Touches nothing on the disk yet.
    explicit ContentStore(std::string directory) : directory_(std::move(directory)) {}

    /// Nothing when there is no pair for that identifier, or none that can be read.
    std::optional<SignedContent> read(const std::string& identifier) const;
    /// Replaces the pair for that identifier; makes the directory when it is missing.
    void write(const std::string& identifier, const SignedContent& content);
    /// Files that are not there are no failure.
    void remove(const std::string& identifier);

  private:
    std::string path(const std::string& identifier, const char* suffix) const;
    void openDirectory() ZELOR_REQUIRES(mutex_);
    void replace(const std::string& name, const std::string& bytes) const ZELOR_REQUIRES(mutex_);
    void removeFile(const std::string& name) const ZELOR_REQUIRES(mutex_);

    std::string directory_;
    mutable base::Mutex mutex_;
    base::UniqueFd handle_ ZELOR_GUARDED_BY(mutex_);
};

}  // namespace zelor::agent

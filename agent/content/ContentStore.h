#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Files.h"
#include "base/Mutex.h"

namespace zelor::agent {

/// One content file with its detached signature, and what the repository said identifies this version.
struct SignedContent {
    std::string xml;
    std::string signature;
    std::string etag;
    std::string lastModified;
    std::string source{};  ///< the mirror that said so: `Mirror::source`
    /// In place of a signature: the SHA-256 digest of a file that the repository's index listed.
    std::string listedDigest{};

    /// What that mirror is asked about: the version alone; an empty one for other mirrors.
    SignedContent versionFor(const std::string& mirror) const {
        return mirror == source ? SignedContent{"", "", etag, lastModified, source} : SignedContent{};
    }
};

/// Content files kept on disk: `<identifier>.xml`, `.xml.sig` and `.xml.version` in one directory of mode
/// 0700; `.xml.listed` takes the place of the last two for a file that an index listed. Check the signature
/// of what is read before using it: a crash between the renames of a pair leaves files that do not match, and
/// no version, so that the next use fetches both again. For the same reason, files are not flushed. Any
/// thread; failures throw std::runtime_error that names the file.
class ContentStore {
  public:
    /// Touches nothing on the disk yet.
    explicit ContentStore(std::string directory) : directory_(std::move(directory)) {}

    /// The file for that identifier with its signature or digest; nothing when there is none that can be
    /// read.
    std::optional<SignedContent> read(const std::string& identifier) const;
    /// Replaces the pair for that identifier; makes the directory when it is missing.
    void write(const std::string& identifier, const SignedContent& content);
    /// Removes what there is for that identifier.
    void remove(const std::string& identifier);
    /// The same but for the file itself, which then counts only where an index lists its bytes.
    void removeProof(const std::string& identifier);

  private:
    std::string path(const std::string& identifier, const char* suffix) const;
    void openDirectory() ZELOR_REQUIRES(mutex_);
    void replace(const std::string& name, const std::string& bytes) const ZELOR_REQUIRES(mutex_);
    void removeFile(const std::string& name) const ZELOR_REQUIRES(mutex_);
    void removeFiles(const std::string& identifier, const std::vector<const char*>& suffixes);

    std::string directory_;
    mutable base::Mutex mutex_;
    base::UniqueFd handle_ ZELOR_GUARDED_BY(mutex_);
};

}  // namespace zelor::agent

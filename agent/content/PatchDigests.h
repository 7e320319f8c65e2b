#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "agent/trust/Sha256.h"
#include "base/Mutex.h"

namespace zelor::agent {

/// What content says of one patch or check script. Content published before digests has neither.
struct PatchDigests {
    std::string patchId;                ///< the file's name, "editor-2.1.pkg"
    std::optional<FileDigest> file;     ///< of the file, or of a bundle's manifest
    std::optional<FileDigest> archive;  ///< of the archive that holds it
};

/// What the content that was asked for says of patches: who fetches, unpacks or verifies one knows no more
/// than its name. One for the process. Any thread.
///
/// What one identifier says is kept until it is asked for again for the same platform and product, or until
/// content is asked for in a later run. Several may name one patch: what is accepted has to match them all,
/// so that each gets what it asked for or nothing.
class WantedPatches {
  public:
    /// The one of the process; never destroyed.
    static WantedPatches& instance();

    /// Which content says it.
    struct Source {
        std::string installPath, identifier, platform, product;
    };
    /// Takes the place of what that source said before.
    void say(const Source& source, std::vector<PatchDigests> patches);

    /// The digest that an archive ("editor-2.1.zip"), or the file of a patch ("editor-2.1.pkg"), must have;
    /// nothing when no content gives one. Throws std::runtime_error with the remedy when contents differ,
    /// and, with `required`, when one of them gives none or there is no content for it.
    std::optional<FileDigest> archive(const std::string& name, bool required) const;
    std::optional<FileDigest> file(const std::string& name, bool required) const;

  private:
    using SourceKey = std::vector<std::string>;
    /// One digest that content gives, or does not.
    struct Claim {
        SourceKey source;
        std::string identifier;
        std::optional<FileDigest> digest;
    };
    using Claims = std::unordered_map<std::string, std::vector<Claim>>;  ///< by the name of archive or file

    void forget(const SourceKey& source) ZELOR_REQUIRES(mutex_);
    static void add(Claims& claims, const std::string& name, Claim claim);
    static std::optional<FileDigest> agreed(const Claims& claims, const std::string& name, bool required);

    mutable base::Mutex mutex_;
    std::uint64_t run_ ZELOR_GUARDED_BY(mutex_) = 0;
    std::map<SourceKey, std::vector<std::string>> patchIds_
        ZELOR_GUARDED_BY(mutex_);  ///< that a source named
    Claims archives_ ZELOR_GUARDED_BY(mutex_);
    Claims files_ ZELOR_GUARDED_BY(mutex_);
};

/// Bytes are whole, and not those that content asks for.
struct WrongDigest : std::runtime_error {
    /// The text names the file and both digests.
    using std::runtime_error::runtime_error;
};

/// Throws WrongDigest when `actual` is not what content wants of `name`.
void requireDigest(const std::string& name, const FileDigest& actual, const FileDigest& wanted);

}  // namespace zelor::agent

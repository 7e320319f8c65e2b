#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/trust/Sha256.h"
#include "authoring/manifest/Manifest.h"
#include "authoring/publish/PublishState.h"
#include "authoring/publish/SigningKey.h"
#include "base/StagedFile.h"

namespace zelor::authoring {

/// What content says of a published patch.
struct PatchFacts {
    std::string md5;                             ///< of the file, or of a bundle directory's manifest
    std::string size;                            ///< of the archive, which is what is downloaded and buffered
    std::optional<agent::FileDigest> file{};     ///< nothing: there is no file to publish
    std::optional<agent::FileDigest> archive{};  ///< nothing: no archive is published
};

/// Writes patches/<stem>.zip with its signature inside, and patches/<stem>.sig beside it.
class PatchPublisher {
  public:
    /// `key` and `state` outlive the object; `state` is read and updated.
    PatchPublisher(const std::string& repository, const SigningKey& key, PublishedPatches& state);

    /// Writes the patch's archive, which appears with `commit`. An archive that this key published from the
    /// same bytes and that is unchanged is not written again; with `omitArchive`, none is written. Throws
    /// std::runtime_error, also when the source has changed since it was read with the manifest.
    PatchFacts publish(const ManifestPatch& patch);
    /// True when so much has been written since the last `commit` that it should be called now.
    bool groupIsFull() const;
    /// Makes the archives written since the last call appear; calls `shown` with the patch id of each.
    void commit(const std::function<void(const std::string&)>& shown);

  private:
    struct Waiting {
        std::string patchId;
        std::string sha256;  ///< raw, of the source
        std::string archiveSha256;
    };
    agent::FileDigest write(const ManifestPatch& patch);
    agent::FileDigest keep(const ManifestPatch& patch);
    std::string archiveOf(const std::string& patchId) const;
    PublishedPatch stamped(const std::string& patchId, const std::string& sha256) const;

    std::string directory_;
    const SigningKey& key_;
    std::string fingerprint_;
    PublishedPatches& state_;
    base::StagedFiles group_;
    std::vector<Waiting> waiting_;
    std::uint64_t waitingBytes_ = 0;
};

}  // namespace zelor::authoring

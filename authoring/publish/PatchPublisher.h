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
    /// `state` is read and brought up to date.
    PatchPublisher(const std::string& repository, const SigningKey& key, PublishedPatches& state);

    /// Writes the patch's archive; `commit` shows it. An archive that is there as this key published it
    /// from the same bytes is left alone. With `omitArchive` none is written. Throws std::runtime_error, also
    /// when the source is no longer what was read with the manifest.
    PatchFacts publish(const ManifestPatch& patch);
    /// True when so much waits to be shown that it should be.
    bool groupIsFull() const;
    /// Shows the archives written since the last call; `shown` gets the patch id of each.
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

#pragma once

#include <string>

#include "authoring/manifest/Manifest.h"
#include "authoring/publish/PublishState.h"
#include "authoring/publish/SigningKey.h"

namespace zelor::authoring {

/// What content says of a published patch.
struct PatchFacts {
    std::string md5;   ///< of the file, or of a bundle folder's manifest
    std::string size;  ///< of the archive, which is what is downloaded and buffered
    bool written = false;
};

/// Writes patches/<stem>.zip with its signature inside, and patches/<stem>.sig beside it.
class PatchPublisher {
  public:
    /// `state` is read and brought up to date.
    PatchPublisher(const std::string& repository, const SigningKey& key, PublishedPatches& state);

    /// An archive that stands there as this key published it from the same bytes is left alone. With
    /// `omitArchive` none is written. Throws std::runtime_error, also when the source changes meanwhile.
    PatchFacts publish(const ManifestPatch& patch);

  private:
    void write(const ManifestPatch& patch, const std::string& sha256, const std::string& archive,
               const std::string& signatureFile);

    std::string folder_;
    const SigningKey& key_;
    std::string fingerprint_;
    PublishedPatches& state_;
};

}  // namespace zelor::authoring

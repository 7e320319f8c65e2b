#pragma once

#include <functional>
#include <optional>
#include <string>

#include "authoring/manifest/Manifest.h"
#include "authoring/metadata/MetadataPublisher.h"
#include "authoring/publish/SigningKey.h"

namespace zelor::authoring {

/// Where and how a manifest is published.
struct Publication {
    std::string repository;
    std::string manifest;  ///< names the manifest among those that share the repository: its full path
    bool only = false;     ///< withdraw all content that this manifest does not name
    bool prune = false;    ///< remove archives that no content names at once, not a day later
    std::optional<MetadataOptions> metadata{};  ///< nothing: the repository has no metadata
};

/// What a publication did.
struct PublishSummary {
    std::size_t patches = 0;
    std::size_t patchesWritten = 0;
    std::size_t patchesRemoved = 0;
    std::size_t entries = 0;
    std::size_t entriesWritten = 0;
    std::size_t entriesWithdrawn = 0;
};

/// Publishes a manifest without errors to the repository. Archives come first, each appearing complete, with
/// its signature inside; then all content changes in one step, so that nobody sees content whose archives are
/// missing, nor an entry without its signature. The same step withdraws what this manifest published before
/// and no longer names; what other manifests published stays. Archives that it published and no content names
/// are removed a day later, when no run that read the old content is in progress any more. Unchanged files
/// are not written. `report` gets a line for each file. One publication at a time: throws UsageError while
/// another is in progress, std::runtime_error when something cannot be read or written.
PublishSummary publish(Manifest manifest, const SigningKey& key, const Publication& publication,
                       const std::function<void(const std::string&)>& report);

}  // namespace zelor::authoring

#pragma once

#include <functional>
#include <string>

#include "authoring/manifest/Manifest.h"
#include "authoring/publish/SigningKey.h"

namespace zelor::authoring {

struct Publication {
    std::string repository;
    std::string manifest;  ///< names the manifest among those that share the repository: its full path
    bool only = false;     ///< the repository is to hold nothing but this manifest
    bool prune = false;    ///< remove archives that no content names at once, not a day later
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

/// Publishes a manifest without errors into the repository. Archives come first, each complete under its name
/// at once and carrying its own signature; then all content changes in one step, so that nobody sees content
/// whose archives are not there yet, nor an entry without its signature. In that step goes also what this
/// manifest published before and names no more; what other manifests published stays. Archives that it
/// published and no content names are removed a day after, when no run that read the old content is under way
/// any more. What is unchanged is not written. `report` gets a line for each file. One publication at a time:
/// throws UsageError when another is under way, std::runtime_error when something cannot be read or written.
PublishSummary publish(Manifest manifest, const SigningKey& key, const Publication& publication,
                       const std::function<void(const std::string&)>& report);

}  // namespace zelor::authoring

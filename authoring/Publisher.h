#pragma once

#include <functional>
#include <string>

#include "authoring/Manifest.h"
#include "authoring/SigningKey.h"

namespace zelor {

/// What a publication did.
struct PublishSummary {
    std::size_t patches = 0;
    std::size_t patchesWritten = 0;
    std::size_t entries = 0;
    std::size_t entriesWritten = 0;
};

/// Publishes a manifest without errors into the repository folder. Archives come first, each complete under
/// its name at once and carrying its own signature; then all content changes in one step, so that nobody sees
/// content whose archives are not there yet, nor an entry without its signature. What is unchanged is not
/// written; what other manifests published stays. `wrote` is told the path of each file. One publication at a
/// time: throws UsageError when another is under way, std::runtime_error when something cannot be read or
/// written.
PublishSummary publish(Manifest manifest, const SigningKey& key, const std::string& repository,
                       const std::function<void(const std::string&)>& wrote);

}  // namespace zelor

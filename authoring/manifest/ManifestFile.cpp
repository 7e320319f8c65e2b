#include "authoring/manifest/ManifestFile.h"

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <iostream>

#include "authoring/UsageError.h"
#include "authoring/checks/ContentChecks.h"
#include "base/Files.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kManifestBytesLimit = 256U << 20U;

Manifest parsedFile(const std::string& path, Findings& findings) {
    const boost::filesystem::path file(path);
    const std::string directory = file.parent_path().string();
    return parseManifest(base::readBounded(path, kManifestBytesLimit, base::Links::follow),
                         directory.empty() ? "." : directory, file.filename().string(), findings);
}

void append(Findings& findings, const Findings& more) {
    findings.insert(findings.end(), more.begin(), more.end());
}

std::set<std::string> publishedFiles(const PublishState& state) {
    std::set<std::string> digests;
    for (const auto& [patchId, patch] : state.patches)
        digests.insert(patch.source);
    return digests;
}

template <class Items>
void keepOnly(Items& items, const std::string& identifier) {
    const auto other = [&](const auto& item) { return item.identifier != identifier; };
    items.erase(std::remove_if(items.begin(), items.end(), other), items.end());
}

}  // namespace

Manifest readManifest(const std::string& path, const ManifestUse& use) {
    const std::string& identifier = use.identifier;
    Findings findings;
    Manifest manifest;
    try {
        manifest = parsedFile(path, findings);
    } catch (const std::exception& e) {
        throw UsageError(std::string(e.what()) + "; name the manifest to publish");
    }
    if (!identifier.empty()) {
        keepOnly(manifest.entries, identifier);
        keepOnly(manifest.patches, identifier);
    }
    append(findings, manifestFindings(manifest));
    append(findings, sourceFindings(manifest, publishedFiles(use.published)));
    append(findings, changedFileFindings(manifest, use.published));
    std::cerr << findingsText(findings);
    if (anyError(findings)) throw UsageError("nothing was published: fix the errors above");
    if (use.strict && !findings.empty())
        throw UsageError("nothing was published: --strict refuses the warnings above");
    if (!identifier.empty() && manifest.entries.empty()) {
        throw UsageError(path + " has no entry for " + identifier + "; name one of its entries");
    }
    return manifest;
}

std::optional<std::set<std::string>> manifestIdentifiers(const std::string& path) {
    Findings findings;
    try {
        const Manifest manifest = parsedFile(path, findings);
        if (anyError(findings)) return std::nullopt;
        std::set<std::string> identifiers;
        for (const ContentEntry& entry : manifest.entries)
            identifiers.insert(entry.identifier);
        return identifiers;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace zelor::authoring

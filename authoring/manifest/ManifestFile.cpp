#include "authoring/manifest/ManifestFile.h"

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <iostream>

#include "agent/Files.h"
#include "authoring/UsageError.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t manifestBytesLimit = 256U << 20U;

Manifest parsedFile(const std::string& path, Findings& findings) {
    const boost::filesystem::path file(path);
    const std::string folder = file.parent_path().string();
    return parseManifest(agent::readBounded(path, manifestBytesLimit, agent::Links::follow),
                         folder.empty() ? "." : folder, file.filename().string(), findings);
}

template <class Items>
void keepOnly(Items& items, const std::string& identifier) {
    const auto other = [&](const auto& item) { return item.identifier != identifier; };
    items.erase(std::remove_if(items.begin(), items.end(), other), items.end());
}

}  // namespace

Manifest readManifest(const std::string& path, const std::string& identifier) {
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
    // A field that could not be read would only make further, misleading findings.
    if (!anyError(findings)) findings = manifestFindings(manifest);
    std::cerr << findingsText(findings);
    if (anyError(findings)) throw UsageError("nothing was published: mend the errors above");
    if (!identifier.empty() && manifest.entries.empty()) {
        throw UsageError(path + " has no entry for " + identifier + "; name one that it has");
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

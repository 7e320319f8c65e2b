#include "authoring/checks/LeftoverCheck.h"

#include <boost/filesystem.hpp>
#include <map>
#include <optional>

#include "authoring/UsageError.h"
#include "authoring/manifest/ManifestFile.h"
#include "authoring/publish/PublishState.h"
#include "base/Strings.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

std::set<std::string> namesIn(const std::string& folder) {
    std::set<std::string> names;
    boost::system::error_code none;
    for (fs::directory_iterator it(folder, none), end; it != end; ++it) {
        const std::string name = it->path().filename().string();
        if (name[0] != '.') names.insert(name);
    }
    return names;
}

std::set<std::string> retiredStems(const std::string& repository) {
    std::set<std::string> stems;
    for (const auto& [patchId, patch] : readPublishState(publishStateFile(repository)).patches) {
        const auto name = remediation::splitAtLastDot(patchId);
        if (name && patch.unnamedSince != 0) stems.insert(name->stem);
    }
    return stems;
}

Findings contentLeftovers(const std::string& repository) {
    Findings findings;
    const std::set<std::string> names = namesIn(repository + "/content");
    for (const std::string& name : names) {
        if (base::hasEnding(name, ".xml")) continue;
        const bool signature = base::hasEnding(name, ".xml.sig");
        if (signature && names.count(name.substr(0, name.size() - 4)) != 0) continue;
        findings.push_back({Severity::warning, "content/" + name,
                            signature ? "it is the signature of content that is not there"
                                      : "it is neither content nor a signature, and no agent asks for it",
                            signature ? "remove it, or publish the entry again" : "remove it"});
    }
    return findings;
}

Findings patchLeftovers(const std::string& repository, const std::set<std::string>& stems) {
    Findings findings;
    const std::set<std::string> names = namesIn(repository + "/patches"), retired = retiredStems(repository);
    for (const std::string& name : names) {
        const auto split = remediation::splitAtLastDot(name);
        const std::string stem = split ? split->stem : name, extension = split ? split->extension : "";
        const auto warn = [&](const std::string& what, const std::string& remedy) {
            findings.push_back({Severity::warning, "patches/" + name, what, remedy});
        };
        if (extension != ".zip" && extension != ".sig") {
            warn("it is neither an archive nor a signature, and no agent asks for it", "remove it");
        } else if (stems.count(base::lowerCased(stem)) != 0 || retired.count(stem) != 0) {
            continue;
        } else if (extension == ".zip") {
            warn("no content names it, so no agent asks for it",
                 "remove it and its signature, or publish the entry that needs it");
        } else if (names.count(stem + ".zip") == 0) {
            warn("it is the signature of an archive that is not there", "remove it");
        }
    }
    return findings;
}

}  // namespace

Findings leftoverFindings(const std::string& repository, const std::set<std::string>* stems) {
    Findings findings = contentLeftovers(repository);
    if (stems == nullptr) return findings;
    for (Finding& finding : patchLeftovers(repository, *stems))
        findings.push_back(std::move(finding));
    return findings;
}

Findings withdrawnFindings(const std::string& repository, const std::set<std::string>& identifiers,
                           const std::vector<std::string>& manifests) {
    using Names = std::optional<std::set<std::string>>;
    std::set<std::string> given;
    for (const std::string& manifest : manifests) {
        const Names names = manifestIdentifiers(manifest);
        if (!names) throw UsageError(manifest + " cannot be read as a manifest; mend it, or name another");
        given.insert(names->begin(), names->end());
    }
    const PublishState state = readPublishState(publishStateFile(repository));
    std::map<std::string, Names> byManifest;
    const auto namedBy = [&](const std::string& manifest) -> const Names& {
        const auto known = byManifest.find(manifest);
        return known != byManifest.end() ? known->second
                                         : byManifest[manifest] = manifestIdentifiers(manifest);
    };
    Findings findings;
    for (const std::string& identifier : identifiers) {
        std::string from = "the manifests given";
        if (manifests.empty()) {
            const auto owner = state.entries.find(identifier);
            if (owner == state.entries.end()) continue;
            from = owner->second;
            const Names& names = namedBy(from);
            if (!names || names->count(identifier) != 0) continue;
        } else if (given.count(identifier) != 0) {
            continue;
        }
        findings.push_back({Severity::warning, "content/" + identifier + ".xml",
                            "it is still published, but no longer in " + from,
                            manifests.empty() ? "publish that manifest again, which withdraws it"
                                              : "publish the manifest that had it again, or with --only the "
                                                "only manifest that counts"});
    }
    return findings;
}

}  // namespace zelor::authoring

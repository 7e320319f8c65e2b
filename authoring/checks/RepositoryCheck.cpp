#include "authoring/checks/RepositoryCheck.h"

#include <boost/filesystem.hpp>
#include <ctime>
#include <map>
#include <optional>
#include <set>

#include "agent/content/ContentDocument.h"
#include "agent/trust/Signature.h"
#include "authoring/UsageError.h"
#include "authoring/checks/ContentChecks.h"
#include "authoring/checks/PatchCheck.h"
#include "authoring/manifest/ManifestFile.h"
#include "authoring/metadata/MetadataCheck.h"
#include "authoring/metadata/MetadataDirectory.h"
#include "authoring/publish/ContentXml.h"
#include "authoring/publish/PublishState.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

std::set<std::string> namesIn(const std::string& directory) {
    std::set<std::string> names;
    boost::system::error_code none;
    for (fs::directory_iterator it(directory, none), end; it != end; ++it) {
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
                            signature ? "it is the signature of missing content"
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
            warn("it is the signature of a missing archive", "remove it");
        }
    }
    return findings;
}

/// Findings on files in patches/ that no content names, and on signatures without a file. `stems`: the
/// archives that content names, in lower case; without them archives are not checked. An archive that publish
/// has retired is not a finding: a later publication removes it.
Findings leftoverFindings(const std::string& repository, const std::set<std::string>* stems) {
    Findings findings = contentLeftovers(repository);
    if (stems == nullptr) return findings;
    for (Finding& finding : patchLeftovers(repository, *stems))
        findings.push_back(std::move(finding));
    return findings;
}

/// Findings on published identifiers that are no longer in any of `manifests` or, without manifests, in the
/// one that published them, if it can be read.
Findings withdrawnFindings(const std::string& repository, const std::set<std::string>& identifiers,
                           const std::vector<std::string>& manifests) {
    using Names = std::optional<std::set<std::string>>;
    std::set<std::string> given;
    for (const std::string& manifest : manifests) {
        const Names names = manifestIdentifiers(manifest);
        if (!names) throw UsageError(manifest + " cannot be read as a manifest; correct it, or name another");
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
                                              : "publish the manifest that had it again, or publish the only "
                                                "current manifest with --only"});
    }
    return findings;
}

namespace fs = boost::filesystem;

constexpr std::size_t kXmlSuffix = 4;

std::set<std::string> contentFiles(const std::string& repository) {
    std::set<std::string> names;
    boost::system::error_code error;
    fs::directory_iterator it(repository + "/content", error);
    if (error) {
        throw UsageError(repository + " has no content directory: " + error.message() +
                         "; name the directory that zelor-content publish wrote");
    }
    for (const fs::directory_iterator end; it != end; ++it) {
        const std::string name = it->path().filename().string();
        if (base::hasEnding(name, ".xml") && name[0] != '.' && !isNamedByDigest(name)) names.insert(name);
    }
    return names;
}

/// An unusable key would make every signature a finding.
void requireKey(const std::string& keyFile) {
    const agent::SignatureVerdict verdict = agent::verifyBytes("", "x", keyFile);
    if (base::contains(verdict.reason, "does not match")) return;
    throw UsageError(verdict.reason + "; name the public key, repository.pem of zelor-content keygen");
}

ContentEntry readEntry(const std::string& repository, const std::string& name, const std::string& keyFile,
                       Findings& findings) {
    const std::string place = "content/" + name, path = repository + '/' + place;
    const auto error = [&](const std::string& what, const std::string& remedy) {
        findings.push_back({Severity::error, place, what, remedy});
    };
    const agent::SignatureVerdict verdict = agent::verifyPath(path, path + ".sig", keyFile);
    if (!verdict.good) {
        error("it fails its signature check: " + verdict.reason,
              "find out who changed it; if it is right, remove it and publish the entry again");
    }
    std::string xml;
    try {
        xml = base::readBounded(path, agent::kContentBytesLimit + 1);
    } catch (const std::exception& e) {
        error(e.what(), "remove it and publish the entry again");
        return {};
    }
    ContentEntry entry = readContentXml(xml, place, name.substr(0, name.size() - kXmlSuffix), findings);
    if (entry.place.empty()) return entry;
    for (Finding& finding : entryFindings(entry))
        findings.push_back(std::move(finding));
    return entry;
}

using UsesByPatch = std::map<std::string, std::vector<PatchUse>>;

UsesByPatch usesByPatch(const std::vector<ContentEntry>& entries) {
    UsesByPatch uses;
    const auto use = [&](const ContentEntry& entry, const ContentEri& eri, bool check) {
        // An unusable file name is a finding already, and must not become a path here.
        if (!remediation::splitAtLastDot(eri.patchId) || !remediation::checkFileName(eri.patchId)) return;
        uses[eri.patchId].push_back(
            {placeOf(entry, eri), eri, check || remediation::isConfiguration(entry.identifier), check});
    };
    for (const ContentEntry& entry : entries) {
        for (const ContentCre& cre : entry.cres) {
            for (const ContentEri& eri : cre.eris) {
                use(entry, eri, false);
                if (!eri.check || eri.check->script.empty()) continue;
                ContentEri check = eri;
                check.patchId = eri.check->script;
                check.file = eri.check->file;
                check.archive = eri.check->archive;
                use(entry, check, true);
            }
        }
    }
    return uses;
}

std::set<std::string> stemsOf(const std::set<std::string>& patchIds) {
    std::set<std::string> stems;
    for (const std::string& patchId : patchIds)
        stems.insert(base::lowerCased(remediation::splitAtLastDot(patchId)->stem));
    return stems;
}

void checkStems(const UsesByPatch& uses, Findings& findings) {
    std::map<std::string, std::string> stems;
    for (const auto& [patchId, places] : uses) {
        const std::string stem = remediation::splitAtLastDot(patchId)->stem;
        const auto [other, first] = stems.emplace(base::lowerCased(stem), patchId);
        if (first) continue;
        findings.push_back(
            {Severity::error, places.front().place,
             "patch \"" + patchId + "\" shares the archive " + stem + ".zip with \"" + other->second + "\"",
             "rename one of the two before its extension"});
    }
}

}  // namespace

CheckReport checkRepository(const std::string& repository, const std::string& keyFile,
                            const std::vector<std::string>& manifests) {
    requireKey(keyFile);
    CheckReport report;
    std::vector<ContentEntry> entries;
    std::set<std::string> identifiers;
    for (const std::string& name : contentFiles(repository)) {
        ++report.entries;
        identifiers.insert(name.substr(0, name.size() - kXmlSuffix));
        ContentEntry entry = readEntry(repository, name, keyFile, report.findings);
        if (!entry.place.empty()) entries.push_back(std::move(entry));
    }
    const auto append = [&](Findings findings) {
        for (Finding& finding : findings)
            report.findings.push_back(std::move(finding));
    };
    append(repetitionFindings(entries));
    const UsesByPatch uses = usesByPatch(entries);
    checkStems(uses, report.findings);
    std::set<std::string> patchIds, buffered;
    ScriptQueue scripts;
    for (const auto& [patchId, places] : uses) {
        patchIds.insert(patchId);
        if (!places.front().check) buffered.insert(patchId);
        append(patchFindings(repository, keyFile, patchId, places, scripts));
        if (scripts.isFull()) append(scripts.parse());
    }
    append(scripts.parse());
    report.patches = patchIds.size();
    append(containmentFindings(buffered));
    const std::set<std::string> stems = stemsOf(patchIds);
    // The archives that unreadable content names are unknown.
    append(leftoverFindings(repository, entries.size() == report.entries ? &stems : nullptr));
    append(withdrawnFindings(repository, identifiers, manifests));
    append(metadataFindings(repository, std::time(nullptr)));
    boost::system::error_code ignored;
    if (!fs::is_regular_file(repository + "/speed.bin", ignored)) {
        append({{Severity::warning, "speed.bin",
                 "it is missing, so patches are buffered at 1024 bytes per second",
                 "publish again, which makes one"}});
    }
    return report;
}

}  // namespace zelor::authoring

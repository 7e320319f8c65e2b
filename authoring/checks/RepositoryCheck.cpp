#include "authoring/checks/RepositoryCheck.h"

#include <boost/filesystem.hpp>
#include <map>
#include <set>

#include "agent/content/ContentDocument.h"
#include "agent/trust/Signature.h"
#include "authoring/UsageError.h"
#include "authoring/checks/ContentChecks.h"
#include "authoring/checks/LeftoverCheck.h"
#include "authoring/checks/NameChecks.h"
#include "authoring/checks/PatchCheck.h"
#include "authoring/publish/ContentXml.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t xmlSuffix = 4;

std::set<std::string> contentFiles(const std::string& repository) {
    std::set<std::string> names;
    boost::system::error_code error;
    fs::directory_iterator it(repository + "/content", error);
    if (error) {
        throw UsageError(repository + " holds no content folder: " + error.message() +
                         "; name the folder that zelor-content publish wrote");
    }
    for (const fs::directory_iterator end; it != end; ++it) {
        const std::string name = it->path().filename().string();
        if (base::hasEnding(name, ".xml") && name[0] != '.') names.insert(name);
    }
    return names;
}

/// A key that cannot be used at all would make every signature a finding.
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
        xml = base::readBounded(path, agent::contentBytesLimit + 1);
    } catch (const std::exception& e) {
        error(e.what(), "remove it and publish the entry again");
        return {};
    }
    ContentEntry entry = readContentXml(xml, place, name.substr(0, name.size() - xmlSuffix), findings);
    if (entry.place.empty()) return entry;
    for (Finding& finding : entryFindings(entry))
        findings.push_back(std::move(finding));
    return entry;
}

using UsesByPatch = std::map<std::string, std::vector<PatchUse>>;

UsesByPatch usesByPatch(const std::vector<ContentEntry>& entries) {
    UsesByPatch uses;
    for (const ContentEntry& entry : entries) {
        for (const ContentCre& cre : entry.cres) {
            for (const ContentEri& eri : cre.eris) {
                // What cannot be a file's name is a finding already, and must not become a path here either.
                if (!remediation::splitAtLastDot(eri.patchId) ||
                    !remediation::whyUnsafeFileName(eri.patchId).empty())
                    continue;
                uses[eri.patchId].push_back(
                    {placeOf(entry, eri), eri, remediation::isConfiguration(entry.identifier)});
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
        identifiers.insert(name.substr(0, name.size() - xmlSuffix));
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
    std::set<std::string> patchIds;
    for (const auto& [patchId, places] : uses) {
        patchIds.insert(patchId);
        append(patchFindings(repository, keyFile, patchId, places));
    }
    report.patches = patchIds.size();
    append(containmentFindings(patchIds));
    const std::set<std::string> stems = stemsOf(patchIds);
    // What a file that cannot be read would name is unknown.
    append(leftoverFindings(repository, entries.size() == report.entries ? &stems : nullptr));
    append(withdrawnFindings(repository, identifiers, manifests));
    boost::system::error_code ignored;
    if (!fs::is_regular_file(repository + "/speed.bin", ignored)) {
        append({{Severity::warning, "speed.bin",
                 "it is missing, so patches are buffered at 1024 bytes per second",
                 "publish again; that makes one"}});
    }
    return report;
}

}  // namespace zelor::authoring

#include <boost/filesystem/operations.hpp>
#include <map>

#include "agent/content/ContentDocument.h"
#include "authoring/checks/ContentChecks.h"
#include "authoring/checks/FileChecks.h"
#include "authoring/manifest/Manifest.h"
#include "authoring/manifest/SizeText.h"
#include "authoring/publish/ContentXml.h"
#include "base/Strings.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

void checkFile(const ManifestPatch& patch, Findings& findings) {
    if (patch.file.empty()) return;
    boost::system::error_code ignored;
    const fs::file_status status = fs::status(patch.file, ignored);
    const bool directory = status.type() == fs::directory_file;
    if (!directory && status.type() != fs::regular_file) {
        findings.push_back({Severity::error, patch.place,
                            "field \"file\": there is no file or directory " + patch.file,
                            "write its path relative to the manifest's directory"});
        return;
    }
    for (Finding& finding : kindFindings(patch.place, patch.patchId, isScript(patch), patch.file))
        findings.push_back(std::move(finding));
}

/// The agent's limits on content: number of elements, bytes, characters.
void checkContent(const ContentEntry& entry, Findings& findings) {
    try {
        agent::ContentDocument::parse(contentXml(entry), entry.identifier);
    } catch (const std::exception& e) {
        findings.push_back({Severity::error, entry.place,
                            std::string("agents could not use its content: ") + e.what(),
                            "correct the manifest"});
    }
}

/// Agents must read sizes given by hand as they look. An error here, since publish can compute them.
void checkSize(const ManifestPatch& patch, Findings& findings) {
    if (patch.size.empty() || whySizeMisleads(patch.size).empty()) return;
    findings.push_back({Severity::error, patch.place,
                        "field \"size\": \"" + patch.size + "\" " + whySizeMisleads(patch.size),
                        "leave it out; publish computes it"});
}

/// Archives are named only by the stem of the patch and share a directory; some file systems ignore case.
void checkCollisions(const std::vector<ManifestPatch>& patches, Findings& findings) {
    std::map<std::string, const ManifestPatch*> stems;
    for (const ManifestPatch& patch : patches) {
        const auto name = remediation::splitAtLastDot(patch.patchId);
        if (!name) continue;
        const auto [other, first] = stems.emplace(base::lowerCased(name->stem), &patch);
        if (first) continue;
        const ManifestPatch& same = *other->second;
        boost::system::error_code ignored;
        const bool oneFile = patch.file == same.file || fs::equivalent(patch.file, same.file, ignored);
        if (patch.patchId == same.patchId && oneFile && patch.omitArchive == same.omitArchive &&
            patch.check == same.check)
            continue;
        findings.push_back({Severity::error, patch.place,
                            "patch \"" + patch.patchId + "\" and \"" + same.patchId + "\" at " + same.place +
                                " would both use the archive " + name->stem + ".zip",
                            "rename one of them before its extension (patchId)"});
    }
}

}  // namespace

bool isScript(const ManifestPatch& patch) {
    return patch.check || remediation::isConfiguration(patch.identifier);
}

Findings manifestFindings(const Manifest& manifest) {
    Findings findings;
    const auto append = [&](Findings more) {
        findings.insert(findings.end(), std::make_move_iterator(more.begin()),
                        std::make_move_iterator(more.end()));
    };
    std::vector<ContentEntry> entries;
    for (const ContentEntry& entry : manifest.entries) {
        if (manifest.unread.count(entry.place) != 0) continue;
        Findings own = entryFindings(entry);
        if (!anyError(own)) checkContent(entry, own);
        append(std::move(own));
        entries.push_back(entry);
    }
    append(repetitionFindings(entries));
    for (const ManifestPatch& patch : manifest.patches) {
        checkFile(patch, findings);
        checkSize(patch, findings);
    }
    checkCollisions(manifest.patches, findings);
    std::set<std::string> patchIds;
    for (const ManifestPatch& patch : manifest.patches) {
        if (!patch.check) patchIds.insert(patch.patchId);  // checks are never buffered
    }
    append(containmentFindings(patchIds));
    return findings;
}

}  // namespace zelor::authoring

#include "authoring/checks/ChangedFileCheck.h"

#include <functional>

#include "authoring/checks/ContentChecks.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

/// Every ERI that has a file, with the file's SHA-256.
void forEachFile(
    const Manifest& manifest,
    const std::function<void(const ContentEntry&, const ContentEri&, const std::string& sha256)>& use) {
    std::map<std::string, std::string> files;
    for (const ManifestPatch& patch : manifest.patches)
        files[patch.patchId] = base::hexadecimal(patch.digests.sha256);
    for (const ContentEntry& entry : manifest.entries) {
        for (const ContentCre& cre : entry.cres) {
            for (const ContentEri& eri : cre.eris) {
                const auto file = files.find(eri.patchId);
                if (file != files.end() && !file->second.empty()) use(entry, eri, file->second);
            }
        }
    }
}

}  // namespace

Findings changedFileFindings(const Manifest& manifest, const PublishState& published) {
    Findings findings;
    forEachFile(manifest, [&](const ContentEntry& entry, const ContentEri& eri, const std::string& sha256) {
        const auto before = published.eris.find(eri.id);
        if (before == published.eris.end() || before->second == sha256) return;
        findings.push_back({Severity::warning, placeOf(entry, eri),
                            "same ERI id, other file: machines that have it keep the old one",
                            "give it a new id"});
    });
    return findings;
}

void noteFiles(const Manifest& manifest, PublishState& state) {
    forEachFile(manifest, [&](const ContentEntry&, const ContentEri& eri, const std::string& sha256) {
        state.eris[eri.id] = sha256;
    });
}

}  // namespace zelor::authoring

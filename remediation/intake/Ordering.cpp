#include <algorithm>
#include <iterator>
#include <utility>

#include "base/Strings.h"
#include "platform/Log.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"

namespace zlog = zelor::log;

namespace {

bool installsUnattended(const parsedEriData& block) {
    const bool windowsInstaller = zelor::base::contains(RecordAccess::patchId(block), ".exe");
    return !(windowsInstaller ? RecordAccess::silentModeCmd(block) : RecordAccess::operationImpact(block))
                .empty();
}

bool silentModeSupported(const remediateMetadata& row) {
    if (!RecordAccess::creEriDataPresent(row)) return false;
    const std::vector<parsedEriData>& blocks = RecordAccess::blocks(RecordAccess::creEriData(row));
    if (std::all_of(blocks.begin(), blocks.end(), installsUnattended)) return true;
    zlog::debug(
        " [Remediation Manager] (checkIfSilentModeSupported) The silent mode is not supported for cpe (key) "
        "= '",
        RecordAccess::combinedCpes(row), "'. CVE = '", RecordAccess::cveOrCceId(row), "'");
    return false;
}

}  // namespace

bool RemediationManager::checkIfSilentModeSupported(remediateMetadata request) {
    return silentModeSupported(request);
}

void RemediationManager::reArrangeRemMetadata() {
    std::vector<bool> unattended;
    unattended.reserve(remMetadataForCVE.size());
    for (const remediateMetadata& row : remMetadataForCVE) {
        if (cancelAllRem) return;
        unattended.push_back(RecordAccess::osRemediation(row) || silentModeSupported(row));
    }
    std::vector<remediateMetadata> ordered;
    ordered.reserve(remMetadataForCVE.size());
    for (const bool group : {true, false}) {
        for (std::size_t i = 0; i < remMetadataForCVE.size(); ++i) {
            if (unattended[i] == group) ordered.push_back(std::move(remMetadataForCVE[i]));
        }
    }
    remMetadataForCVE = std::move(ordered);
}

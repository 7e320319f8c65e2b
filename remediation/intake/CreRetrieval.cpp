#include <algorithm>
#include <utility>

#include "base/Strings.h"
#include "collaborators/CreCacher.h"
#include "platform/Log.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunParts.h"
#include "remediation/intake/ContentRules.h"

namespace zlog = zelor::log;

namespace {

bool countsForCollectiveResult(const remediateMetadata& row) {
    return RecordAccess::creEriDataPresent(row) && !RecordAccess::osRemediation(row);
}

}  // namespace

void RemediationManager::getAndParseCreEriForSupersedesTrue(std::vector<remediateMetadata>& rows) {
    if (!rows.empty()) zlog::debug(" [Remediation Manager] Inside getAndParseCreEriForSupersedesTrue .. ");
    const bool patches = &rows == &remMetadataForCVE;
    for (remediateMetadata& row : rows) {
        setAbortedRemStatusToAborted();
        if (parts->cancellation.stopsRun()) return;
        const std::string& key = RecordAccess::combinedCpes(row);
        if (parts->cancellation.isCancelled(key)) {
            insertRemProgressInMap(key, REM_ABORTED);
            continue;
        }
        const bool counted = patches && countsForCollectiveResult(row);
        retrieveContent(row);
        const bool counts = patches && countsForCollectiveResult(row);
        if (counts && !counted) parts->progress.addRemediation(row);
        if (counted && !counts) parts->progress.removeRemediation(row);
        if (!RecordAccess::creEriDataPresent(row)) {
            insertRemProgressInMap(key, REM_CRE_FAILED);
            allRemFailed = true;
        }
        setAbortedRemStatusToAborted();
    }
}

void RemediationManager::retrieveContent(remediateMetadata& row) {
    parts->progress.record(RecordAccess::combinedCpes(row), REM_QUEUED);
    parts->events.started(RecordAccess::combinedCpes(row));
    zelor::CallReport report;
    const std::string platform = row.getPlatformCpe();
    const std::string product = row.getProductCpe();
    parseOnlyMetadata metadata = CreCacher::GetInstance(installPath, systemPlatformCpe)
                                     ->getCre(platform, product, row.getCveOrCceId());
    creEriParsedData& entry = RecordAccess::creEriData(metadata);
    const std::vector<parsedEriData>& blocks = RecordAccess::blocks(entry);
    zlog::debug(" [Remediation Manager] (getAndParseCreEriForSupersedesTrue) For platformCpe = '", platform,
                "' and productCpe = '", product, "'; pEriDataV.size = ", blocks.size());
    const bool present = !metadata.getParsingFailed();
    row.setCreEriDataPresent(present);
    if (!present) {
        parts->events.failed(RecordAccess::combinedCpes(row), report,
                             "the remediation content could not be obtained or parsed");
        return;
    }
    row.setOsRemediation(zelor::remediation::isOsRemediation(blocks));
    row.setcreEriData(std::move(entry));
}

bool RemediationManager::getOsRemediationFromCre(std::vector<parsedEriData> blocks) {
    return zelor::remediation::isOsRemediation(blocks);
}

bool RemediationManager::refContainsPatchId(std::string reference) {
    const std::vector<std::string> tokens = zelor::base::splitCompressed(reference, ' ');
    return std::any_of(tokens.begin(), tokens.end(), [](const std::string& token) {
        return !zelor::base::hasBeginning(token, "CVE-") && !zelor::base::hasBeginning(token, "CCE-");
    });
}

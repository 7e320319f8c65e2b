#include <algorithm>
#include <utility>

#include "base/Strings.h"
#include "collaborators/CacheStore.h"
#include "platform/Log.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunParts.h"
#include "remediation/intake/RequestParsing.h"

namespace zlog = zelor::log;

namespace {

// About as many rows as there will be: blanks before an identifier are not looked for here.
std::size_t countConfigurations(const std::map<std::string, std::string>& requests) {
    return static_cast<std::size_t>(std::count_if(requests.begin(), requests.end(), [](const auto& request) {
        return zelor::base::hasBeginning(request.second, "CCE-");
    }));
}

}  // namespace

void RemediationManager::parseCreEriForSupersedesTrue() {
    const std::set<std::string> specialCases = CacheStore::GetSplCaseCPEs();
    const Requests requests = takeUpRequests();
    {
        const boost::unique_lock<boost::mutex> lock(inputMapmutex);
        const std::size_t configurations = countConfigurations(*requests);
        remMetadataForCCE.reserve(remMetadataForCCE.size() + configurations);
        remMetadataForCVE.reserve(remMetadataForCVE.size() + requests->size() - configurations);
        for (const auto& [key, identifier] : *requests) {
            parts->events.took(key, identifier);
            parts->progress.record(key, REM_QUEUED);
            if (parts->cancellation.stopsRun()) return;
            parseRequest(key, identifier, specialCases);
        }
    }
    for (std::vector<remediateMetadata>* rows : {&remMetadataForCVE, &remMetadataForCCE}) {
        if (rows->empty()) continue;
        getAndParseCreEriForSupersedesTrue(*rows);
        if (parts->cancellation.stopsRun()) return;
    }
    zlog::debug(" <<< [Remediation Manager] (parseCreEriForSupersedesTrue) DONE!! ...");
}

void RemediationManager::parseRequest(const std::string& key, const std::string& identifier,
                                      const std::set<std::string>& specialCases) {
    if (parts->cancellation.isCancelled(key)) {
        insertRemProgressInMap(key, REM_ABORTED);
        return;
    }
    const std::string trimmedKey = trimString(key);
    if (trimmedKey.empty()) return;
    const std::string id = trimString(identifier);
    const bool configuration = zelor::remediation::isConfiguration(id);
    zelor::remediation::RequestKey request = zelor::remediation::parseRequestKey(trimmedKey, configuration);
    if (!configuration) {
        zlog::debug(" [Remediation Manager] (parseCreEriForSupersedesTrue) PackageName is   : ",
                    request.packageName);
    }
    zlog::debug(" [Remediation Manager] (parseCreEriForSupersedesTrue) Combined cpe is : ", key);
    zlog::debug(" [Remediation Manager] (parseCreEriForSupersedesTrue) CVE or CCE is   : ", id);
    const zelor::remediation::CpeCount count = zelor::remediation::cpeCount(request);
    if (count == zelor::remediation::CpeCount::none) {
        zlog::error(" [Remediation Manager] No CPEs given by UI for CVE/CCE :", id);
        parts->events.failed(key, "the request names no CPE");
        insertRemProgressInMap(key, REM_INVALID_REQUEST);
        return;
    }
    if (count == zelor::remediation::CpeCount::tooMany) {
        zlog::error(" [Remediation Manager] More than 2 CPEs given by UI for CVE/CCE :", id,
                    "and cpes are: ", trimmedKey);
        parts->events.failed(key, "the request names more than two CPEs");
        insertRemProgressInMap(key, REM_INVALID_REQUEST);
        return;
    }
    zelor::remediation::RequestTarget target =
        zelor::remediation::requestTarget(request.cpes, systemPlatformCpe, specialCases);
    remediateMetadata row;
    row.setCombinedCpes(key);
    row.setCveOrCceId(id);
    row.setPackageName(std::move(request.packageName));
    row.setPlatformCpe(std::move(target.platformCpe));
    row.setProductCpe(std::move(target.productCpe));
    (configuration ? remMetadataForCCE : remMetadataForCVE).push_back(std::move(row));
}

#include "remediation/intake/RequestIntake.h"

#include <algorithm>
#include <utility>

#include "base/Strings.h"
#include "collaborators/CacheStore.h"
#include "platform/Log.h"
#include "remediation/CallReport.h"
#include "remediation/RecordAccess.h"
#include "remediation/intake/ContentRules.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::remediation {

namespace {

// About as many rows as there will be: identifiers with leading blanks are not counted.
std::size_t countConfigurations(const std::map<std::string, std::string>& requests) {
    return static_cast<std::size_t>(std::count_if(requests.begin(), requests.end(), [](const auto& request) {
        return base::hasBeginning(request.second, "CCE-");
    }));
}

bool countsForCollectiveResult(const remediateMetadata& row) {
    return RecordAccess::creEriDataPresent(row) && !RecordAccess::osRemediation(row);
}

bool blockInstallsUnattended(const parsedEriData& block) {
    const bool windowsInstaller = base::contains(RecordAccess::patchId(block), ".exe");
    return !(windowsInstaller ? RecordAccess::silentModeCmd(block) : RecordAccess::operationImpact(block))
                .empty();
}

}  // namespace

RequestIntake::RequestIntake(RequestRows rows, const std::string& platformCpe, RequestStore& store,
                             RequestContent& content, RunFlags flags, Progress& progress,
                             Cancellation& cancellation, RunEvents& events)
    : rows_(rows),
      platformCpe_(platformCpe),
      store_(store),
      content_(content),
      flags_(flags),
      progress_(progress),
      cancellation_(cancellation),
      events_(events) {}

void RequestIntake::parseAll(Needs* needs) {
    const std::set<std::string> specialCases = CacheStore::GetSplCaseCPEs();
    const RequestStore::Requests requests = store_.takeUp();
    {
        const boost::unique_lock<boost::mutex> lock = store_.hold();
        const std::size_t configurations = countConfigurations(*requests);
        rows_.configurations.reserve(rows_.configurations.size() + configurations);
        rows_.patches.reserve(rows_.patches.size() + requests->size() - configurations);
        for (const auto& [key, identifier] : *requests) {
            events_.took(key, identifier);
            progress_.record(key, RemediationManager::REM_QUEUED);
            if (cancellation_.stopsRun()) return;
            parse(key, identifier, specialCases);
        }
    }
    if (needs != nullptr && needs->heard()) announce(*needs);
    for (std::vector<remediateMetadata>* rows : {&rows_.patches, &rows_.configurations}) {
        if (rows->empty()) continue;
        getContent(*rows);
        if (cancellation_.stopsRun()) return;
    }
    log::debug(" <<< [Remediation Manager] (parseCreEriForSupersedesTrue) DONE!! ...");
}

void RequestIntake::parse(const std::string& key, const std::string& identifier,
                          const std::set<std::string>& specialCases) {
    if (cancellation_.isCancelled(key)) {
        progress_.record(key, RemediationManager::REM_ABORTED);
        return;
    }
    const std::string trimmedKey = base::trimmed(key);
    if (trimmedKey.empty()) return;
    std::string id = base::trimmed(identifier);
    const bool configuration = isConfiguration(id);
    RequestKey request = parseRequestKey(trimmedKey, configuration);
    if (!configuration) {
        log::debug(" [Remediation Manager] (parseCreEriForSupersedesTrue) PackageName is   : ",
                   request.packageName);
    }
    log::debug(" [Remediation Manager] (parseCreEriForSupersedesTrue) Combined cpe is : ", key);
    log::debug(" [Remediation Manager] (parseCreEriForSupersedesTrue) CVE or CCE is   : ", id);
    const CpeCount count = cpeCount(request);
    if (count == CpeCount::none) {
        log::error(" [Remediation Manager] No CPEs given by UI for CVE/CCE :", id);
        events_.failed(key, whyUnusable(count));
        progress_.record(key, RemediationManager::REM_INVALID_REQUEST);
        return;
    }
    if (count == CpeCount::tooMany) {
        log::error(" [Remediation Manager] More than 2 CPEs given by UI for CVE/CCE :", id,
                   "and cpes are: ", trimmedKey);
        events_.failed(key, whyUnusable(count));
        progress_.record(key, RemediationManager::REM_INVALID_REQUEST);
        return;
    }
    RequestTarget target = requestTarget(std::move(request.cpes), platformCpe_, specialCases);
    remediateMetadata& row = (configuration ? rows_.configurations : rows_.patches).emplace_back();
    row.setCombinedCpes(key);
    row.setCveOrCceId(std::move(id));
    row.setPackageName(std::move(request.packageName));
    row.setPlatformCpe(std::move(target.platformCpe));
    row.setProductCpe(std::move(target.productCpe));
}

void RequestIntake::getContent(std::vector<remediateMetadata>& rows) {
    if (!rows.empty()) log::debug(" [Remediation Manager] Inside getAndParseCreEriForSupersedesTrue .. ");
    const bool patches = &rows == &rows_.patches;
    const std::string* previous = nullptr;
    for (remediateMetadata& row : rows) {
        cancellation_.markCancelled();
        if (cancellation_.stopsRun()) return;
        const std::string& key = RecordAccess::combinedCpes(row);
        if (patches && previous != nullptr && *previous >= key) beginCounting();
        previous = &key;
        if (cancellation_.isCancelled(key)) {
            progress_.record(key, RemediationManager::REM_ABORTED);
            continue;
        }
        const bool counted = counting_ && patches && countsForCollectiveResult(row);
        const bool wasStopped = getContentUnlessCancelled(row);
        const bool counts = counting_ && patches && countsForCollectiveResult(row);
        if (counts && !counted) progress_.addRemediation(row);
        if (counted && !counts) progress_.removeRemediation(row);
        if (!RecordAccess::creEriDataPresent(row) && !wasStopped) {
            progress_.record(key, RemediationManager::REM_CRE_FAILED);
            flags_.allFailed = true;
        }
        cancellation_.markCancelled();
    }
}

// While keys ascend none comes twice, so that each needs one remediation, and nothing has to be kept for it.
void RequestIntake::beginCounting() {
    if (counting_) return;
    counting_ = true;
    for (const remediateMetadata& row : rows_.patches) {
        if (countsForCollectiveResult(row)) progress_.addRemediation(row);
    }
}

void RequestIntake::announce(Needs& needs) {
    std::vector<NeededContent> content;
    content.reserve(rows_.patches.size() + rows_.configurations.size());
    for (std::vector<remediateMetadata>* rows : {&rows_.patches, &rows_.configurations}) {
        for (remediateMetadata& row : *rows) {
            content.push_back({RecordAccess::combinedCpes(row), RecordAccess::platformCpe(row),
                               RecordAccess::productCpe(row), RecordAccess::cveOrCceId(row)});
        }
    }
    if (!content.empty()) needs.content(content);
}

// True when a cancel ended it, so that nothing is known of the content. A cancel may be withdrawn.
bool RequestIntake::getContentUnlessCancelled(remediateMetadata& row) {
    bool wasStopped = false;
    do {
        wasStopped = getContent(row);
    } while (wasStopped && !cancellation_.stopsRun() &&
             !cancellation_.stopsRequest(RecordAccess::combinedCpes(row)));
    return wasStopped;
}

// True when the cache ended early because it was asked to.
bool RequestIntake::getContent(remediateMetadata& row) {
    const std::string& key = RecordAccess::combinedCpes(row);
    progress_.record(key, RemediationManager::REM_QUEUED);
    events_.started(key);
    bool stopAsked = false;
    CallReport report({}, [&] { return stopAsked = cancellation_.stopsRequest(key); });
    const std::string& platform = RecordAccess::platformCpe(row);
    const std::string& product = RecordAccess::productCpe(row);
    parseOnlyMetadata metadata = content_.get(platform, product, RecordAccess::cveOrCceId(row));
    creEriParsedData& entry = RecordAccess::creEriData(metadata);
    const std::vector<parsedEriData>& blocks = RecordAccess::blocks(entry);
    log::debug(" [Remediation Manager] (getAndParseCreEriForSupersedesTrue) For platformCpe = '", platform,
               "' and productCpe = '", product, "'; pEriDataV.size = ", blocks.size());
    const bool present = !metadata.getParsingFailed();
    row.setCreEriDataPresent(present);
    if (!present) {
        if (!stopAsked) {
            events_.failed(key, report, "the remediation content could not be obtained or parsed");
        }
        return stopAsked;
    }
    row.setOsRemediation(isOsRemediation(blocks));
    RecordAccess::creEriData(row) = std::move(entry);
    return false;
}

bool RequestIntake::installsUnattended(const remediateMetadata& row) {
    if (!RecordAccess::creEriDataPresent(row)) return false;
    const std::vector<parsedEriData>& blocks = RecordAccess::blocks(RecordAccess::creEriData(row));
    if (std::all_of(blocks.begin(), blocks.end(), blockInstallsUnattended)) return true;
    log::debug(
        " [Remediation Manager] (checkIfSilentModeSupported) The silent mode is not supported for cpe (key) "
        "= '",
        RecordAccess::combinedCpes(row), "'. CVE = '", RecordAccess::cveOrCceId(row), "'");
    return false;
}

void RequestIntake::putUnattendedFirst() {
    std::vector<bool> unattended;
    unattended.reserve(rows_.patches.size());
    for (const remediateMetadata& row : rows_.patches) {
        if (cancellation_.all()) return;
        unattended.push_back(RecordAccess::osRemediation(row) || installsUnattended(row));
    }
    std::vector<remediateMetadata> ordered;
    ordered.reserve(rows_.patches.size());
    for (const bool group : {true, false}) {
        for (std::size_t i = 0; i < rows_.patches.size(); ++i) {
            if (unattended[i] == group) ordered.push_back(std::move(rows_.patches[i]));
        }
    }
    rows_.patches = std::move(ordered);
}

}  // namespace zelor::remediation

#include "remediation/apply/ConfigurationPhase.h"

#include <boost/filesystem/operations.hpp>

#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RecordAccess.h"
#include "remediation/apply/ContentWalk.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::remediation {

namespace {

/// Applies the content of one row.
class Configurator : public ContentActor {
  public:
    Configurator(const PhaseParts& parts, remediateMetadata& row)
        : parts_(parts), row_(row), key_(row.getCombinedCpes()) {}

    /// True when the walk ended because the whole run was cancelled.
    bool runCancelled() const { return runCancelled_; }

    bool isApplied() override { return parts_.applied.covers(RecordAccess::creEriData(row_)); }
    std::optional<FetchedFile> fetch(parsedEriData& block) override;
    int apply(parsedEriData& block, const std::string& path, const platform::InstallerKind* kind) override;
    void settle(const BlockResult& result) override;

  private:
    void refuse(RemediationManager::REM_PROGRESS state);
    void recordResult(const BlockResult& result);

    const PhaseParts& parts_;
    remediateMetadata& row_;
    const std::string key_;
    bool runCancelled_ = false;
};

std::optional<FetchedFile> Configurator::fetch(parsedEriData& block) {
    FetchedFile file;
    const Next next = parts_.source.fetchBlock(key_, block, file);
    runCancelled_ = next == Next::phaseEnd;
    if (runCancelled_) return std::nullopt;
    if (next == Next::aborted) {
        parts_.record(key_, RemediationManager::REM_ABORTED);
        return std::nullopt;
    }
    if (parts_.flags.internalError) {
        parts_.record(key_, RemediationManager::REM_INTERNAL_FAILED);
        return std::nullopt;
    }
    parts_.record(key_, RemediationManager::REM_INSTALLING);
    log::debug(" [Remediation Manager] (applyConfigs) The config file path:", file.path);
    boost::system::error_code error;
    if (file.path.empty() || !boost::filesystem::exists(file.path, error)) {
        log::error(" [Remediation Manager] (applyConfigs) The config file to harden the system '", file.path,
                   "' does not exist OR it failed the signature verification.");
        parts_.events.failed(key_, "the script could not be run");
        file.path.clear();
    }
    return file;
}

int Configurator::apply(parsedEriData& /*block*/, const std::string& path,
                        const platform::InstallerKind* /*kind*/) {
    CallReport report;
    const int code = MacPatchManager().applyConfig(path);
    if (code == kInstalled) {
        parts_.events.applied(key_, Applied::now, asksForReboot(RecordAccess::creEriData(row_)));
    } else {
        parts_.events.failed(key_, report, "the script could not be run");
    }
    return code;
}

void Configurator::settle(const BlockResult& result) {
    if (result.outcome == BlockOutcome::misnamed) {
        refuse(*result.state);
        return;
    }
    if (result.outcome == BlockOutcome::appliedBefore) {
        log::debug(
            "[Remediation Manager] (applyConfigs) verifyIfAlreadyAppliedRem returned true for a config. CCE "
            "is: ",
            row_.getCveOrCceId());
        parts_.events.applied(key_, Applied::before, false);
        parts_.succeed(key_);
    }
    if (result.outcome == BlockOutcome::attempted)
        parts_.applied.add(result.code, RecordAccess::eriId(*result.block));
    if (result.dropsBuffered) parts_.buffered.discard(RecordAccess::patchId(*result.block), result.file.path);
    if (result.state) recordResult(result);
}

void Configurator::refuse(RemediationManager::REM_PROGRESS state) {
    log::error("[Remediation Manager] (applyConfigs) Patch id is empty for cpe = '", key_, "' and CCE = '",
               row_.getCveOrCceId(), "'");
    log::debug("[Remediation Manager] (applyConfigs) Patch name is not a valid patch .. Marking FAILED.");
    parts_.events.failed(key_, "the content names no script");
    parts_.fail(key_, state);
}

void Configurator::recordResult(const BlockResult& result) {
    if (result.needsReboot) parts_.flags.rebootNeeded = true;
    const bool succeeded = *result.state == RemediationManager::REM_SUCCESS;
    if (succeeded) {
        parts_.succeed(key_);
        parts_.content.drop(row_);
    } else {
        parts_.fail(key_, *result.state);
    }
    log::info(" [Remediation Manager] The RESULT for Config apply for : CCE - ", row_.getCveOrCceId(),
              " is : ", succeeded ? "Succeeded" : "Failed");
}

}  // namespace

void ConfigurationPhase::apply(std::vector<remediateMetadata>& rows) {
    log::debug(" >>> [Remediation Manager] (applyConfigs) starting ...");
    for (remediateMetadata& row : rows) {
        parts_.cancellation.markCancelled();
        if (parts_.cancellation.stopsRun() || !applyRequest(row)) break;
    }
    log::debug(" <<< [Remediation Manager] (applyConfigs) DONE!! ...");
}

// False when the whole run was cancelled meanwhile.
bool ConfigurationPhase::applyRequest(remediateMetadata& row) {
    const std::string key = row.getCombinedCpes();
    if (parts_.cancellation.isCancelled(key)) {
        parts_.record(key, RemediationManager::REM_ABORTED);
        return true;
    }
    if (!RecordAccess::creEriDataPresent(row)) return true;
    log::debug(" [Remediation Manager] (applyConfigs) Applying configs for CCE: ", row.getCveOrCceId());
    Configurator configurator(parts_, row);
    walkConfiguration(RecordAccess::creEriData(row), configurator);
    return !configurator.runCancelled();
}

}  // namespace zelor::remediation

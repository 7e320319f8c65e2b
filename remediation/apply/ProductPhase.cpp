#include "remediation/apply/ProductPhase.h"

#include <boost/filesystem/operations.hpp>

#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RecordAccess.h"
#include "remediation/apply/ContentWalk.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::remediation {

namespace {

/// Installs the content of one row.
class ProductInstaller : public ContentActor {
  public:
    ProductInstaller(const PhaseParts& parts, remediateMetadata& row)
        : parts_(parts),
          row_(row),
          entry_(RecordAccess::creEriData(row)),
          key_(RecordAccess::combinedCpes(row)),
          installed_(entry_.getInstalledSuccessfully()) {}

    /// Why the walk ended.
    Next next() const { return next_; }
    /// What the content is to say; a cancelled request keeps what it had.
    bool installed() const { return installed_; }

    void begin(parsedEriData& block) override;
    bool isApplied() override { return parts_.applied.covers(entry_); }
    std::optional<FetchedFile> fetch(parsedEriData& block) override;
    int apply(parsedEriData& block, const std::string& path, const platform::InstallerKind* kind) override;
    void settle(const BlockResult& result) override;

  private:
    void prepare(parsedEriData& block, FetchedFile& file);
    void refuseNameless(RemediationManager::REM_PROGRESS state);
    void refuseMisnamed(const std::string& patchId, RemediationManager::REM_PROGRESS state);
    void reportUnattempted(const BlockResult& result);
    void recordResult(const BlockResult& result);

    const PhaseParts& parts_;
    remediateMetadata& row_;
    creEriParsedData& entry_;
    const std::string& key_;
    bool installed_;
    Next next_ = Next::proceed;
};

void ProductInstaller::begin(parsedEriData& /*block*/) {
    log::debug(" [Remediation Manager] (installNonOsPatches) Installing non-MS patch for CVE: ",
               RecordAccess::cve(entry_));
}

std::optional<FetchedFile> ProductInstaller::fetch(parsedEriData& block) {
    FetchedFile file;
    next_ = parts_.source.fetchBlock(key_, block, file);
    if (next_ != Next::proceed) return std::nullopt;
    if (parts_.flags.internalError) {
        parts_.record(key_, RemediationManager::REM_INTERNAL_FAILED);
        next_ = Next::phaseEnd;
        return std::nullopt;
    }
    prepare(block, file);
    return file;
}

// Takes away the path of a file that is not there.
void ProductInstaller::prepare(parsedEriData& block, FetchedFile& file) {
    // Third-party products install unattended whatever this setting says.
    ConfigurationManager::GetInstance("")->getThirdPartyProductInstallationType();
    parts_.record(key_, RemediationManager::REM_INSTALLING);
    boost::system::error_code error;
    if (file.path.empty() || !boost::filesystem::exists(file.path, error)) {
        parts_.events.failed(key_, "'" + RecordAccess::patchId(block) + "' is not there");
        log::error(" [Remediation Manager] The patch file '", file.path,
                   "' DOES NOT exist OR it failed signature verification.");
        file.path.clear();
        return;
    }
    log::debug(" [Remediation Manager] (installNonOsPatches) The patch file path: ", file.path);
    parts_.installer.setSilentModeOption(RecordAccess::silentModeCmd(block));
    parts_.installer.setInstallOption(usesBundleInstaller(block));
    log::debug(
        " [Remediation Manager] (installNonOsPatches) Installing in silent mode, third-party product patch "
        "= ",
        file.path);
}

int ProductInstaller::apply(parsedEriData& block, const std::string& path,
                            const platform::InstallerKind* kind) {
    CallReport report;
    const int code = parts_.installer.install3rdPartyPatch(path, row_.getPackageName(), kind->name);
    if (code == kInstalled && !report.warning().empty()) {
        parts_.events.warned(key_, report.warning());
    } else if (code == kInstalled) {
        parts_.events.applied(key_, Applied::now, report.restartAsked() || asksForReboot(entry_));
    } else {
        parts_.events.failed(key_, report, "'" + RecordAccess::patchId(block) + "' was not installed");
    }
    return code;
}

void ProductInstaller::settle(const BlockResult& result) {
    switch (result.outcome) {
        case BlockOutcome::passedOver:
            return;
        case BlockOutcome::nameless:
            refuseNameless(*result.state);
            return;
        case BlockOutcome::misnamed:
            refuseMisnamed(RecordAccess::patchId(*result.block), *result.state);
            return;
        case BlockOutcome::appliedBefore:
        case BlockOutcome::notInstallable:
            reportUnattempted(result);
            break;
        case BlockOutcome::unavailable:
        case BlockOutcome::attempted:
            break;
    }
    recordResult(result);
}

// A block without a usable patch name fails.
void ProductInstaller::refuseNameless(RemediationManager::REM_PROGRESS state) {
    log::error(
        " [Remediation Manager] (installNonOsPatches) No patchId (or empty patchId) present in CRE-ERI "
        "xml for cpe = "
        "'",
        key_, "' and CVE = '", row_.getCveOrCceId(), "'");
    parts_.events.failed(key_, "the content names no patch");
    parts_.fail(key_, state);
    entry_.setInstalledSuccessfully(installed_);
}

void ProductInstaller::refuseMisnamed(const std::string& patchId, RemediationManager::REM_PROGRESS state) {
    log::debug(
        "[Remediation Manager] (installNonOsPatches) Patch name is not a valid patch .. Marking FAILED.");
    parts_.events.failed(key_, "the content's patch name '" + patchId + "' has no extension");
    parts_.fail(key_, state);
}

void ProductInstaller::reportUnattempted(const BlockResult& result) {
    if (result.outcome == BlockOutcome::notInstallable) {
        parts_.events.failed(
            key_, "'" + RecordAccess::patchId(*result.block) + "' is no " + platform::installableText());
        return;
    }
    log::debug(
        "[Remediation Manager] (installNonOsPatches) verifyIfAlreadyAppliedRem returned true for non-MS "
        "patch CVE is: ",
        RecordAccess::cve(entry_));
    parts_.events.applied(key_, Applied::before, false);
    parts_.succeed(key_);
}

void ProductInstaller::recordResult(const BlockResult& result) {
    if (result.outcome == BlockOutcome::attempted)
        parts_.applied.add(result.code, RecordAccess::eriId(*result.block));
    if (result.needsReboot) parts_.flags.rebootNeeded = true;
    if (*result.state == RemediationManager::REM_SUCCESS) {
        installed_ = true;
        parts_.succeed(key_);
        if (result.dropsBuffered)
            parts_.buffered.discard(RecordAccess::patchId(*result.block), result.file.path);
        parts_.content.drop(row_);
    } else {
        if (result.outcome != BlockOutcome::unavailable) installed_ = false;
        parts_.fail(key_, *result.state);
    }
    log::info(" [Remediation Manager] (installNonOsPatches) The remediation result for cpe = ", key_,
              " is \"", installed_ ? "Succeeded" : "Failed", "\"");
}

}  // namespace

void ProductPhase::install(std::vector<remediateMetadata>& rows) {
    ConfigurationManager::GetInstance("")->getThirdPartyProductInstallationType();
    for (remediateMetadata& row : rows) {
        parts_.cancellation.markCancelled();
        if (parts_.cancellation.stopsRun()) {
            log::debug(
                "[Remediation Manager] (installNonOsPatches) Since all Remediations are canceled, returning "
                "... ");
            return;
        }
        if (installRequest(row) == Next::phaseEnd) return;
    }
}

Next ProductPhase::installRequest(remediateMetadata& row) {
    const std::string& key = RecordAccess::combinedCpes(row);
    if (parts_.cancellation.isCancelled(key)) {
        parts_.record(key, RemediationManager::REM_ABORTED);
        return Next::aborted;
    }
    if (!RecordAccess::creEriDataPresent(row)) {
        log::debug("[Remediation Manager] (installNonOsPatches) skipping entry for which parsing has failed");
        return Next::proceed;
    }
    if (RecordAccess::osRemediation(row)) {
        log::debug("[Remediation Manager] (installNonOsPatches) skipping OS entry ");
        return Next::proceed;
    }
    creEriParsedData& entry = RecordAccess::creEriData(row);
    log::debug(" [Remediation Manager] (installNonOsPatches) eriDataV.size = ",
               RecordAccess::blocks(entry).size());
    ProductInstaller installer(parts_, row);
    walkPatch(entry, installer);
    if (installer.next() == Next::phaseEnd) return Next::phaseEnd;
    parts_.cancellation.markCancelled();
    if (installer.next() == Next::aborted) {
        parts_.record(key, RemediationManager::REM_ABORTED);
        return Next::aborted;
    }
    entry.setInstalledSuccessfully(installer.installed());
    return Next::proceed;
}

}  // namespace zelor::remediation

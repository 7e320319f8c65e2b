#include "remediation/apply/ContentWalk.h"

#include "remediation/RecordAccess.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::remediation {

namespace {

enum class FileUse { script, patch };

RemediationManager::REM_PROGRESS stateOfCode(int code) {
    switch (code) {
        case kInstalled:
            return RemediationManager::REM_SUCCESS;
        case kInstallFailed:
            return RemediationManager::REM_FAILED;
        case kFileUnavailable:
            return RemediationManager::REM_FILE_UNAVAILABLE;
        default:
            return static_cast<RemediationManager::REM_PROGRESS>(code);
    }
}

std::optional<RemediationManager::REM_PROGRESS> stateOf(BlockOutcome outcome, int code) {
    switch (outcome) {
        case BlockOutcome::passedOver:
            return std::nullopt;
        case BlockOutcome::nameless:
            return RemediationManager::REM_FAILED;
        case BlockOutcome::misnamed:
            return RemediationManager::REM_INVALID_REQUEST;
        case BlockOutcome::appliedBefore:
        case BlockOutcome::unavailable:
        case BlockOutcome::notInstallable:
        case BlockOutcome::attempted:
            break;
    }
    return stateOfCode(code);
}

BlockResult resultOf(const creEriParsedData& entry, parsedEriData* block, BlockOutcome outcome,
                     int code = kInstalled) {
    BlockResult result;
    result.block = block;
    result.outcome = outcome;
    result.code = code;
    result.state = stateOf(outcome, code);
    result.needsReboot = result.state == RemediationManager::REM_SUCCESS && asksForReboot(entry);
    return result;
}

// Nothing when the walk ends here.
std::optional<BlockResult> fetchAndApply(const creEriParsedData& entry, parsedEriData& block, FileUse use,
                                         ContentActor& actor) {
    const std::optional<FetchedFile> file = actor.fetch(block);
    if (!file) return std::nullopt;
    const std::string& path = file->path;
    if (path.empty()) return resultOf(entry, &block, BlockOutcome::unavailable, kFileUnavailable);
    const platform::InstallerKind* kind = nullptr;
    if (use == FileUse::patch) {
        kind = platform::installerKindOf(path);
        if (kind == nullptr) return resultOf(entry, &block, BlockOutcome::notInstallable, kInstallFailed);
    }
    int code = actor.apply(block, path, kind);
    if (use == FileUse::script && code != kInstalled) code = kInstallFailed;
    BlockResult result = resultOf(entry, &block, BlockOutcome::attempted, code);
    result.file = *file;
    result.dropsBuffered = result.appliedNow() && file->usedBufferedCopy;
    return result;
}

// False when the walk ends here.
bool walkPatchBlock(creEriParsedData& entry, parsedEriData& block, ContentActor& actor) {
    if (!isForThisPlatform(block)) {
        actor.settle(resultOf(entry, &block, BlockOutcome::passedOver));
        return true;
    }
    actor.begin(block);
    const std::string& name = RecordAccess::patchId(block);
    if (name.empty()) {
        actor.settle(resultOf(entry, &block, BlockOutcome::nameless));
    } else if (actor.isApplied()) {
        actor.settle(resultOf(entry, &block, BlockOutcome::appliedBefore));
    } else if (!namesPatchFile(name)) {
        actor.settle(resultOf(entry, &block, BlockOutcome::misnamed));
    } else {
        const auto result = fetchAndApply(entry, block, FileUse::patch, actor);
        if (!result) return false;
        actor.settle(*result);
    }
    return true;
}

}  // namespace

RemediationManager::REM_PROGRESS stateOfUpdate(bool succeeded) {
    return stateOfCode(succeeded ? kInstalled : kInstallFailed);
}

void walkConfiguration(creEriParsedData& entry, ContentActor& actor) {
    if (actor.isApplied()) {
        actor.settle(resultOf(entry, nullptr, BlockOutcome::appliedBefore));
        return;
    }
    std::vector<parsedEriData>& blocks = RecordAccess::blocks(entry);
    if (blocks.empty()) actor.settle(resultOf(entry, nullptr, BlockOutcome::misnamed));
    for (parsedEriData& block : blocks) {
        if (!namesPatchFile(RecordAccess::patchId(block))) {
            actor.settle(resultOf(entry, &block, BlockOutcome::misnamed));
            return;
        }
        auto result = fetchAndApply(entry, block, FileUse::script, actor);
        if (!result) return;
        const bool decides = !result->appliedNow() || &block == &blocks.back();
        if (!decides) {
            result->state.reset();
            result->needsReboot = false;
        }
        actor.settle(*result);
        if (!result->appliedNow()) return;
    }
}

void walkPatch(creEriParsedData& entry, ContentActor& actor) {
    for (parsedEriData& block : RecordAccess::blocks(entry)) {
        if (!walkPatchBlock(entry, block, actor)) return;
    }
}

}  // namespace zelor::remediation

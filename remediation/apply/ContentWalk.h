#pragma once

#include <optional>
#include <string>

#include "platform/macos/InstallerKinds.h"
#include "remediation/RemediationManager.h"
#include "remediation/apply/PhaseParts.h"
#include "remediation/fetch/PatchSource.h"

/// The walk through the content of one request. A run walks to apply the content and a plan to foresee it:
/// what is decided on the way is decided only here.
namespace zelor::remediation {

/// What a block of content came to.
enum class BlockOutcome {
    passedOver,      ///< it is for another platform
    nameless,        ///< it names no patch
    misnamed,        ///< what it names cannot be a file
    appliedBefore,   ///< the content counts as applied
    unavailable,     ///< its file is missing or not trusted
    notInstallable,  ///< no installer takes its file
    attempted        ///< `code` says how it went
};

/// How one block of the content ended.
struct BlockResult {
    parsedEriData* block = nullptr;  ///< null when it is the result of the content as a whole
    BlockOutcome outcome = BlockOutcome::attempted;
    int code = kInstalled;  ///< by InstallResult.h
    FetchedFile file;
    /// What the request reads from now on; nothing when the block does not decide on it.
    std::optional<RemediationManager::REM_PROGRESS> state;
    bool needsReboot = false;    ///< from now on the run reports that a reboot is needed
    bool dropsBuffered = false;  ///< the buffered archive has served its purpose

    /// True when the block was applied now, so that its ERI is to be recorded.
    bool appliedNow() const { return outcome == BlockOutcome::attempted && code == kInstalled; }
};

/// What a walk asks for, in this order for each block. A run does these things, a plan foresees them.
class ContentActor {
  public:
    virtual ~ContentActor() = default;

    /// A block of a patch that is for this platform comes next.
    virtual void begin(parsedEriData& block) { (void)block; }
    /// Whether the content counts as applied. Asked once for a configuration, for a patch at each block that
    /// names one.
    virtual bool isApplied() = 0;
    /// Gets the block's file; its path is empty when the file is missing or not trusted. Nothing ends the
    /// walk.
    virtual std::optional<FetchedFile> fetch(parsedEriData& block) = 0;
    /// Runs the script at `path` when `kind` is null, else installs the patch. Its code by InstallResult.h.
    virtual int apply(parsedEriData& block, const std::string& path, const platform::InstallerKind* kind) = 0;
    virtual void settle(const BlockResult& result) = 0;
};

/// Walks through a configuration: the first block that does not succeed ends it and decides.
void walkConfiguration(creEriParsedData& entry, ContentActor& actor);
/// Walks through a patch of a product: every block is tried, and the last one decides.
void walkPatch(creEriParsedData& entry, ContentActor& actor);

/// The state in which an attempt at an OS update leaves its request.
RemediationManager::REM_PROGRESS stateOfUpdate(bool succeeded);

}  // namespace zelor::remediation

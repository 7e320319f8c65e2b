#include "remediation/apply/AppliedRemediations.h"

#include <fcntl.h>

#include <boost/filesystem/operations.hpp>

#include "base/Files.h"
#include "base/Strings.h"
#include "platform/Log.h"
#include "remediation/RecordAccess.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::remediation {

void AppliedRemediations::add(int result, const std::string& eriId) {
    if (result != 0) return;
    if (!isRecordable(eriId)) {
        log::error("[Remediation Manager] The eri id '", eriId,
                   "' holds a control character, so it is not recorded");
        return;
    }
    const base::Check added = record_.append(path_, eriId);
    // A missing directory is up to the installer and is not logged.
    if (!added && added.error().error != ENOENT) {
        log::error("[Remediation Manager] ", eriId, " is installed, and cannot be noted in ", path_, ": ",
                   added.error().text, "; the next run will install it again");
    }
    log::debug(
        "[Remediation Manager] Inside addEntryInInstalledPatchesFile: Added entry for successfully installed "
        "eri: ",
        eriId);
}

bool AppliedRemediations::covers(creEriParsedData& entry) {
    record_.refresh(path_);
    if (record_.empty()) return false;
    log::debug("[Remediation Manager] (verifyIfAlreadyAppliedRem) for creId = ", RecordAccess::creId(entry),
               " number of eris = ", RecordAccess::blocks(entry).size());
    return countsAsApplied(entry, [this](const std::string& eriId) { return record_.hasLine(eriId); });
}

void AppliedRemediations::reset() {
    boost::system::error_code error;
    if (!boost::filesystem::exists(path_, error)) return;
    const bool kept = !boost::filesystem::remove(path_, error) && error;
    // A record that cannot be removed is emptied: after a scan, what was installed before it must not count.
    const int emptied = kept ? O_TRUNC : 0;
    const bool opened =
        static_cast<bool>(base::openFile(path_, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | emptied));
    if (kept && !opened) {
        log::error(" [Remediation Manager] The installed-patches record ", path_,
                   " can be neither removed nor emptied: ", error.message(),
                   "; what it names is not applied again. Remove it.");
    }
    record_ = InstalledRecord();
}

}  // namespace zelor::remediation

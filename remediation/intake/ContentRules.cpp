#include "remediation/intake/ContentRules.h"

#include <algorithm>

#include "base/Strings.h"
#include "remediation/RecordAccess.h"

namespace zelor::remediation {

bool isOsRemediation(const std::vector<parsedEriData>& blocks) {
    return std::any_of(blocks.begin(), blocks.end(), [](const parsedEriData& block) {
        const std::string& product = RecordAccess::productCpe(block);
        return (base::hasBeginningInAnyCase(product, "cpe:/a:apple") ||
                base::hasBeginningInAnyCase(product, "cpe:/o:apple")) &&
               base::hasBeginningInAnyCase(RecordAccess::instructions(block), "os remediation");
    });
}

bool asksForReboot(const creEriParsedData& entry) {
    const std::vector<parsedEriData>& blocks = RecordAccess::blocks(entry);
    return std::any_of(blocks.begin(), blocks.end(),
                       [](const parsedEriData& block) { return RecordAccess::reboot(block); });
}

bool countsAsApplied(const creEriParsedData& entry,
                     const std::function<bool(const std::string& eriId)>& isRecorded) {
    const std::vector<std::string>& eriIds = RecordAccess::eriIds(entry);
    return std::any_of(eriIds.begin(), eriIds.end(), isRecorded);
}

bool isRecordable(const std::string& eriId) {
    return !base::hasControlCharacter(eriId);
}

bool namesPatchFile(const std::string& patchId) {
    return base::contains(patchId, ".");
}

bool isForThisPlatform(const parsedEriData& block) {
    return RecordAccess::mskbId(block).empty();
}

bool usesBundleInstaller(const parsedEriData& block) {
    return base::contains(base::lowerCased(RecordAccess::instructions(block)), "using install option");
}

bool installsVendorUpdates(const std::string& installationType) {
    return base::lowerCased(installationType) != "interactive";
}

}  // namespace zelor::remediation

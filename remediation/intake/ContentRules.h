#pragma once

#include <functional>
#include <string>
#include <vector>

#include "remediation/creEriParsedData.h"
#include "remediation/parsedEriData.h"

/// Decisions on remediation content that a run and a forecast of it share.
namespace zelor::remediation {

/// True when some block updates an Apple product through the operating system.
bool isOsRemediation(const std::vector<parsedEriData>& blocks);

/// True when some block asks for a reboot.
bool asksForReboot(const creEriParsedData& entry);

/// True when any one of the entry's ERIs is recorded as applied: the whole entry counts as applied then.
bool countsAsApplied(const creEriParsedData& entry,
                     const std::function<bool(const std::string& eriId)>& isRecorded);

/// False for an ERI id that the installed-patches record refuses: it is installed again by every run.
bool isRecordable(const std::string& eriId);

/// Whether the text can name a patch or script: it contains a ".".
bool namesPatchFile(const std::string& patchId);

/// False for a vendor's patch for another platform, which is skipped.
bool isForThisPlatform(const parsedEriData& block);

/// True when a bundle on a disk image is run with its own installer.
bool usesBundleInstaller(const parsedEriData& block);

/// False when the agent's setting `installationType` leaves the vendor's updates to the user.
bool installsVendorUpdates(const std::string& installationType);

}  // namespace zelor::remediation

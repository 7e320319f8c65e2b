#pragma once

#include <functional>
#include <string>
#include <vector>

#include "collaborators/AheadOfNeed.h"
#include "remediation/progress/Progress.h"

namespace zelor::remediation {

/// What is known before the phases begin. The functions log nothing.
struct ArchiveFacts {
    std::function<bool(const std::string& eriId)> isRecorded;  ///< in the installed-patches record
    std::function<bool(const std::string& patchName, const std::string& md5sum)> isBuffered;
    std::function<bool(const std::string& key)> isCancelled;
};

/// The archives that the phases will ask the downloader for, in their order, if every block succeeds.
std::vector<NeededArchive> neededArchives(const RequestRows& rows, const ArchiveFacts& facts);

}  // namespace zelor::remediation

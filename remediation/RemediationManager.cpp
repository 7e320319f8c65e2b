#include "remediation/RemediationManager.h"

#include <utility>

#include "base/SystemRoot.h"
#include "base/TrustedFolder.h"
#include "collaborators/Common.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/apply/InstalledRecord.h"
#include "remediation/buffer/BufferedList.h"
#include "remediation/progress/NearbyKey.h"
#include "remediation/progress/ProgressTable.h"
#include "remediation/progress/RunEvents.h"
#include "remediation/progress/SingleCancels.h"

namespace zlog = zelor::log;

namespace {

constexpr char kBufferedPatchesFileName[] = "bufferdPatchesList.txt";
constexpr char kInstalledPatchesFile[] = "/var/log/zelor/ZelorInstalledPatches.txt";

}  // namespace

boost::mutex RemediationManager::mutex;
boost::mutex RemediationManager::inputMapmutex;
boost::mutex RemediationManager::thread_mutex;
std::string RemediationManager::currentOsName;

RemediationManager::RemediationManager(std::string installPathArgument)
    : systemPlatformCpe(MacPatchManager::getSystemPlatformCpe()),
      installedPatchesFile(underSystemRoot(kInstalledPatchesFile)),
      installPath(Common::StripTrailingSeparators(installPathArgument)),
      ovalIdMap(std::make_shared<const std::map<std::string, std::string>>()),
      macPatchManager(std::make_unique<MacPatchManager>()),
      bufferedPatchesFileName(kBufferedPatchesFileName),
      progressTable(std::make_unique<zelor::remediation::ProgressTable>(remediationProgressMap)),
      cancelledKey(std::make_unique<zelor::remediation::NearbyKey<std::map<std::string, std::string>>>()),
      cancellableRequests(ovalIdMap),
      singleCancels(std::make_unique<zelor::remediation::SingleCancels>()),
      installedRecord(std::make_unique<zelor::remediation::InstalledRecord>()),
      bufferedList(std::make_unique<zelor::remediation::BufferedList>()),
      events(std::make_unique<zelor::remediation::RunEvents>()) {}

RemediationManager::~RemediationManager() {
    systemPlatformCpe = "";
    installedPatchesFile = "";
    installPath = "";
    contentDownloadDir = "";
    currentRemId = "";
    bufferedPatchesFileName = "";
    for (std::atomic<bool>* flag :
         {&rebootNeeded, &scanNeeded, &remDone, &allRemFailed, &anyRemSucceeded, &internalError,
          &firstRemediationAfterScan, &cancelAllRem, &downloadThreadDone}) {
        *flag = false;
    }
    macPatchManager.reset();
}

void RemediationManager::setovalIdMap(std::map<std::string, std::string> requests) {
    const auto replacement = std::make_shared<const std::map<std::string, std::string>>(std::move(requests));
    Requests replaced;  // freed after the lock
    const boost::unique_lock<boost::mutex> lock(inputMapmutex);
    replaced = std::exchange(ovalIdMap, replacement);
    if (!takenUpRequests) setCancellableRequests(ovalIdMap);
}

std::map<std::string, std::string> RemediationManager::getovalIdMap() {
    const boost::unique_lock<boost::mutex> lock(inputMapmutex);
    return *ovalIdMap;
}

void RemediationManager::setContentDownloadDir(std::string directory) {
    contentDownloadDir = std::move(directory);
}

std::string RemediationManager::getContentDownloadDir() {
    return contentDownloadDir;
}

void RemediationManager::setFirstRemediationAfterScan(bool first) {
    firstRemediationAfterScan = first;
}

void RemediationManager::setRunObserver(zelor::RunObserver* observer) {
    events->setObserver(observer);
}

bool RemediationManager::getRemDone() {
    return remDone;
}

bool RemediationManager::getRebootNeeded() {
    return rebootNeeded;
}

bool RemediationManager::getScanNeeded() {
    return scanNeeded;
}

bool RemediationManager::getAllRemFailed() {
    // In this order: a success between the two reads came after a moment in which all had failed.
    const bool failed = allRemFailed;
    if (!anyRemSucceeded) return failed;
    allRemFailed = false;
    return false;
}

std::string RemediationManager::getDefaultPlatformCpe() {
    return "";
}

std::string RemediationManager::getCurrentOsName() {
    return currentOsName;
}

void RemediationManager::queryAndStoreCurrentOsName() {
    zlog::debug("[Remediation Manager] Inside queryAndStoreCurrentOsName : currentOsName = ", currentOsName);
}

void RemediationManager::emptyTheContentDirectory() {
    const std::string problem = zelor::base::folderProblem(contentDownloadDir);
    if (!problem.empty()) {
        zlog::error(" [Remediation Manager] The content directory '", contentDownloadDir,
                    "' is not emptied: ", problem);
        return;
    }
    macPatchManager->emptyTheContentDirectory(contentDownloadDir);
}

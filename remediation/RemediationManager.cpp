#include "remediation/RemediationManager.h"

#include <utility>

#include "base/SystemRoot.h"
#include "collaborators/Common.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RunParts.h"
#include "remediation/buffer/BufferBudget.h"
#include "remediation/intake/ContentRules.h"
#include "remediation/intake/RequestParsing.h"

namespace zlog = zelor::log;
using zelor::remediation::FetchedFile;
using zelor::remediation::PatchSource;
using zelor::remediation::RequestRows;
using zelor::remediation::RunParts;

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
      parts(std::make_unique<RunParts>(
          RunParts::Inputs{{rebootNeeded, scanNeeded, allRemFailed, anyRemSucceeded, internalError},
                           {remMetadataForCVE, remMetadataForCCE},
                           {cancelAllRem, cancelRemMap, currentRemId, download_thread},
                           remediationProgressMap,
                           removedDuplicateEriMap,
                           collectiveResultMap,
                           mutex,
                           thread_mutex,
                           ovalIdMap,
                           inputMapmutex,
                           systemPlatformCpe,
                           installPath,
                           contentDownloadDir,
                           installedPatchesFile,
                           bufferedPatchesFileName,
                           remDone,
                           remediateOption,
                           firstRemediationAfterScan,
                           remediationThread,
                           downloadThreadDone,
                           *macPatchManager})) {}

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
    parts->requests.set(std::move(requests));
}

std::map<std::string, std::string> RemediationManager::getovalIdMap() {
    return parts->requests.copy();
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
    parts->events.setObserver(observer);
}

void RemediationManager::setAheadOfNeed(zelor::AheadOfNeed* receiver) {
    parts->needs.setReceiver(receiver);
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
    return parts->flags.everyOneFailed();
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
    parts->driver.emptyContentDirectory();
}

void RemediationManager::remediate(bool option) {
    parts->driver.start(option);
}

void RemediationManager::concertedRemediationStart() {
    parts->driver.run();
}

void RemediationManager::parseCreEriForSupersedesTrue() {
    parts->intake.parseAll();
}

void RemediationManager::getAndParseCreEriForSupersedesTrue(std::vector<remediateMetadata>& rows) {
    parts->intake.getContent(rows);
}

bool RemediationManager::getOsRemediationFromCre(std::vector<parsedEriData> blocks) {
    return zelor::remediation::isOsRemediation(blocks);
}

bool RemediationManager::refContainsPatchId(std::string reference) {
    return zelor::remediation::containsPatchId(reference);
}

void RemediationManager::reArrangeRemMetadata() {
    parts->intake.putUnattendedFirst();
}

bool RemediationManager::checkIfSilentModeSupported(remediateMetadata request) {
    return zelor::remediation::RequestIntake::installsUnattended(request);
}

void RemediationManager::applyConfigs() {
    parts->configurations.apply(remMetadataForCCE);
}

void RemediationManager::installPatches() {
    parts->driver.installPatches();
}

void RemediationManager::installOsPatches() {
    parts->osUpdates.install(remMetadataForCVE);
}

void RemediationManager::installNonOsPatches(std::string /*installPathCopy*/) {
    parts->products.install(remMetadataForCVE);
}

bool RemediationManager::getRebootStatus(creEriParsedData& creEri) {
    return zelor::remediation::asksForReboot(creEri);
}

std::map<std::string, unsigned long> RemediationManager::getRemediationProgressMap() {
    return parts->progress.copy();
}

void RemediationManager::setRemediationProgressMap(std::map<std::string, unsigned long> progress) {
    parts->progress.replace(std::move(progress));
}

void RemediationManager::insertRemProgressInMap(std::string key, REM_PROGRESS progress) {
    parts->progress.record(key, progress);
}

void RemediationManager::evaluateCollectiveResult(std::string key, REM_PROGRESS progress, bool* store,
                                                  REM_PROGRESS* result) {
    const auto collective = parts->progress.collectiveResult(key, progress);
    *store = collective.has_value();
    if (collective) *result = *collective;
}

void RemediationManager::setAllRemsStatusToFailed() {
    parts->progress.failAll({remMetadataForCVE, remMetadataForCCE});
}

void RemediationManager::setRemainingRemsStatusToFailed() {
    parts->progress.failRemaining({remMetadataForCVE, remMetadataForCCE});
}

void RemediationManager::setAllRemainingRemStatusToAborted() {
    parts->progress.abortRemaining({remMetadataForCVE, remMetadataForCCE});
}

void RemediationManager::setCancelAllRem(bool cancel) {
    parts->cancellation.setAll(cancel);
    if (cancel) parts->needs.cancelled();
}

void RemediationManager::setCancelRemMap(std::map<std::string, std::string> requests) {
    if (parts->needs.heard()) parts->needs.notNeeded(requests);
    parts->cancellation.setRequests(std::move(requests));
}

std::map<std::string, std::string> RemediationManager::getCancelRemMap() {
    return parts->cancellation.requests();
}

void RemediationManager::terminateKillableThreads() {
    parts->cancellation.interruptDownload();
}

void RemediationManager::setAbortedRemStatusToAborted() {
    parts->cancellation.markCancelled();
}

bool RemediationManager::thisRemIsAborted(std::string id) {
    return parts->cancellation.isCancelled(id);
}

std::string RemediationManager::getFileFromRepo(std::string fileName, std::string remKey,
                                                std::string bufferMatch, bool& usedBufferedCopy) {
    const FetchedFile file = parts->source.fetch(fileName, remKey, bufferMatch);
    usedBufferedCopy = file.usedBufferedCopy;
    return file.path;
}

int RemediationManager::downloadFileFromRepo(std::string stem, std::string& archivePath,
                                             std::string extension, bool rateLimited,
                                             unsigned long bytesPerSecond) {
    return parts->download.transfer(std::move(stem), archivePath, std::move(extension), rateLimited,
                                    bytesPerSecond);
}

int RemediationManager::verifySignature(std::string filePath, std::string extension) {
    return PatchSource::verify(filePath, extension);
}

bool RemediationManager::patchIsAlreadyBuffered(std::string patchName, std::string md5sum,
                                                std::string listPath) {
    return parts->buffered.has(patchName, md5sum, listPath);
}

void RemediationManager::addPatchBufferedEntry(std::string patchName, std::string md5sum,
                                               std::string listPath) {
    parts->buffered.add(patchName, md5sum, listPath);
}

void RemediationManager::removeEntryFromBufferedPatchesFile(std::string patchName) {
    parts->buffered.removeEntry(patchName);
}

void RemediationManager::cleanupBufferedPatch(std::string patchName, std::string patchFileDownloaded) {
    parts->buffered.discard(patchName, patchFileDownloaded);
}

void RemediationManager::addEntryInInstalledPatchesFile(int installResult, std::string eriId) {
    parts->applied.add(installResult, eriId);
}

bool RemediationManager::verifyIfAlreadyAppliedRem(creEriParsedData& creEri) {
    return parts->applied.covers(creEri);
}

void RemediationManager::bufferPatches(std::map<std::string, std::string> requests) {
    parts->buffering.run([&]() -> RequestRows {
        parts->requests.set(std::move(requests));
        parts->intake.parseAll();
        return {remMetadataForCVE, remMetadataForCCE};
    });
    parts->events.ended({rebootNeeded, scanNeeded, parts->flags.everyOneFailed()});
}

void RemediationManager::downloadPatchForBuffering(std::vector<remediateMetadata> requests) {
    parts->buffering.buffer(requests);
}

bool RemediationManager::downloadSizeExceedsAllotedSize(std::string patchSize) {
    return zelor::remediation::exceedsBudget(patchSize);
}

void RemediationManager::getFoldersize(std::string dir, long& size) {
    zelor::remediation::addDirectorySize(dir, size);
}

unsigned long RemediationManager::getBpsInPercentOfBandwidth() {
    return zelor::remediation::bufferingRate(installPath);
}

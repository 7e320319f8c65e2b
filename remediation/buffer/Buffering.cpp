#include <sys/stat.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <exception>
#include <set>
#include <utility>

#include "base/Strings.h"
#include "collaborators/ConfigurationManager.h"
#include "collaborators/DownloadManager.h"
#include "platform/Log.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunParts.h"
#include "remediation/buffer/BufferFolders.h"
#include "remediation/buffer/PatchSize.h"
#include "remediation/fetch/PatchName.h"

namespace zlog = zelor::log;
namespace fs = boost::filesystem;

namespace {

constexpr char kInterrupted[] =
    " [Remediation Manager] (downloadPatchForBuffering) The buffering was interrupted.";
constexpr int kHttpOk = 200;
constexpr unsigned long kFallbackRate = 1024;

void logSizeTrouble() {
    zlog::debug("[Remediation Manager] (getFoldersize) getting file size threw exception");
}

/// Directories by device and inode: one that links lead to as well counts once.
using SeenDirectories = std::set<std::pair<dev_t, ino_t>>;

void addFileSizes(const std::string& dir, SeenDirectories& seen, long& size) {
    try {
        for (const fs::directory_entry& entry : fs::directory_iterator(dir)) {
            struct stat info {};
            const bool known = ::stat(entry.path().c_str(), &info) == 0;
            if (known && S_ISDIR(info.st_mode)) {
                if (seen.emplace(info.st_dev, info.st_ino).second)
                    addFileSizes(entry.path().string(), seen, size);
            } else if (known && S_ISREG(info.st_mode)) {
                size += static_cast<long>(info.st_size);
            } else {
                logSizeTrouble();
            }
        }
    } catch (const std::exception&) {
        logSizeTrouble();
    }
}

}  // namespace

void RemediationManager::bufferPatches(std::map<std::string, std::string> requests) {
    zlog::debug("  >>> [Remediation Manager] Inside bufferPatches ...");
    try {
        setovalIdMap(std::move(requests));
        parseCreEriForSupersedesTrue();
        for (std::vector<remediateMetadata>* rows : {&remMetadataForCVE, &remMetadataForCCE}) {
            if (!rows->empty() && (bufferingIsCancelled() || !bufferRows(*rows))) break;
        }
    } catch (const boost::thread_interrupted&) {
        zlog::info(kInterrupted);
    } catch (const std::exception& problem) {
        zlog::error(" [Remediation Manager] Buffering ended with an unexpected error: ", problem.what());
    }
    parts->events.ended({rebootNeeded, scanNeeded, getAllRemFailed()});
}

bool RemediationManager::bufferingIsCancelled() {
    return cancelAllRem || boost::this_thread::interruption_requested();
}

void RemediationManager::downloadPatchForBuffering(std::vector<remediateMetadata> requests) {
    try {
        bufferRows(requests);
    } catch (const boost::thread_interrupted&) {
        zlog::info(kInterrupted);
    }
}

// False when the job is to end. A collaborator may throw boost::thread_interrupted.
bool RemediationManager::bufferRows(std::vector<remediateMetadata>& rows) {
    if (!zelor::remediation::bufferFoldersAreOurs()) return true;
    for (remediateMetadata& request : rows) {
        // The system's own updater fetches OS updates; they have no archive.
        if (!RecordAccess::creEriDataPresent(request) || RecordAccess::osRemediation(request)) continue;
        for (parsedEriData& block : RecordAccess::blocks(RecordAccess::creEriData(request))) {
            if (bufferingIsCancelled() || !bufferBlock(block)) return false;
        }
    }
    return true;
}

// False when the job is to end.
bool RemediationManager::bufferBlock(parsedEriData& block) {
    const std::string patchId = trimString(RecordAccess::patchId(block));
    const std::string md5sum = trimString(RecordAccess::md5sum(block));
    if (patchId == "empty") return true;
    const std::string unsafe =
        patchId.empty() ? "it is empty" : zelor::remediation::whyUnsafeFileName(patchId);
    if (!unsafe.empty()) {
        zlog::error("[Remediation Manager] (downloadPatchForBuffering) The patch name '", patchId,
                    "' is refused: ", unsafe);
        parts->events.buffered(patchId, zelor::BufferOutcome::skipped, "its name is refused: " + unsafe);
        return true;
    }
    if (patchIsAlreadyBuffered(patchId, md5sum, bufferedListPath())) {
        zlog::debug("[Remediation Manager] (downloadPatchForBuffering) patch \"", patchId,
                    "\" is already buffered and is latest.");
        parts->events.buffered(patchId, zelor::BufferOutcome::alreadyBuffered);
        return true;
    }
    const zelor::remediation::PatchName name = zelor::remediation::cutFourCharacters(patchId);
    std::string archivePath = ConfigurationManager::GetInstance("")->getBufferPatchesDir() +
                              fs::path::preferred_separator + name.stem + ".zip";
    if (downloadSizeExceedsAllotedSize(RecordAccess::patchSize(block))) {
        zlog::debug("[Remediation Manager] (downloadPatchForBuffering) Patch \"", patchId,
                    "\" buffering skipped as it is exceeding the alloted size for bufferedpatches dir");
        parts->events.buffered(patchId, zelor::BufferOutcome::tooLarge,
                               "it does not fit into what is left of the buffer's size");
        return true;
    }
    const unsigned long rate = getBpsInPercentOfBandwidth();
    zlog::debug("[Remediation Manager] (downloadPatchForBuffering) Patch '", patchId,
                "' will be buffered at ", rate, " bytes/second");
    if (bufferingIsCancelled()) return false;
    parts->events.beginDownload("", patchId);
    parts->events.buffered(patchId, zelor::BufferOutcome::downloading);
    if (downloadForBuffer(name, archivePath, rate) == 0) {
        zelor::CallReport report;
        addPatchBufferedEntry(patchId, md5sum, bufferedListPath());
        parts->events.buffered(
            patchId, report.reason().empty() ? zelor::BufferOutcome::buffered : zelor::BufferOutcome::skipped,
            report.reason());
    } else {
        const std::string why = parts->events.downloadProblem();
        parts->events.buffered(patchId, zelor::BufferOutcome::skipped,
                               why.empty() ? "the download was not finished; the next job resumes it" : why);
        zlog::debug("[Remediation Manager] (downloadPatchForBuffering) Dowdnload patch failed for patch = ",
                    patchId);
    }
    return !fetchCancelled && !parts->cancellation.downloadWasInterrupted();
}

// On the download thread, where a cancel reaches it; an interruption of the waiting thread is passed on.
int RemediationManager::downloadForBuffer(const zelor::remediation::PatchName& name, std::string& archivePath,
                                          unsigned long rate) {
    int result = -1;
    if (!startDownload(
            "", [&] { result = downloadFileFromRepo(name.stem, archivePath, name.extension, true, rate); })) {
        return -1;
    }
    try {
        boost::unique_lock<boost::mutex> lock(downloadEndMutex);
        downloadEnd.wait(lock, [this] { return downloadThreadDone.load(); });
    } catch (const boost::thread_interrupted&) {
        parts->cancellation.stopDownload();
    }
    awaitDownload();
    return result;
}

bool RemediationManager::downloadSizeExceedsAllotedSize(std::string patchSize) {
    ConfigurationManager* configuration = ConfigurationManager::GetInstance("");
    const std::string allotted = configuration->getBufferPatchesDirSize();
    long current = 0;
    getFoldersize(configuration->getBufferPatchesDir(), current);
    zlog::debug("[Remediation Manager] (downloadSizeExceedsAllotedSize) allotedSize in conf = ", allotted,
                ", currentBufferDirSize = ", current);
    const zelor::remediation::PatchSize size = zelor::remediation::parsePatchSize(patchSize);
    zlog::debug("[Remediation Manager] (downloadSizeExceedsAllotedSize) patchSizeNumber = ", size.number,
                ", sizeUnit = ", size.unit, ", currentPatchSize (in bytes) = ", size.bytes);
    return size.bytes > zelor::remediation::budgetBytes(allotted) - current;
}

void RemediationManager::getFoldersize(std::string dir, long& size) {
    SeenDirectories seen;
    struct stat info {};
    if (::stat(dir.c_str(), &info) == 0) seen.emplace(info.st_dev, info.st_ino);
    addFileSizes(dir, seen, size);
}

unsigned long RemediationManager::getBpsInPercentOfBandwidth() {
    int status = 0;
    const unsigned long speed = DownloadManager(installPath, false).GetDownloadSpeed(status);
    if (status != kHttpOk) return kFallbackRate;
    const std::string configured = ConfigurationManager::GetInstance("")->getBufferSpeedPercent();
    const int percent = zelor::base::leadingInt(configured);
    const unsigned long rate = zelor::remediation::shareOfBandwidth(speed, percent);
    zlog::debug("[Remediation Manager] (getBpsInPercentOfBandwidth) speedPercent = ", percent,
                ". speedPercentStr = ", configured, ". bytespersecond = ", rate);
    return rate;
}

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <exception>
#include <utility>
#include <vector>

#include "base/TrustedFolder.h"
#include "collaborators/ConfigurationManager.h"
#include "collaborators/FileSignVerifier.h"
#include "collaborators/RemediationResourceDownloader.h"
#include "collaborators/ZipUtils.h"
#include "platform/Log.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunParts.h"
#include "remediation/fetch/PatchName.h"

namespace zlog = zelor::log;
namespace fs = boost::filesystem;
using zelor::remediation::Cancellation;

namespace {

constexpr char kSeparator = fs::path::preferred_separator;

bool fileExists(const std::string& path) {
    boost::system::error_code error;
    return fs::exists(path, error);
}

void unpack(const std::string& archivePath, const std::string& directory) {
    std::vector<char> archive(archivePath.c_str(), archivePath.c_str() + archivePath.size() + 1);
    std::vector<char> destination(directory.c_str(), directory.c_str() + directory.size() + 1);
    std::make_unique<ZipUtils>()->Unzip(archive.data(), destination.data());
}

}  // namespace

std::string RemediationManager::getFileFromRepo(std::string fileName, std::string remKey,
                                                std::string bufferMatch, bool& usedBufferedCopy) {
    zlog::debug(" [Remediation Manager] Inside getFileFromRepo: File to download is : ", fileName);
    usedBufferedCopy = false;
    fetchCancelled = false;
    const auto name = zelor::remediation::splitAtLastDot(fileName);
    const std::string unsafe = name ? zelor::remediation::whyUnsafeFileName(fileName) : "it has no extension";
    if (!unsafe.empty()) {
        zlog::error(" [Remediation Manager] Inside getFileFromRepo: The file name '", fileName,
                    "' is refused: ", unsafe, ". ");
        parts->events.failed(remKey, "the file name '" + fileName + "' is refused: " + unsafe);
        return "";
    }
    const std::string problem = zelor::base::prepareFolder(contentDownloadDir);
    if (!problem.empty()) {
        zlog::error(" [Remediation Manager] Inside getFileFromRepo: The content directory '",
                    contentDownloadDir, "' is refused: ", problem);
        parts->events.failed(remKey,
                             "the content directory '" + contentDownloadDir + "' is refused: " + problem);
        return "";
    }
    std::string archivePath = contentDownloadDir + kSeparator + name->stem + ".zip";
    if (patchIsAlreadyBuffered(fileName, bufferMatch, bufferedListPath())) {
        archivePath =
            ConfigurationManager::GetInstance("")->getBufferPatchesDir() + kSeparator + name->stem + ".zip";
        usedBufferedCopy = true;
    } else {
        parts->events.beginDownload(remKey, fileName);
        insertRemProgressInMap(remKey, REM_DOWNLOADING);
        download(name->stem, archivePath, name->extension, remKey);
    }
    const bool cancelled = cancelAllRem;
    if (cancelled) fetchCancelled = true;
    if (internalError || cancelled) return "";
    if (!fileExists(archivePath)) {
        zlog::error(" [Remediation Manager] Inside getFileFromRepo: GetResource returned NULL. ");
        const std::string why = parts->events.downloadProblem();
        parts->events.failed(remKey,
                             why.empty() ? "the archive of '" + fileName + "' was not downloaded" : why);
        return "";
    }
    insertRemProgressInMap(remKey, REM_DOWNLOADED);
    zelor::CallReport report;
    unpack(archivePath, contentDownloadDir);
    const std::string filePath = contentDownloadDir + kSeparator + fileName;
    if (verifySignature(filePath, name->extension) == 0) return filePath;
    parts->events.failed(remKey, report, "the signature of '" + fileName + "' is not good");
    return "";
}

// Fetches a block's file, and looks at the cancels once: the caller goes by this look. A fetch that ended for
// a cancel which is withdrawn by then is made again.
RemediationManager::Next RemediationManager::fetchBlock(const std::string& key, parsedEriData& block,
                                                        std::string& path, bool& usedBufferedCopy) {
    do {
        path =
            getFileFromRepo(RecordAccess::patchId(block), key, RecordAccess::md5sum(block), usedBufferedCopy);
        setAbortedRemStatusToAborted();
        if (parts->cancellation.stopsRun()) return Next::phaseEnd;
        if (parts->cancellation.isCancelled(key)) return Next::aborted;
    } while (path.empty() && fetchCancelled && !internalError);
    return Next::proceed;
}

void RemediationManager::download(const std::string& stem, std::string& archivePath,
                                  const std::string& extension, const std::string& remKey) {
    const auto work = [&] { downloadFileFromRepo(stem, archivePath, extension, false, 0); };
    do {
        if (!startDownload(remKey, work)) return;
        awaitDownload();
    } while (parts->cancellation.downloadWasInterrupted() && !internalError && !fileExists(archivePath));
}

// False when there is no thread for `work`, or when the cancel came before the thread.
bool RemediationManager::startDownload(const std::string& remKey, const std::function<void()>& work) {
    downloadThreadDone = false;
    const Cancellation::Start start = parts->cancellation.startDownload(remKey, work);
    fetchCancelled = start == Cancellation::Start::cancelled;
    return start == Cancellation::Start::started;
}

// The member handle is used under thread_mutex alone, since a cancel may look at it at any moment; so the end
// is awaited by its flag, and the thread, which is over then, is joined by a handle of our own.
void RemediationManager::awaitDownload() {
    const boost::this_thread::disable_interruption whole;
    {
        boost::unique_lock<boost::mutex> lock(downloadEndMutex);
        downloadEnd.wait(lock, [this] { return downloadThreadDone.load(); });
    }
    boost::thread ended = parts->cancellation.takeDownload();
    if (ended.joinable()) ended.join();
    downloadThreadDone = false;
}

int RemediationManager::downloadFileFromRepo(std::string stem, std::string& archivePath,
                                             std::string extension, bool rateLimited,
                                             unsigned long bytesPerSecond) {
    int result = -1;
    zelor::CallReport report(
        [this](std::uint64_t done, std::uint64_t total) { parts->events.transferred(done, total); });
    try {
        result = RemediationResourceDownloader::GetInstance()->getResource(
            std::move(stem), archivePath, std::move(extension), installPath, rateLimited, bytesPerSecond);
    } catch (const std::exception& problem) {
        zlog::error(" [Remediation Manager] (downloadFileFromRepo) The download ended with an error: ",
                    problem.what());
        zelor::CallReport::addReason(std::string("the download ended with an error: ") + problem.what());
    } catch (const boost::thread_interrupted&) {
        zlog::info(" [Remediation Manager] (downloadFileFromRepo) The download was interrupted.");
        zelor::CallReport::addReason("the download was interrupted");
    } catch (...) {
        zlog::error(
            " [Remediation Manager] (downloadFileFromRepo) The download ended with an error: an exception of "
            "unknown type");
        zelor::CallReport::addReason("the download ended with an error of an unknown kind");
    }
    parts->events.endDownload(result == 0 ? "" : report.reason());
    const boost::unique_lock<boost::mutex> lock(downloadEndMutex);
    downloadThreadDone = true;
    downloadEnd.notify_all();
    return result;
}

int RemediationManager::verifySignature(std::string filePath, std::string extension) {
    const auto verifier = std::make_unique<FileSignVerifier>();
    verifier->SetFileName(filePath);
    verifier->SetSigFileName(zelor::remediation::signaturePath(filePath, extension));
    if (verifier->verify() != 0) return 0;
    zlog::error("[Remediation Manager] File Signature Verfication Failed! File Name is: ", filePath);
    return -1;
}

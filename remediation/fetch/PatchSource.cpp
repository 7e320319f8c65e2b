#include "remediation/fetch/PatchSource.h"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <memory>
#include <vector>

#include "base/Directories.h"
#include "base/TrustedDirectory.h"
#include "collaborators/FileSignVerifier.h"
#include "collaborators/ZipUtils.h"
#include "platform/Log.h"
#include "remediation/CallReport.h"
#include "remediation/RecordAccess.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::remediation {

namespace {

constexpr char kSeparator = boost::filesystem::path::preferred_separator;

/// Another archive may have left a directory where this one is to come; a file is replaced by the download.
void removeDirectory(const std::string& archivePath) {
    boost::system::error_code error;
    const auto status = boost::filesystem::symlink_status(archivePath, error);
    if (status.type() == boost::filesystem::directory_file) (void)base::removeTree(archivePath);
}

void unpack(const std::string& archivePath, const std::string& directory) {
    std::vector<char> archive(archivePath.c_str(), archivePath.c_str() + archivePath.size() + 1);
    std::vector<char> destination(directory.c_str(), directory.c_str() + directory.size() + 1);
    std::make_unique<ZipUtils>()->Unzip(archive.data(), destination.data());
}

}  // namespace

PatchSource::PatchSource(const std::string& contentDirectory, const std::atomic<bool>& internalError,
                         Download& download, BufferedPatches& buffered, Progress& progress,
                         Cancellation& cancellation, RunEvents& events)
    : contentDirectory_(contentDirectory),
      internalError_(internalError),
      download_(download),
      buffered_(buffered),
      progress_(progress),
      cancellation_(cancellation),
      events_(events) {}

FetchedFile PatchSource::fetch(const std::string& fileName, const std::string& key,
                               const std::string& md5sum) {
    log::debug(" [Remediation Manager] Inside getFileFromRepo: File to download is : ", fileName);
    FetchedFile file;
    if (const base::Check fetchable = checkFetchable(fileName); !fetchable) {
        const std::string& unsafe = fetchable.error().text;
        log::error(" [Remediation Manager] Inside getFileFromRepo: The file name '", fileName,
                   "' is refused: ", unsafe, ". ");
        events_.failed(key, "the file name '" + fileName + "' is refused: " + unsafe);
        return file;
    }
    if (const base::Check own = base::prepareDirectory(contentDirectory_); !own) {
        const std::string& problem = own.error().text;
        log::error(" [Remediation Manager] Inside getFileFromRepo: The content directory '",
                   contentDirectory_, "' is refused: ", problem);
        events_.failed(key, "the content directory '" + contentDirectory_ + "' is refused: " + problem);
        return file;
    }
    std::string archivePath;
    if (!obtainArchive(fileName, key, md5sum, archivePath, file)) return file;
    progress_.record(key, RemediationManager::REM_DOWNLOADED);
    const std::string filePath = contentDirectory_ + kSeparator + fileName;
    // An archive without the file must not pass for a file of that name that was left here before.
    if (filePath != archivePath && !base::removeTree(filePath)) {
        log::error(" [Remediation Manager] Inside getFileFromRepo: The leftover '", filePath,
                   "' cannot be removed, so the archive is not used. Remove it.");
        events_.failed(key, "the leftover '" + filePath + "' cannot be removed");
        return file;
    }
    CallReport report;
    unpack(archivePath, contentDirectory_);
    if (verify(filePath, splitAtLastDot(fileName)->extension) == 0) {
        file.path = filePath;
    } else {
        events_.failed(key, report, "the signature of '" + fileName + "' is not good");
    }
    return file;
}

// False when there is no archive at `archivePath`.
bool PatchSource::obtainArchive(const std::string& fileName, const std::string& key,
                                const std::string& md5sum, std::string& archivePath, FetchedFile& file) {
    const PatchName name = *splitAtLastDot(fileName);
    archivePath = contentDirectory_ + kSeparator + archiveName(fileName);
    if (buffered_.has(fileName, md5sum, buffered_.listPath())) {
        archivePath = BufferedPatches::archivePath(archiveName(fileName));
        file.usedBufferedCopy = true;
    } else {
        events_.beginDownload(key, fileName);
        progress_.record(key, RemediationManager::REM_DOWNLOADING);
        removeDirectory(archivePath);
        file.cancelled = !download_.forRequest(key, name, archivePath);
    }
    const bool cancelled = cancellation_.all();
    if (cancelled) file.cancelled = true;
    if (internalError_ || cancelled) return false;
    boost::system::error_code error;
    if (boost::filesystem::exists(archivePath, error)) return true;
    log::error(" [Remediation Manager] Inside getFileFromRepo: GetResource returned NULL. ");
    const std::string why = events_.downloadProblem();
    events_.failed(key, why.empty() ? "the archive of '" + fileName + "' was not downloaded" : why);
    return false;
}

Next PatchSource::fetchBlock(const std::string& key, parsedEriData& block, FetchedFile& file) {
    do {
        file = fetch(RecordAccess::patchId(block), key, RecordAccess::md5sum(block));
        cancellation_.markCancelled();
        if (cancellation_.stopsRun()) return Next::phaseEnd;
        if (cancellation_.isCancelled(key)) return Next::aborted;
    } while (file.path.empty() && file.cancelled && !internalError_);
    return Next::proceed;
}

int PatchSource::verify(const std::string& filePath, const std::string& extension) {
    const auto verifier = std::make_unique<FileSignVerifier>();
    verifier->SetFileName(filePath);
    verifier->SetSigFileName(signaturePath(filePath, extension));
    if (verifier->verify() != 0) return 0;
    log::error("[Remediation Manager] File Signature Verfication Failed! File Name is: ", filePath);
    return -1;
}

}  // namespace zelor::remediation

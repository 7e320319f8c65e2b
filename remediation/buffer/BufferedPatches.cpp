#include <fcntl.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "base/Files.h"
#include "base/Strings.h"
#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"
#include "remediation/CallReport.h"
#include "remediation/RemediationManager.h"
#include "remediation/buffer/BufferFolders.h"
#include "remediation/buffer/BufferedList.h"
#include "remediation/fetch/PatchName.h"

namespace zlog = zelor::log;
namespace fs = boost::filesystem;

namespace {

constexpr char kSeparator = fs::path::preferred_separator;
constexpr char kTemporaryName[] = "newTempFile";

std::string unzipFolderFile(const std::string& name) {
    return ConfigurationManager::GetInstance("")->getUnzipFileFolder() + kSeparator + name;
}

std::string archiveInBuffer(const std::string& patchName) {
    return ConfigurationManager::GetInstance("")->getBufferPatchesDir() + kSeparator +
           zelor::remediation::cutFourCharacters(patchName).stem + ".zip";
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

void replaceList(const std::string& listPath, const std::string& temporaryPath, const std::string& lines) {
    const zelor::base::UniqueFd temporary =
        zelor::base::openFile(temporaryPath, O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW);
    if (!temporary) fail("cannot open the temporary list");
    // A rewrite that was killed may have left a torn last line; its line still stands in the list.
    if (!zelor::base::cutTornEnd(temporary.get())) fail("cannot mend the temporary list");
    const off_t before = lseek(temporary.get(), 0, SEEK_END);
    if (zelor::base::writeAll(temporary.get(), lines) && zelor::base::flushToDisk(temporary.get()) &&
        std::rename(temporaryPath.c_str(), listPath.c_str()) == 0) {
        zelor::base::flushDirectory(fs::path(listPath).parent_path().string());
        return;
    }
    const int error = errno;
    // The lines still stand in the list, and must not stand there twice after the next rewrite.
    const int undone = before > 0 ? ftruncate(temporary.get(), before) : unlink(temporaryPath.c_str());
    errno = error;
    fail(undone == 0 ? "cannot rewrite the list" : "cannot rewrite the list, nor take the attempt back");
}

std::string wholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail("cannot open the list");
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace

std::string RemediationManager::bufferedListPath() {
    return unzipFolderFile(bufferedPatchesFileName);
}

bool RemediationManager::patchIsAlreadyBuffered(std::string patchName, std::string md5sum,
                                                std::string listPath) {
    zlog::debug("[Remediation Manager] Inside patchIsAlreadyBuffered .. bufferedPatchListFile = ", listPath);
    try {
        // The directories are judged before what they hold is read, and before it is used.
        if (!bufferedList->isCurrent(listPath)) {
            if (!zelor::remediation::bufferFoldersAreOurs()) return false;
            bufferedList->read(listPath);
        }
        return bufferedList->hasEntry(patchName, md5sum) && fs::exists(archiveInBuffer(patchName)) &&
               zelor::remediation::bufferFoldersAreOurs();
    } catch (const std::exception&) {
        zlog::debug(
            "[Remediation Manager] (patchIsAlreadyBuffered) Reading bufferedPatchesList.txt threw "
            "exception ");
    }
    return false;
}

void RemediationManager::addPatchBufferedEntry(std::string patchName, std::string md5sum,
                                               std::string listPath) {
    if (!zelor::remediation::bufferFoldersAreOurs()) {
        zelor::CallReport::addReason("the buffer's directories can be changed by other users");
        return;
    }
    if (zelor::base::hasControlCharacter(patchName + md5sum)) {
        zelor::CallReport::addReason("its name or its md5 holds a control character");
        zlog::error("[Remediation Manager] The patch '", patchName, "' with md5 '", md5sum,
                    "' is not listed as buffered, since that holds a control character");
        return;
    }
    removeEntryFromBufferedPatchesFile(patchName);
    if (!zelor::base::appendLine(listPath, patchName + "=" + md5sum)) {
        zelor::CallReport::addReason("the list of buffered patches cannot be written");
        zlog::debug(
            "[Remediation Manager] (addPatchBufferedEntry) Writing bufferedPatchesList.txt threw exception ");
        return;
    }
    zlog::debug(
        "[Remediation Manager] Inside addPatchBufferedEntry: Added entry for successfully buffered patch = ",
        patchName);
}

void RemediationManager::removeEntryFromBufferedPatchesFile(std::string patchName) {
    try {
        const std::string listPath = bufferedListPath();
        zelor::remediation::ListDamage damage;
        const std::string lines = zelor::remediation::linesWithout(wholeFile(listPath), patchName, damage);
        if (damage.tornEnd)
            zlog::error("[Remediation Manager] The last line of ", listPath,
                        " has no end; it counts as it stands.");
        if (damage.damagedLines)
            zlog::error("[Remediation Manager] ", listPath, " had damaged lines; they are left out.");
        replaceList(listPath, unzipFolderFile(kTemporaryName), lines);
    } catch (const std::exception& problem) {
        zlog::debug(
            "[Remediation Manager] (removeEntryFromBufferedPatchesFile) Exception while removing entry from "
            "bufferedPatchesList.txt ");
        zlog::debug("[Remediation Manager] (removeEntryFromBufferedPatchesFile) ", problem.what());
    }
}

void RemediationManager::cleanupBufferedPatch(std::string patchName, std::string patchFileDownloaded) {
    zlog::debug("[Remediation Manager] Inside cleanupBufferedPatch: patchName = ", patchName,
                ", patchfiledownloaded = ", patchFileDownloaded);
    if (!zelor::remediation::bufferFoldersAreOurs()) return;
    if (zelor::remediation::whyUnsafeFileName(patchName).empty()) {
        boost::system::error_code error;
        fs::remove(archiveInBuffer(patchName), error);
        if (error) zlog::debug("[Remediation Manager] Inside cleanupBufferedPatch: ", error.message());
    }
    removeEntryFromBufferedPatchesFile(patchName);
}

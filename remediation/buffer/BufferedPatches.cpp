#include "remediation/buffer/BufferedPatches.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "base/Files.h"
#include "base/Strings.h"
#include "base/TrustedDirectory.h"
#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"
#include "remediation/CallReport.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::remediation {

namespace fs = boost::filesystem;

namespace {

constexpr char kSeparator = fs::path::preferred_separator;
constexpr char kTemporaryName[] = "newTempFile";

std::string unzipDirectoryFile(const std::string& name) {
    return ConfigurationManager::GetInstance("")->getUnzipFileFolder() + kSeparator + name;
}

std::string archiveOf(const std::string& patchName) {
    return BufferedPatches::archivePath(bufferedArchiveName(patchName));
}

/// Fails with the directory and the reason when other users can modify one of the buffer's directories.
base::Check checkBufferDirectories() {
    ConfigurationManager* configuration = ConfigurationManager::GetInstance("");
    for (const std::string& directory :
         {configuration->getUnzipFileFolder(), configuration->getBufferPatchesDir()}) {
        if (directory.empty()) continue;
        const base::Check own = base::checkDirectory(directory);
        if (!own) return base::failure("The directory '" + directory + "' is refused: " + own.error().text);
    }
    return {};
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

void replaceList(const std::string& listPath, const std::string& temporaryPath, const std::string& lines) {
    const base::UniqueFd temporary = base::openFile(temporaryPath, O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW);
    if (!temporary) fail("cannot open the temporary list");
    // A rewrite that was killed may have left an incomplete last line; the whole line is still in the list.
    if (!base::cutTornEnd(temporary.get())) fail("cannot repair the temporary list");
    const off_t before = lseek(temporary.get(), 0, SEEK_END);
    if (base::writeAll(temporary.get(), lines) && base::flushToDisk(temporary.get()) &&
        std::rename(temporaryPath.c_str(), listPath.c_str()) == 0) {
        base::flushDirectory(fs::path(listPath).parent_path().string());
        return;
    }
    const int error = errno;
    // The lines are still in the list, and must not be duplicated by the next rewrite.
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

std::string BufferedPatches::listPath() const {
    return unzipDirectoryFile(listName_);
}

std::string BufferedPatches::archivePath(const std::string& archive) {
    return ConfigurationManager::GetInstance("")->getBufferPatchesDir() + kSeparator + archive;
}

bool BufferedPatches::has(const std::string& patchName, const std::string& md5sum,
                          const std::string& listPath) {
    log::debug("[Remediation Manager] Inside patchIsAlreadyBuffered .. bufferedPatchListFile = ", listPath);
    try {
        // The directories are checked before the list is read, and again before it is used.
        if (!list_.isCurrent(listPath)) {
            if (!bufferDirectoriesAreOurs()) return false;
            list_.read(listPath);
        }
        return hasBufferedLine(list_.text(), patchName, md5sum) && fs::exists(archiveOf(patchName)) &&
               bufferDirectoriesAreOurs();
    } catch (const std::exception&) {
        log::debug(
            "[Remediation Manager] (patchIsAlreadyBuffered) Reading bufferedPatchesList.txt threw "
            "exception ");
    }
    return false;
}

std::function<bool(const std::string&, const std::string&)> BufferedPatches::lookAt(
    const std::string& listPath) {
    const auto list = std::make_shared<BufferedList>();
    if (checkBufferDirectories()) list->read(listPath);
    return [list](const std::string& patchName, const std::string& md5sum) {
        boost::system::error_code error;
        return hasBufferedLine(list->text(), patchName, md5sum) && fs::exists(archiveOf(patchName), error);
    };
}

void BufferedPatches::add(const std::string& patchName, const std::string& md5sum,
                          const std::string& listPath) {
    if (!bufferDirectoriesAreOurs()) {
        CallReport::addReason("the buffer's directories can be changed by other users");
        return;
    }
    if (base::hasControlCharacter(patchName + md5sum)) {
        CallReport::addReason("its name or its md5 holds a control character");
        log::error("[Remediation Manager] The patch '", patchName, "' with md5 '", md5sum,
                   "' is not listed as buffered, since that holds a control character");
        return;
    }
    removeEntry(patchName);
    if (!base::appendLine(listPath, patchName + "=" + md5sum)) {
        CallReport::addReason("the list of buffered patches cannot be written");
        log::debug(
            "[Remediation Manager] (addPatchBufferedEntry) Writing bufferedPatchesList.txt threw exception ");
        return;
    }
    log::debug(
        "[Remediation Manager] Inside addPatchBufferedEntry: Added entry for successfully buffered patch = ",
        patchName);
}

void BufferedPatches::removeEntry(const std::string& patchName) {
    try {
        const std::string path = listPath();
        ListDamage damage;
        const std::string lines = linesWithout(wholeFile(path), patchName, damage);
        if (damage.tornEnd)
            log::error("[Remediation Manager] The last line of ", path,
                       " has no end; it counts as it stands.");
        if (damage.damagedLines)
            log::error("[Remediation Manager] ", path, " had damaged lines; they are left out.");
        replaceList(path, unzipDirectoryFile(kTemporaryName), lines);
    } catch (const std::exception& problem) {
        log::debug(
            "[Remediation Manager] (removeEntryFromBufferedPatchesFile) Exception while removing entry from "
            "bufferedPatchesList.txt ");
        log::debug("[Remediation Manager] (removeEntryFromBufferedPatchesFile) ", problem.what());
    }
}

void BufferedPatches::discard(const std::string& patchName, const std::string& installedFile) {
    log::debug("[Remediation Manager] Inside cleanupBufferedPatch: patchName = ", patchName,
               ", patchfiledownloaded = ", installedFile);
    if (!bufferDirectoriesAreOurs()) return;
    if (checkFileName(patchName)) {
        boost::system::error_code error;
        fs::remove(archiveOf(patchName), error);
        if (error) log::debug("[Remediation Manager] Inside cleanupBufferedPatch: ", error.message());
    }
    removeEntry(patchName);
}

bool bufferDirectoriesAreOurs() {
    const base::Check own = checkBufferDirectories();
    if (!own) log::error("[Remediation Manager] Buffered patches are not used. ", own.error().text);
    return static_cast<bool>(own);
}

}  // namespace zelor::remediation

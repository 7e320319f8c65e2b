#include "remediation/apply/InstalledRecord.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "base/Files.h"
#include "base/Strings.h"
#include "base/SystemCalls.h"
#include "base/Utf8.h"
#include "platform/Log.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::remediation {

namespace {

bool sameTime(const struct timespec& one, const struct timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

void InstalledRecord::forget() {
    lines_.clear();
    unfinished_.clear();
    read_ = 0;
    damaged_ = 0;
    path_.clear();
}

void InstalledRecord::refresh(const std::string& path) {
    struct stat now {};
    if (path == path_ && lstat(path.c_str(), &now) == 0 && isSameFile(now) && now.st_size == known() &&
        sameTime(base::modificationTime(now), modified_)) {
        return;
    }
    const base::UniqueFd fd = base::openFile(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
    if (!fd || fstat(fd.get(), &now) != 0) {
        forget();
        return;
    }
    if (path != path_ || !isSameFile(now) || now.st_size <= known()) forget();
    path_ = path;
    device_ = static_cast<std::uintmax_t>(now.st_dev);
    inode_ = static_cast<std::uintmax_t>(now.st_ino);
    modified_ = base::modificationTime(now);
    const std::string torn = unfinished_;
    const std::uint64_t damaged = damaged_;
    readFrom(fd.get());
    if (!unfinished_.empty() && unfinished_ != torn) {
        log::error("[Remediation Manager] The last line of ", path, " has no end; it counts as it stands.");
    }
    if (damaged_ != damaged) {
        log::error("[Remediation Manager] ", path, " has ", damaged_ - damaged,
                   " damaged lines, which name no remediation.");
    }
}

bool InstalledRecord::isSameFile(const struct stat& now) const {
    return static_cast<std::uintmax_t>(now.st_dev) == device_ &&
           static_cast<std::uintmax_t>(now.st_ino) == inode_;
}

void InstalledRecord::readFrom(int fd) {
    unfinished_.clear();
    std::vector<char> chunk(std::size_t{1} << 18);
    off_t at = read_;
    for (;;) {
        const ssize_t count = pread(fd, chunk.data(), chunk.size(), at);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        at += count;
        unfinished_.append(chunk.data(), static_cast<std::size_t>(count));
        std::size_t start = 0;
        for (auto end = unfinished_.find('\n'); end != std::string::npos;
             end = unfinished_.find('\n', start)) {
            takeLine(unfinished_.substr(start, end - start));
            start = end + 1;
        }
        unfinished_.erase(0, start);
        read_ += static_cast<off_t>(start);
    }
}

void InstalledRecord::takeLine(std::string line) {
    if (!base::isText(line)) ++damaged_;
    lines_.insert(std::move(line));
}

}  // namespace zelor::remediation

namespace zlog = zelor::log;

void RemediationManager::addEntryInInstalledPatchesFile(int installResult, std::string eriId) {
    if (installResult != 0) return;
    if (zelor::base::hasControlCharacter(eriId)) {
        zlog::error("[Remediation Manager] The eri id '", eriId,
                    "' holds a control character, so it is not recorded");
        return;
    }
    // A missing folder is the installer's business and stays silent.
    if (!zelor::base::appendLine(installedPatchesFile, eriId) && errno != ENOENT) {
        zlog::error("[Remediation Manager] ", eriId, " is installed, and cannot be noted in ",
                    installedPatchesFile, ": ", std::string(std::strerror(errno)),
                    "; the next run will install it again");
    }
    zlog::debug(
        "[Remediation Manager] Inside addEntryInInstalledPatchesFile: Added entry for successfully installed "
        "eri: ",
        eriId);
}

bool RemediationManager::verifyIfAlreadyAppliedRem(creEriParsedData& creEri) {
    installedRecord->refresh(installedPatchesFile);
    if (installedRecord->empty()) return false;
    zlog::debug("[Remediation Manager] (verifyIfAlreadyAppliedRem) for creId = ", RecordAccess::creId(creEri),
                " number of eris = ", RecordAccess::blocks(creEri).size());
    return zelor::remediation::countsAsApplied(
        creEri, [this](const std::string& eriId) { return installedRecord->hasLine(eriId); });
}

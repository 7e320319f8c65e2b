#include "remediation/buffer/BufferBudget.h"

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
#include "remediation/buffer/PatchSize.h"

namespace zelor::remediation {

namespace fs = boost::filesystem;

namespace {

constexpr int kHttpOk = 200;
constexpr unsigned long kFallbackRate = 1024;

void logSizeTrouble() {
    log::debug("[Remediation Manager] (getFoldersize) getting file size threw exception");
}

/// Directories by device and inode: one that is also reached by links counts once.
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

bool exceedsBudget(const std::string& patchSize) {
    ConfigurationManager* configuration = ConfigurationManager::GetInstance("");
    const std::string allotted = configuration->getBufferPatchesDirSize();
    long current = 0;
    addDirectorySize(configuration->getBufferPatchesDir(), current);
    log::debug("[Remediation Manager] (downloadSizeExceedsAllotedSize) allotedSize in conf = ", allotted,
               ", currentBufferDirSize = ", current);
    const PatchSize size = parsePatchSize(patchSize);
    log::debug("[Remediation Manager] (downloadSizeExceedsAllotedSize) patchSizeNumber = ", size.number,
               ", sizeUnit = ", size.unit, ", currentPatchSize (in bytes) = ", size.bytes);
    return size.bytes > budgetBytes(allotted) - current;
}

void addDirectorySize(const std::string& dir, long& size) {
    SeenDirectories seen;
    struct stat info {};
    if (::stat(dir.c_str(), &info) == 0) seen.emplace(info.st_dev, info.st_ino);
    addFileSizes(dir, seen, size);
}

unsigned long bufferingRate(const std::string& installPath) {
    int status = 0;
    const unsigned long speed = DownloadManager(installPath, false).GetDownloadSpeed(status);
    if (status != kHttpOk) return kFallbackRate;
    const std::string configured = ConfigurationManager::GetInstance("")->getBufferSpeedPercent();
    const int percent = base::leadingInt(configured);
    const unsigned long rate = shareOfBandwidth(speed, percent);
    log::debug("[Remediation Manager] (getBpsInPercentOfBandwidth) speedPercent = ", percent,
               ". speedPercentStr = ", configured, ". bytespersecond = ", rate);
    return rate;
}

}  // namespace zelor::remediation

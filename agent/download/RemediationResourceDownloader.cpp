#include "collaborators/RemediationResourceDownloader.h"

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

#include "agent/DownloadProgress.h"
#include "agent/download/ArchiveAhead.h"
#include "agent/download/PatchJob.h"
#include "agent/http/HttpClient.h"
#include "agent/log/FailureLine.h"
#include "base/Mutex.h"
#include "collaborators/Common.h"
#include "remediation/CallReport.h"

namespace {

constexpr int kFailed = -1;
constexpr int kInterrupted = -2;
constexpr unsigned long kLeastRate = 1024;  ///< a transfer needs some rate to end at all

zelor::agent::HttpClientPool& clients() {
    // Never destroyed: a run's thread may outlive main().
    static zelor::agent::HttpClientPool& pool = *new zelor::agent::HttpClientPool;
    return pool;
}

using zelor::agent::DownloadJob;
using zelor::agent::DownloadResult;
using zelor::agent::PatchDownload;

/// The download that was begun ahead, if there is one, or a new one.
std::shared_ptr<PatchDownload> downloadOf(const std::string& stem, const std::string& installPath,
                                          DownloadJob job, zelor::agent::HttpClient& client) {
    const auto report = [](std::uint64_t done, std::uint64_t total) {
        zelor::agent::DownloadProgress::instance().advance(done, total);
        zelor::CallReport::transferred(done, total);
    };
    // One that has a rate to keep does not wait for one without.
    zelor::agent::DownloadProgress::instance().begin(job.name);
    auto early = zelor::agent::archiveAheadAt(installPath).take(stem, job.bytesPerSecond == 0, report);
    if (early && early->adopt(job, client)) return early;
    if (early) early->abandon();
    return std::make_shared<PatchDownload>(std::move(job), zelor::agent::patchPolicy(), client);
}

/// One for each install path; never removed.
struct Ahead {
    zelor::base::Mutex mutex;
    std::map<std::string, std::unique_ptr<zelor::agent::ArchiveAhead>> all ZELOR_GUARDED_BY(mutex);
};

}  // namespace

zelor::agent::ArchiveAhead& zelor::agent::archiveAheadAt(const std::string& installPath) {
    // Never destroyed: a run's thread may outlive main().
    static Ahead& ahead = *new Ahead;
    const std::string path = Common::StripTrailingSeparators(installPath);
    const base::MutexLock lock(ahead.mutex);
    auto& one = ahead.all[path];
    if (!one) one = std::make_unique<ArchiveAhead>(path);
    return *one;
}

RemediationResourceDownloader* RemediationResourceDownloader::GetInstance() {
    static RemediationResourceDownloader downloader;
    return &downloader;
}

int RemediationResourceDownloader::getResource(std::string stem, std::string& archivePath,
                                               std::string /*extension*/, std::string installPath,
                                               bool rateLimited, unsigned long bytesPerSecond) {
    try {
        DownloadJob job = zelor::agent::patchJob(stem, archivePath, installPath);
        if (rateLimited) job.bytesPerSecond = std::max(bytesPerSecond, kLeastRate);
        // A buffered archive must survive a power loss; one for a run is unpacked, checked and removed by
        // that run.
        job.durable = rateLimited;
        const auto client = clients().lend();
        switch (downloadOf(stem, installPath, std::move(job), *client)->run()) {
            case DownloadResult::done:
                return 0;
            case DownloadResult::interrupted:
                return kInterrupted;
            case DownloadResult::failed:
                return kFailed;
        }
    } catch (const std::exception& e) {
        zelor::agent::logFailure(std::string("[Downloader] ") + e.what());
    }
    return kFailed;
}

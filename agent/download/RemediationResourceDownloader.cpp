#include "collaborators/RemediationResourceDownloader.h"

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "agent/AgentSettings.h"
#include "agent/DownloadProgress.h"
#include "agent/download/ArchiveAhead.h"
#include "agent/download/PatchJob.h"
#include "agent/http/HttpClient.h"
#include "agent/http/Mirrors.h"
#include "agent/log/FailureLine.h"
#include "base/Mutex.h"
#include "collaborators/Common.h"
#include "remediation/CallReport.h"

namespace {

using zelor::agent::DownloadJob;
using zelor::agent::DownloadResult;
using zelor::agent::Mirror;
using zelor::agent::PatchDownload;
using Download = std::shared_ptr<PatchDownload>;

constexpr int kFailed = -1;
constexpr int kInterrupted = -2;
constexpr unsigned long kLeastRate = 1024;  ///< a transfer needs some rate to end at all

zelor::agent::HttpClientPool& clients() {
    // Never destroyed: a run's thread may outlive main().
    static zelor::agent::HttpClientPool& pool = *new zelor::agent::HttpClientPool;
    return pool;
}

/// The download that was begun ahead, null when there is none.
Download begunAhead(const std::string& stem, const std::string& installPath, const DownloadJob& job) {
    const auto report = [](std::uint64_t done, std::uint64_t total) {
        zelor::agent::DownloadProgress::instance().advance(done, total);
        zelor::CallReport::transferred(done, total);
    };
    zelor::agent::DownloadProgress::instance().begin(job.name);
    // One that has a rate to keep does not wait for one without.
    return zelor::agent::archiveAheadAt(installPath).take(stem, job.bytesPerSecond == 0, report);
}

/// The mirrors to ask, beginning with the one of `early`, if there is one.
std::vector<Mirror> toAsk(const zelor::agent::Mirrors& mirrors, const std::string& stem,
                          const std::string& name, const Download& early) {
    std::vector<Mirror> order = mirrors.toAsk(name);
    const auto isEarly = [&](const Mirror& mirror) {
        return early && zelor::agent::patchUrl(mirror, stem) == early->url();
    };
    for (const Mirror& mirror : mirrors.inOrder()) {
        if (!isEarly(mirror)) continue;
        order.erase(std::remove_if(order.begin(), order.end(), isEarly), order.end());
        order.insert(order.begin(), mirror);
    }
    return order;
}

/// Asks one mirror after the other, until one serves the archive.
DownloadResult fetch(const std::string& stem, const std::string& installPath, DownloadJob job) {
    const auto mirrors = zelor::agent::Mirrors::ofRun(*zelor::agent::AgentSettings::current());
    const auto client = clients().lend();
    Download early = begunAhead(stem, installPath, job);
    const std::vector<Mirror> order = toAsk(*mirrors, stem, job.name, early);
    Download before;
    for (std::size_t i = 0;; ++i) {
        const bool othersLeft = i + 1 < order.size();
        job.url = zelor::agent::patchUrl(order[i], stem);
        Download download = std::exchange(early, nullptr);
        if (!download || !download->adopt(job, othersLeft, *client)) {
            if (download) download->abandon();
            download = std::make_shared<PatchDownload>(job, zelor::agent::patchPolicy(order[i], othersLeft),
                                                       *client);
        }
        download->shareTime(before.get(), i, order.size());
        before = download;
        const DownloadResult result = download->run();
        if (result == DownloadResult::done) mirrors->served(order[i]);
        if (result != DownloadResult::failed || !download->mayAskAnother()) return result;
    }
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
        switch (fetch(stem, installPath, std::move(job))) {
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

#include "collaborators/RemediationResourceDownloader.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "agent/AgentSettings.h"
#include "agent/content/PatchDigests.h"
#include "agent/download/PatchDownload.h"
#include "agent/http/HttpClient.h"
#include "agent/http/Mirrors.h"
#include "agent/http/RepositoryUrl.h"
#include "agent/log/FailureLine.h"
#include "collaborators/Common.h"

namespace {

using zelor::agent::DownloadJob;
using zelor::agent::DownloadResult;

constexpr int kFailed = -1;
constexpr int kInterrupted = -2;
constexpr unsigned long kLeastRate = 1024;  ///< a transfer needs some rate to end at all

zelor::agent::HttpClientPool& clients() {
    // Never destroyed: a run's thread may outlive main().
    static zelor::agent::HttpClientPool& pool = *new zelor::agent::HttpClientPool;
    return pool;
}

/// Why a stem cannot name an archive, "" when it can.
std::string stemProblem(const std::string& stem) {
    const bool control =
        std::any_of(stem.begin(), stem.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; });
    if (stem.empty()) return "it is empty";
    if (stem == "." || stem == "..") return "it names a directory";
    if (stem.find('/') != std::string::npos) return "it holds a path separator";
    if (control) return "it holds a control character";
    return stem.size() > 200 ? "it is longer than 200 bytes" : "";
}

DownloadJob jobFor(const std::string& stem, const std::string& archivePath, const std::string& installPath) {
    const std::string problem = stemProblem(stem);
    if (!problem.empty()) {
        throw std::runtime_error("cannot fetch the patch \"" + stem + "\": " + problem +
                                 "; correct the patch id in the content");
    }
    const auto settings = zelor::agent::AgentSettings::current();
    const std::string archive = stem + ".zip";
    DownloadJob job;
    job.name = archive;
    job.partialDirectory = Common::StripTrailingSeparators(installPath) + "/partial";
    job.destination = archivePath;
    const bool required = settings->values().requireDigests;
    job.digest = zelor::agent::WantedPatches::instance().archive(archive, required);
    return job;
}

zelor::agent::DownloadPolicy policyInForce(const zelor::agent::AgentSettings& settings) {
    zelor::agent::DownloadPolicy policy;
    policy.pace.bytesPerSecond = std::uint64_t{settings.values().patchKiBPerSecond} << 10U;
    policy.pace.grace = std::chrono::minutes(settings.values().patchMinutes);
    return policy;
}

/// Asks one mirror after the other, until one serves the archive.
DownloadResult fetch(DownloadJob job, const std::string& stem) {
    const auto settings = zelor::agent::AgentSettings::current();
    const auto mirrors = zelor::agent::Mirrors::ofRun(*settings);
    zelor::agent::DownloadPolicy policy = policyInForce(*settings);
    const std::vector<zelor::agent::Mirror> toAsk = mirrors->toAsk(job.name);
    const auto client = clients().lend();
    for (std::size_t i = 0;; ++i) {
        job.url = toAsk[i].url + "/patches/" + zelor::agent::urlSegment(stem) + ".zip";
        policy.outage = toAsk[i].outage;
        policy.othersLeft = i + 1 < toAsk.size();
        zelor::agent::PatchDownload download(job, policy, *client);
        const DownloadResult result = download.run();
        if (result == DownloadResult::done) mirrors->served(toAsk[i]);
        if (result != DownloadResult::failed || !download.mayAskAnother()) return result;
    }
}

}  // namespace

RemediationResourceDownloader* RemediationResourceDownloader::GetInstance() {
    static RemediationResourceDownloader downloader;
    return &downloader;
}

int RemediationResourceDownloader::getResource(std::string stem, std::string& archivePath,
                                               std::string /*extension*/, std::string installPath,
                                               bool rateLimited, unsigned long bytesPerSecond) {
    try {
        DownloadJob job = jobFor(stem, archivePath, installPath);
        if (rateLimited) job.bytesPerSecond = std::max(bytesPerSecond, kLeastRate);
        // A buffered archive must survive a power loss; one for a run is unpacked, checked and removed by
        // that run.
        job.durable = rateLimited;
        switch (fetch(std::move(job), stem)) {
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

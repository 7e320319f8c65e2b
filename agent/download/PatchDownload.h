#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "agent/download/PartialFile.h"
#include "agent/download/PatchPace.h"
#include "agent/http/HttpClient.h"
#include "agent/http/RepositoryOutage.h"
#include "agent/http/RetryPolicy.h"
#include "agent/trust/Sha256.h"
#include "base/Result.h"

namespace zelor::agent {

/// How a download retries, and its limits.
struct DownloadPolicy {
    RetryPolicy retry;
    HttpLimits limits;
    PaceLimit pace;
    /// What is known of the repository; null: every download finds out for itself.
    std::shared_ptr<RepositoryOutage> outage{};
    bool othersLeft = false;  ///< another mirror is asked when this one does not serve
    /// The free bytes where that path is or will be.
    std::function<std::uint64_t(const std::string& path)> freeBytes = &zelor::agent::freeBytes;
};

/// One archive to fetch.
struct DownloadJob {
    std::string url;
    std::string name;  ///< of the archive, "editor-2.1.zip"; also names the partial file
    std::string partialDirectory;
    std::string destination;
    std::uint64_t bytesPerSecond = 0;    ///< 0: as fast as it goes
    bool durable = true;                 ///< whole at its destination even after a power loss
    std::optional<FileDigest> digest{};  ///< of the archive that is wanted; nothing: whatever comes
};

/// How a download ended; only `done` leaves the archive at its destination.
enum class DownloadResult { done, failed, interrupted };

/// Fetches one archive to its partial file, resuming an earlier attempt, and moves it to its destination when
/// it is complete. Failures are logged with their remedy; nothing is thrown. Interrupting the boost::thread
/// that runs it ends it well within a second and keeps the partial file.
///
/// The first attempt may be made before anyone asks for the archive: then `beginEarly`, `takeEarly` and
/// `adopt` come before `run`, or `abandon` in its place. One thread at a time, but for `done` and `total`.
class PatchDownload {
  public:
    /// The client stays the caller's and must outlive the download.
    PatchDownload(DownloadJob job, DownloadPolicy policy, HttpClient& client);
    /// It is the download from number `index` of `count` mirrors; `before`: the one from the mirror before
    /// it, or null. They share the time, as if they were one.
    void shareTime(const PatchDownload* before, std::size_t index, std::size_t count) {
        if (before != nullptr) pace_ = before->pace_;
        goesOn_ = before != nullptr;
        pace_.setShare(index, count);
    }
    /// Blocks until the end. Call it once.
    DownloadResult run();
    /// Of a failed download: false when another mirror would end the same way. Never true without another
    /// one.
    bool mayAskAnother() const { return policy_.othersLeft && !failedHere_; }

    /// For an early attempt: the job has neither rate nor destination yet.
    PatchDownload(DownloadJob job, DownloadPolicy policy);
    /// The request of the early attempt; the object must outlive it. Nothing when the whole download is for
    /// `run`: a part is there, or the repository is not to be asked. Throws std::runtime_error.
    std::optional<HttpRequest> beginEarly();
    /// How that request ended; without this call, `run` continues behind the bytes that came. Logs nothing.
    /// False when the repository does not answer.
    bool takeEarly(const HttpResult& result);
    /// True when the server has trouble, but perhaps only with this file.
    bool metOneFile() const { return policy_.outage && policy_.outage->isOneFile(); }
    /// True when an attempt found something wrong with what came.
    bool hasProblem() const { return !problem_.empty(); }
    /// From now on it is the download of `job`; `othersLeft` as in the policy, `client` as in the
    /// constructor. False for another archive or mirror.
    bool adopt(DownloadJob job, bool othersLeft, HttpClient& client);
    /// Where it is fetched from.
    const std::string& url() const { return job_.url; }
    /// Nobody asks for it: removes what came early.
    void abandon() {
        if (partial_ && fresh_) partial_->discard();
        partial_.reset();
    }
    /// The bytes so far, and in all; 0: not known. Any thread.
    std::uint64_t done() const { return doneBytes_; }
    std::uint64_t total() const { return totalBytes_; }

  private:
    enum class Step { done, again, afresh, failed, interrupted };

    DownloadResult fetchAndMove();
    HttpRequest request();
    Step attempt();
    Step takeOver();
    void advance(std::uint64_t done, std::uint64_t total);
    Step judge(const HttpResult& result);
    Step judgeAnswer(const HttpHead& head);
    bool isLate() const { return pace_.isLate(std::chrono::steady_clock::now()); }
    Step late();
    Step pauseOrGiveUp(int failures, int attempts);

    bool takeHead(const HttpHead& head);
    bool takeWhole(const HttpHead& head);
    bool takePart(const HttpHead& head);
    bool roomFor(std::uint64_t total);
    bool takeBody(std::string_view piece);
    bool takeTotal(std::uint64_t total);
    std::uint64_t resumeAt();
    /// Whether the part came from another mirror, whose validator means nothing here: the digest decides.
    bool isOfAnother() const { return partial_->version().url != job_.url; }
    void dropOtherPart();
    void hashPart();
    Step judgeWhole();
    void restart(const PartialFile::Version& version);
    bool refuse(const std::string& problem);
    /// Refuses, drops the bytes so far, and makes the next attempt start without them, once.
    bool refusePart(const std::string& problem);

    DownloadJob job_;
    DownloadPolicy policy_;
    HttpClient* client_;  ///< null during an early attempt
    RepositoryTurn turn_;
    std::optional<PartialFile> partial_;  ///< while running
    PatchPace pace_;
    bool goesOn_ = false;        ///< the pace is that of another mirror's download
    std::optional<Step> early_;  ///< how the early attempt ended
    bool shown_ = false;         ///< someone waits for the download
    bool fresh_ = false;         ///< the early attempt began the partial file
    std::atomic<std::uint64_t> doneBytes_{0};
    std::atomic<std::uint64_t> totalBytes_{0};

    Sha256 sha256_;               ///< of the bytes in the partial file, when the job has a digest
    std::uint64_t asked_ = 0;     ///< the offset that this attempt asked for
    std::uint64_t expected_ = 0;  ///< size of the complete file; 0: not known
    std::uint64_t best_ = 0;      ///< the most bytes that the partial file has ever had
    bool afresh_ = false;         ///< the next attempt starts without the bytes so far
    bool startedAfresh_ = false;  ///< that has happened before
    bool failedHere_ = false;     ///< a file or the room for it, and not the repository
    std::chrono::milliseconds serverPause_{0};
    std::string problem_;
};

}  // namespace zelor::agent

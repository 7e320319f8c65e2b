#include "agent/download/ArchiveAhead.h"

#include <algorithm>
#include <chrono>
#include <exception>

#include "agent/AgentSettings.h"
#include "agent/download/PatchJob.h"
#include "agent/http/HttpTransfer.h"
#include "base/Strings.h"
#include "platform/Log.h"

namespace zelor::agent {

namespace {

constexpr std::chrono::seconds kLook{1};  ///< how late free space may be seen
constexpr std::size_t kParallel = 16;
constexpr std::size_t kHeldArchives = 48;  ///< each has two descriptors, of the 256 that a process may have
/// Nothing more is begun while so much is on its way: less would leave the line idle, more would delay the
/// archive that is asked for first.
constexpr std::uint64_t kOnTheWay = 1U << 20U;
constexpr std::uint64_t kGuess = 256U << 10U;  ///< the length of an archive that is not known
constexpr std::uint64_t kReserve = 512U << 20U;

std::uint64_t lengthOf(const PatchDownload& download) {
    const std::uint64_t total = download.total();
    return total != 0 ? total : kGuess;
}

}  // namespace

AheadRoom aheadRoom(std::uint64_t length, const AheadUse& use, const AheadLimits& limits,
                    std::uint64_t free) {
    if (length > limits.bytes) return AheadRoom::never;
    if (use.archives >= kHeldArchives || length > limits.bytes - std::min(use.bytes, limits.bytes))
        return AheadRoom::later;
    const std::uint64_t reserved = use.missing + kReserve;
    return free >= reserved && (free - reserved) / 2 >= length ? AheadRoom::now : AheadRoom::later;
}

/// What the thread has in progress.
class ArchiveAhead::Work {
  public:
    Work(ArchiveAhead& ahead, std::vector<std::string> stems)
        : ahead_(ahead), stems_(std::move(stems)), transfers_(client_, kParallel) {}

    void run() {
        for (;;) {
            const bool more = !ahead_.isStopping() && beginAll();
            if (transfers_.inHand() != 0) {
                transfers_.work();
            } else if (more) {
                ahead_.waitForRoom();
            } else {
                return;
            }
        }
    }

  private:
    /// Begins what there is room for. False when nothing is left to begin.
    bool beginAll() {
        while (at_ < stems_.size()) {
            if (!ahead_.isWaiting(stems_[at_]) || !prepare()) {
                next();
                continue;
            }
            if (transfers_.inHand() >= allowed()) return true;
            const AheadUse use = ahead_.use();
            if (transfers_.inHand() != 0 && use.missing >= kOnTheWay) return true;
            const AheadRoom room = aheadRoom(lengthOf(*download_), use, ahead_.limits_, free());
            if (room == AheadRoom::later) return true;
            if (room == AheadRoom::now) begin(stems_[at_], download_);
            next();
        }
        return false;
    }

    /// Makes the next download. False when it is to be left to who asks for it.
    bool prepare() {
        if (download_) return true;
        try {
            DownloadJob job = patchJob(stems_[at_], "", ahead_.installPath_);
            const std::vector<Mirror> mirrors = Mirrors::ofRun(*AgentSettings::current())->toAsk(job.name);
            job.url = patchUrl(mirrors.front(), stems_[at_]);
            job.durable = false;
            othersLeft_ = mirrors.size() > 1;
            directory_ = job.partialDirectory;
            isTls_ = base::hasBeginningInAnyCase(job.url, "https:");
            download_ =
                std::make_shared<PatchDownload>(std::move(job), patchPolicy(mirrors.front(), othersLeft_));
        } catch (const std::exception&) {
            return false;
        }
        return true;
    }

    void next() {
        download_.reset();
        ++at_;
    }

    // Over TLS the first answer shows whether one connection is enough for all (HTTP/2).
    std::size_t allowed() const { return answered_ || !isTls_ ? kParallel : 1; }
    std::uint64_t free() const { return ahead_.limits_.freeBytes(directory_); }

    void begin(const std::string& stem, const std::shared_ptr<PatchDownload>& download) {
        if (!ahead_.hold(stem, download)) return;
        try {
            std::optional<HttpRequest> request = download->beginEarly();
            if (!request) return ahead_.end(stem, false);
            guard(*request, stem, download);
            transfers_.start(std::move(*request),
                             [=](const HttpResult& result) { take(stem, *download, result); });
        } catch (const std::exception&) {
            ahead_.end(stem, false);  // who asks for it will see the reason
        }
    }

    /// Ends the transfer when nobody wants it, it needs too much room, or it cannot be written.
    void guard(HttpRequest& request, const std::string& stem,
               const std::shared_ptr<PatchDownload>& download) {
        const auto unlessItThrows = [download](const auto& call) {
            return [call, download](const auto& value) {
                try {
                    return call(value);
                } catch (const std::exception&) {
                    download->abandon();  // what is in the file is not known
                    return false;
                }
            };
        };
        request.overdue = [this, stem, isLate = request.overdue] {
            return !ahead_.isWanted(stem) || isLate();
        };
        const bool known = download->total() != 0;
        request.onHead = unlessItThrows([this, known, download, take = request.onHead](const HttpHead& head) {
            return take(head) && (known || head.status != 200 || hasRoom(*download));
        });
        request.onBody = unlessItThrows(request.onBody);
    }

    /// For one whose length the answer gave, or did not.
    bool hasRoom(const PatchDownload& download) {
        if (download.total() == 0) return false;
        AheadUse others = ahead_.use();
        --others.archives;
        others.bytes -= std::min(others.bytes, download.total());
        others.missing -= std::min(others.missing, download.total());
        return aheadRoom(download.total(), others, ahead_.limits_, free()) == AheadRoom::now;
    }

    void take(const std::string& stem, PatchDownload& download, const HttpResult& result) {
        const long status = result.head.status;
        const bool redirected = status >= 300 && status < 400;
        // Redirects are followed by who asks for the archive.
        if (redirected) giveUp();
        const bool stopped = result.outcome == HttpOutcome::stopped && !download.hasProblem();
        if (redirected || stopped || !ahead_.isWanted(stem)) return ahead_.end(stem, false);
        answered_ = true;
        const bool answers = download.takeEarly(result);
        if (!answers && !othersLeft_ && !download.metOneFile()) giveUp();
        ahead_.end(stem, answers);
    }

    void giveUp() { at_ = stems_.size(); }

    ArchiveAhead& ahead_;
    const std::vector<std::string> stems_;
    std::size_t at_ = 0;                       ///< the next to begin
    std::shared_ptr<PatchDownload> download_;  ///< of that one, once it is known
    std::string directory_;
    bool isTls_ = false;
    bool othersLeft_ = false;  ///< another mirror may answer when this one is down
    bool answered_ = false;
    HttpClient client_;
    ParallelTransfers transfers_;
};

void ArchiveAhead::begin(std::vector<std::string> stems, AheadLimits limits) {
    join();
    if (stems.empty() || limits.bytes == 0) return;
    limits_ = std::move(limits);
    {
        const base::MutexLock lock(mutex_);
        for (std::size_t place = 0; place < stems.size(); ++place)
            waiting_.emplace(stems[place], place);
        stopping_ = false;
    }
    try {
        thread_ = std::thread([this, stems = std::move(stems)]() mutable { run(std::move(stems)); });
    } catch (...) {
        stop();
        throw;
    }
}

void ArchiveAhead::run(std::vector<std::string> stems) {
    try {
        Work(*this, std::move(stems)).run();
    } catch (const std::exception& problem) {
        log::debug("[Downloader] archives are no longer fetched ahead: ", problem.what());
    }
    const base::MutexLock lock(mutex_);
    waiting_.clear();
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        Entry& left = entry->second;
        if (left.arrived || left.joined) {
            left.arrived = true;
            ++entry;
        } else {
            left.download->abandon();
            entry = entries_.erase(entry);
        }
    }
    changed_.notifyAll();
}

bool ArchiveAhead::isWaiting(const std::string& stem) {
    const base::MutexLock lock(mutex_);
    return waiting_.count(stem) != 0;
}

bool ArchiveAhead::isWanted(const std::string& stem) {
    const base::MutexLock lock(mutex_);
    const auto entry = entries_.find(stem);
    return !stopping_ && entry != entries_.end() && entry->second.wanted;
}

bool ArchiveAhead::isStopping() {
    const base::MutexLock lock(mutex_);
    return stopping_;
}

AheadUse ArchiveAhead::use() {
    const base::MutexLock lock(mutex_);
    AheadUse use;
    for (const auto& [stem, entry] : entries_) {
        const std::uint64_t done = entry.download->done();
        const std::uint64_t length = std::max(lengthOf(*entry.download), done);
        ++use.archives;
        use.bytes += length;
        if (!entry.arrived) use.missing += length - done;
    }
    return use;
}

bool ArchiveAhead::hold(const std::string& stem, const std::shared_ptr<PatchDownload>& download) {
    const base::MutexLock lock(mutex_);
    const auto found = waiting_.find(stem);
    if (stopping_ || found == waiting_.end()) return false;
    Entry& entry = entries_[stem];
    entry.place = found->second;
    entry.download = download;
    waiting_.erase(found);
    return true;
}

void ArchiveAhead::end(const std::string& stem, bool whole) {
    const base::MutexLock lock(mutex_);
    const auto entry = entries_.find(stem);
    Entry& ended = entry->second;
    if (ended.joined || (whole && ended.wanted && !stopping_)) {
        ended.arrived = true;
    } else {
        // Before the entry goes: the partial file is locked until then.
        ended.download->abandon();
        entries_.erase(entry);
    }
    changed_.notifyAll();
}

void ArchiveAhead::waitForRoom() {
    const base::MutexLock lock(mutex_);
    if (!stopping_) (void)changed_.waitUntil(mutex_, std::chrono::steady_clock::now() + kLook);
}

void ArchiveAhead::dropBefore(std::size_t place) {
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        Entry& passed = entry->second;
        const bool drops = passed.place < place && !passed.joined;
        if (drops) passed.wanted = false;
        if (drops && passed.arrived) {
            passed.download->abandon();
            entry = entries_.erase(entry);
        } else {
            ++entry;
        }
    }
}

void ArchiveAhead::drop(const std::string& stem) {
    const base::MutexLock lock(mutex_);
    waiting_.erase(stem);
    const auto entry = entries_.find(stem);
    if (entry != entries_.end() && !entry->second.joined) {
        entry->second.wanted = false;
        if (entry->second.arrived) {
            entry->second.download->abandon();
            entries_.erase(entry);
        }
    }
    changed_.notifyAll();
}

void ArchiveAhead::stop() {
    const base::MutexLock lock(mutex_);
    stopping_ = true;
    waiting_.clear();
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        const bool left = entry->second.arrived && !entry->second.joined;
        if (left) entry->second.download->abandon();
        entry = left ? entries_.erase(entry) : std::next(entry);
    }
    changed_.notifyAll();
}

void ArchiveAhead::join() {
    stop();
    if (thread_.joinable()) thread_.join();
}

std::shared_ptr<PatchDownload> ArchiveAhead::take(const std::string& stem, bool wait, const Report& report) {
    for (std::uint64_t reported = 0;;) {
        std::shared_ptr<PatchDownload> download;
        {
            const base::MutexLock lock(mutex_);
            if (const auto found = waiting_.find(stem); found != waiting_.end()) {
                if (wait) dropBefore(found->second);
                waiting_.erase(stem);
                return nullptr;
            }
            const auto entry = entries_.find(stem);
            if (entry == entries_.end()) return nullptr;
            Entry& found = entry->second;
            if (wait) dropBefore(found.place);
            download = found.download;
            if (found.arrived) {
                entries_.erase(entry);
                changed_.notifyAll();
                return download;
            }
            found.joined = true;
            if (!wait || stopRequested()) found.wanted = false;
            (void)changed_.waitUntil(mutex_, std::chrono::steady_clock::now() + kReaction);
        }
        const std::uint64_t done = download->done();
        if (done != std::exchange(reported, done)) report(done, download->total());
    }
}

}  // namespace zelor::agent

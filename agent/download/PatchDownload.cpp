#include "agent/download/PatchDownload.h"

#include <algorithm>
#include <boost/thread/thread.hpp>
#include <ctime>
#include <stdexcept>
#include <utility>

#include "agent/DownloadProgress.h"
#include "agent/download/RangeHeaders.h"
#include "agent/log/FailureLine.h"
#include "platform/Log.h"
#include "remediation/CallReport.h"

namespace zelor::agent {

namespace {

constexpr std::uint64_t kSpareBytes = 64U << 20U;

bool wanted() {
    return !stopRequested();
}

std::string remedyFor(long status) {
    if (status == 404 || status == 410) return "publish the archive in the repository";
    if (status == 407) return "correct Proxy in section Network";
    if (status == 401 || status == 403) return "let the repository serve it without a login";
    return "look at the repository's own log";
}

}  // namespace

PatchDownload::PatchDownload(DownloadJob job, DownloadPolicy policy, HttpClient& client)
    : job_(std::move(job)),
      policy_(std::move(policy)),
      client_(&client),
      pace_(policy_.pace, job_.bytesPerSecond, std::chrono::steady_clock::now()) {}

PatchDownload::PatchDownload(DownloadJob job, DownloadPolicy policy)
    : job_(std::move(job)),
      policy_(std::move(policy)),
      client_(nullptr),
      pace_(policy_.pace, 0, std::chrono::steady_clock::now()),
      totalBytes_(job_.digest ? job_.digest->length : 0) {}

void PatchDownload::advance(std::uint64_t done, std::uint64_t total) {
    doneBytes_ = done;
    totalBytes_ = total;
    if (!shown_) return;
    DownloadProgress::instance().advance(done, total);
    CallReport::transferred(done, total);
}

std::optional<HttpRequest> PatchDownload::beginEarly() {
    turn_ = RepositoryTurn(policy_.outage, job_.name, policy_.othersLeft);
    if (!turn_.mayAsk()) return std::nullopt;
    fresh_ = partial_.emplace(job_.partialDirectory, job_.name).size() == 0;
    if (fresh_) return request();
    partial_.reset();
    return std::nullopt;
}

bool PatchDownload::takeEarly(const HttpResult& result) {
    turn_.learn(result);
    early_ = judge(result);
    return !turn_.isDown();
}

bool PatchDownload::adopt(DownloadJob job, bool othersLeft, HttpClient& client) {
    const bool same = job.url == job_.url && job.name == job_.name && job.digest == job_.digest &&
                      job.partialDirectory == job_.partialDirectory;
    if (!same) return false;
    job_ = std::move(job);
    policy_.othersLeft = othersLeft;
    client_ = &client;
    // While nobody asked for it, it was not slow.
    pace_ = PatchPace(policy_.pace, job_.bytesPerSecond, std::chrono::steady_clock::now());
    return true;
}

DownloadResult PatchDownload::run() {
    shown_ = true;
    DownloadProgress::instance().begin(job_.name);
    DownloadResult result = DownloadResult::failed;
    try {
        result = fetchAndMove();
    } catch (const std::exception& e) {
        problem_ = e.what();
        failedHere_ = true;
    }
    partial_.reset();
    DownloadProgress::instance().end();
    const std::string url = withoutCredentials(job_.url);
    const std::string failure = "[Downloader] cannot fetch " + url + ": " + problem_;
    if (result == DownloadResult::failed && mayAskAnother()) {
        log::error(failure, "; asking the next mirror");
    } else if (result == DownloadResult::failed) {
        if (turn_.isDown()) CallReport::addReason(turn_.reason(problem_));
        logFailure(failure);
    }
    if (result == DownloadResult::interrupted) log::info("[Downloader] stopped fetching ", url);
    return result;
}

DownloadResult PatchDownload::fetchAndMove() {
    if (!partial_) {
        turn_ = RepositoryTurn(policy_.outage, job_.name, policy_.othersLeft);
        if (!turn_.mayAsk()) {
            problem_ = turn_.reason();
            return DownloadResult::failed;
        }
        partial_.emplace(job_.partialDirectory, job_.name);
    }
    PartialFile& partial = *partial_;
    if (!goesOn_) pace_.startAt(early_ ? partial.size() : resumeAt());
    int failures = 0;
    Step step = Step::again;
    for (int attempts = 1; step != Step::done; ++attempts) {
        step = early_ ? takeOver() : attempt();
        if (step == Step::afresh) continue;
        if (step == Step::again) {
            failures = partial.size() > best_ ? 1 : failures + 1;
            best_ = std::max(best_, partial.size());
            step = pauseOrGiveUp(failures, attempts);
        }
        if (step == Step::failed || step == Step::interrupted) {
            if (partial.size() == 0) partial.discard();
            return step == Step::failed ? DownloadResult::failed : DownloadResult::interrupted;
        }
    }
    return partial.moveTo(job_.destination, job_.durable, wanted) ? DownloadResult::done
                                                                  : DownloadResult::interrupted;
}

/// After a failed attempt: `again`, or the end.
PatchDownload::Step PatchDownload::pauseOrGiveUp(int failures, int attempts) {
    if (isLate()) return late();
    const auto time = pauseAfter(failures, serverPause_, policy_.retry, randomChance());
    if (failures >= policy_.retry.attempts || attempts >= policy_.retry.attemptsInAll ||
        !turn_.mayGoOn(time, serverPause_)) {
        if (turn_.isDown()) turn_.gaveUp();
        problem_ += "; gave up after " + std::to_string(attempts) +
                    " attempts, the next run continues where this one stopped";
        return Step::failed;
    }
    log::info("[Downloader] trying ", withoutCredentials(job_.url), " again: ", problem_);
    return sleepUnlessInterrupted(time) ? Step::again : Step::interrupted;
}

PatchDownload::Step PatchDownload::late() {
    problem_ =
        "it is slower than " + std::to_string(pace_.pace()) +
        " bytes a second (PatchKiBPerSecond and PatchMinutes in section Limits); the next run continues "
        "where this one stopped";
    return Step::failed;
}

/// The early attempt as the first one of a download that is asked for now.
PatchDownload::Step PatchDownload::takeOver() {
    const Step step = *std::exchange(early_, std::nullopt);
    advance(partial_->size(), expected_);
    if (step == Step::done && !roomFor(partial_->size())) return Step::failed;
    return step;
}

PatchDownload::Step PatchDownload::attempt() {
    const HttpResult result = client_->perform(request());
    turn_.learn(result);
    return judge(result);
}

HttpRequest PatchDownload::request() {
    expected_ = 0;
    afresh_ = false;
    problem_.clear();
    serverPause_ = std::chrono::milliseconds(0);
    dropOtherPart();
    asked_ = resumeAt();
    hashPart();
    best_ = std::max(best_, asked_);
    HttpRequest request;
    request.url = job_.url;
    request.bytesPerSecond = job_.bytesPerSecond;
    request.limits = turn_.bounded(policy_.limits);
    if (asked_ != 0) {
        request.headers = {"Range: bytes=" + std::to_string(asked_) + "-"};
        if (!isOfAnother()) request.headers.push_back("If-Range: " + partial_->version().validator);
    }
    request.overdue = [this] { return isLate(); };
    request.onHead = [this](const HttpHead& head) { return takeHead(head); };
    request.onBody = [this](std::string_view piece) { return takeBody(piece); };
    return request;
}

PatchDownload::Step PatchDownload::judge(const HttpResult& result) {
    switch (result.outcome) {
        case HttpOutcome::answered:
            return judgeAnswer(result.head);
        case HttpOutcome::stopped:
            return afresh_ ? Step::afresh : Step::failed;  // takeHead or takeBody said why
        case HttpOutcome::interrupted:
            return Step::interrupted;
        case HttpOutcome::overdue:
            return late();
        case HttpOutcome::transient:
            problem_ = result.error + "; check that the repository can be reached";
            return Step::again;
        case HttpOutcome::permanent:
            break;
    }
    problem_ = result.error + "; correct the repository's address, certificate or redirects";
    return Step::failed;
}

PatchDownload::Step PatchDownload::judgeAnswer(const HttpHead& head) {
    if (head.status == 200 || head.status == 206) {
        if (expected_ == 0 || partial_->size() == expected_) return judgeWhole();
        problem_ = "the answer ended after " + std::to_string(partial_->size()) + " of " +
                   std::to_string(expected_) + " bytes";
        return Step::again;
    }
    problem_ = "the repository answered " + std::to_string(head.status);
    if (statusIsTransient(head.status)) {
        serverPause_ = retryAfter(head.header("retry-after"), std::time(nullptr));
        return Step::again;
    }
    if (head.status == 416) {
        (void)refusePart(problem_);
        if (afresh_) return Step::afresh;
    }
    problem_ += "; " + remedyFor(head.status);
    return Step::failed;
}

std::uint64_t PatchDownload::resumeAt() {
    return partial_->resumeAt(job_.url,
                              job_.digest ? std::optional<std::uint64_t>(job_.digest->length) : std::nullopt);
}

/// Drops a part that can only become another archive than the wanted one.
void PatchDownload::dropOtherPart() {
    if (!job_.digest) return;
    const std::uint64_t total = partial_->version().total;
    if (partial_->size() > job_.digest->length || (total != 0 && total != job_.digest->length))
        partial_->restart({});
}

void PatchDownload::hashPart() {
    if (!job_.digest) return;
    (void)sha256_.finish();
    if (asked_ == 0) return;
    partial_->read([this](std::string_view piece) {
        sha256_.add(piece);
        return wanted();
    });
}

PatchDownload::Step PatchDownload::judgeWhole() {
    if (!job_.digest) return Step::done;
    const FileDigest came = sha256_.finish();
    if (came == *job_.digest) return Step::done;
    // What an earlier attempt left may be the wrong part of it.
    (void)refusePart("it is not the archive that the content asks for: " + describe(came) + " came, not " +
                     describe(*job_.digest) + "; publish the entry again");
    return afresh_ ? Step::afresh : Step::failed;
}

/// Takes the announced size of the whole archive, 0 for none. False when it cannot be the wanted one.
bool PatchDownload::takeTotal(std::uint64_t total) {
    expected_ = total;
    if (!job_.digest) return true;
    expected_ = job_.digest->length;
    if (total == 0 || total == expected_) return true;
    return refusePart("the repository has an archive of " + std::to_string(total) +
                      " bytes, and the content asks for one of " + std::to_string(expected_) +
                      "; publish the entry again");
}

void PatchDownload::restart(const PartialFile::Version& version) {
    partial_->restart(version);
    if (job_.digest) (void)sha256_.finish();
}

bool PatchDownload::refuse(const std::string& problem) {
    problem_ = problem;
    return false;
}

bool PatchDownload::refusePart(const std::string& problem) {
    afresh_ = asked_ != 0 && !startedAfresh_;
    startedAfresh_ = true;
    restart({});
    if (afresh_)
        log::info("[Downloader] fetching ", withoutCredentials(job_.url), " from its start: ", problem);
    return refuse(problem);
}

bool PatchDownload::takeHead(const HttpHead& head) {
    if (head.status == 206) return takePart(head);
    if (head.status == 200) return takeWhole(head);
    return true;
}

bool PatchDownload::takeWhole(const HttpHead& head) {
    const std::uint64_t total = contentLength(head);
    restart({job_.url, resumptionValidator(head), total});
    pace_.startAt(0);
    if (!takeTotal(total)) return false;
    advance(0, expected_);
    return roomFor(expected_);
}

bool PatchDownload::takePart(const HttpHead& head) {
    const PartialFile::Version& version = partial_->version();
    const auto range = parseContentRange(head.header("content-range"));
    if (asked_ == 0 || !range || range->first != asked_) {
        return refusePart("asked for bytes from " + std::to_string(asked_) + ", got \"" +
                          head.header("content-range") + "\"; look at the repository's handling of ranges");
    }
    const std::string validator = resumptionValidator(head);
    const bool sameKind = !isOfAnother() && !validator.empty() &&
                          (validator.front() == '"') == (version.validator.front() == '"');
    const std::uint64_t known = version.total;
    if ((sameKind && validator != version.validator) ||
        (known != 0 && range->total != 0 && known != range->total)) {
        return refusePart("the repository sent a part of another version; look at its handling of If-Range");
    }
    if (!takeTotal(range->total != 0 ? range->total : known)) return false;
    advance(asked_, expected_);
    return roomFor(expected_);
}

bool PatchDownload::roomFor(std::uint64_t total) {
    const std::uint64_t missing = total > partial_->size() ? total - partial_->size() : 0;
    const auto check = [this](const std::string& path, std::uint64_t need) {
        const std::uint64_t room = policy_.freeBytes(path);
        if (need <= room) return true;
        failedHere_ = true;
        return refuse(path + " needs " + std::to_string(need) + " free bytes and has " +
                      std::to_string(room) + "; make room there");
    };
    if (!check(job_.partialDirectory, missing)) return false;
    if (job_.destination.empty()) return true;  // it is not known yet
    return onOneFileSystem(job_.partialDirectory, job_.destination) || check(job_.destination, total);
}

bool PatchDownload::takeBody(std::string_view piece) {
    if (expected_ != 0 && piece.size() > expected_ - partial_->size()) {
        return refusePart("more than the announced " + std::to_string(expected_) +
                          " bytes came; publish it again");
    }
    // A body without an announced length may be endless: it must not fill the disk, and what it has is
    // dropped.
    if (expected_ == 0 && !roomFor(partial_->size() + piece.size() + kSpareBytes)) {
        restart({});
        return false;
    }
    partial_->append(piece);
    pace_.reached(partial_->size());
    if (job_.digest) sha256_.add(piece);
    advance(partial_->size(), expected_);
    return true;
}

}  // namespace zelor::agent

#include "agent/http/RepositoryOutage.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "agent/RepositoryStatus.h"

namespace zelor::agent {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kPatience{15'000};  ///< of a series, from the first attempt without an answer
constexpr milliseconds kProbeLimit{3'000};
constexpr milliseconds kFirstProbePause{5'000};
constexpr milliseconds kLongestProbePause{30'000};
constexpr milliseconds kLongestAsked{300'000};
constexpr std::chrono::minutes kForgotten{10};  ///< an outage that nobody has met for so long

/// The server answered, and not with its own trouble.
bool isAnswer(const HttpResult& result) {
    return result.head.status != 0 && result.head.status < 500;
}

bool isSilence(const HttpResult& result) {
    const bool tried = result.outcome == HttpOutcome::transient || result.outcome == HttpOutcome::overdue;
    return result.head.status >= 500 || (tried && result.head.status == 0);
}

HttpLimits atMost(HttpLimits limits, milliseconds time) {
    limits.connectTimeout = std::min(limits.connectTimeout, time);
    limits.firstAnswer = std::min(limits.firstAnswer, time);
    return limits;
}

}  // namespace

RepositoryOutage::Turn RepositoryOutage::turn(const std::string& file, Time now) const {
    if (!since_ || !known_ || now - last_ > kForgotten) return Turn::series;
    if (!everyFile_ && file != file_) return Turn::probe;
    return now < nextProbe_ ? Turn::none : Turn::probe;
}

RepositoryOutage::Turn RepositoryOutage::begin(const std::string& file, Time now) {
    const base::MutexLock lock(mutex_);
    if (since_ && now - last_ > kForgotten) {
        since_.reset();
        known_ = false;
    }
    const Turn given = turn(file, now);
    if (given == Turn::probe && now >= nextProbe_) nextProbe_ = now + kFirstProbePause;
    return given;
}

bool RepositoryOutage::mayAsk(const std::string& file, Time now) const {
    const base::MutexLock lock(mutex_);
    return turn(file, now) != Turn::none;
}

HttpLimits RepositoryOutage::bounded(Turn turn, HttpLimits limits, Time now) const {
    if (turn == Turn::probe) return atMost(limits, kProbeLimit);
    const base::MutexLock lock(mutex_);
    if (!since_) return limits;
    const auto left = std::chrono::duration_cast<milliseconds>(*since_ + kPatience - now);
    return atMost(limits, std::max(left, kProbeLimit));
}

void RepositoryOutage::start(const std::string& file, Time now) {
    if (since_) {
        everyFile_ = everyFile_ || file != file_;
    } else {
        since_ = now;
        sinceText_ = std::chrono::system_clock::now() -
                     std::chrono::duration_cast<std::chrono::system_clock::duration>(Clock::now() - now);
        file_ = file;
        everyFile_ = false;
        known_ = false;
        probes_ = 0;
        waited_ = false;
    }
    last_ = std::max(last_, now);
}

bool RepositoryOutage::learn(const std::string& file, const HttpResult& result, Time began) {
    const base::MutexLock lock(mutex_);
    if (isAnswer(result)) since_.reset();
    if (!isSilence(result)) return false;
    start(file, began);
    if (result.head.status == 0) everyFile_ = true;  // there was no server to have trouble with a file
    return true;
}

bool RepositoryOutage::isOneFile() const {
    const base::MutexLock lock(mutex_);
    return since_ && !everyFile_;
}

bool RepositoryOutage::mayGoOn(Turn turn, Time next, Milliseconds asked) {
    if (turn != Turn::series) return false;
    const base::MutexLock lock(mutex_);
    if (!since_) return true;
    if (known_) return false;  // another thread's request found out
    if (asked > Milliseconds::zero()) return !std::exchange(waited_, true);
    return next < *since_ + kPatience;
}

void RepositoryOutage::gaveUp(const std::string& file, Time now, Milliseconds asked) {
    const base::MutexLock lock(mutex_);
    start(file, now);
    last_ = now;
    known_ = true;
    const Milliseconds pause = std::min(kFirstProbePause * (1 << std::min(probes_, 3)), kLongestProbePause);
    if (everyFile_) ++probes_;
    nextProbe_ = now + std::max(pause, std::min(asked, kLongestAsked));
}

std::string RepositoryOutage::reason() const {
    const base::MutexLock lock(mutex_);
    if (!since_) return kRepositoryDown;
    const std::time_t time = std::chrono::system_clock::to_time_t(sinceText_);
    std::tm parts{};
    std::array<char, 32> text{};
    if (gmtime_r(&time, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%H:%M:%S", &parts) == 0)
        return kRepositoryDown;
    return std::string(kRepositoryDown) + " since " + text.data() + " UTC";
}

RepositoryTurn::RepositoryTurn(std::shared_ptr<RepositoryOutage> outage, std::string file, bool othersLeft)
    : outage_(std::move(outage)),
      file_(std::move(file)),
      turn_(outage_ ? outage_->begin(file_, Clock::now()) : RepositoryOutage::Turn::series),
      othersLeft_(othersLeft) {}

HttpLimits RepositoryTurn::bounded(const HttpLimits& limits) {
    began_ = Clock::now();
    return outage_ ? outage_->bounded(turn_, limits, began_) : limits;
}

void RepositoryTurn::learn(const HttpResult& result) {
    if (!outage_) return;
    begun_ = result.head.status >= 200 && result.head.status < 300;
    silent_ = outage_->learn(file_, result, began_);
    asked_ = milliseconds(0);
}

bool RepositoryTurn::mayGoOn(milliseconds pause, milliseconds asked) {
    asked_ = asked;
    if (othersLeft_) return begun_;
    return !outage_ || !silent_ || outage_->mayGoOn(turn_, Clock::now() + pause, asked);
}

void RepositoryTurn::gaveUp() {
    if (outage_ && mayAsk()) outage_->gaveUp(file_, Clock::now(), asked_);
}

}  // namespace zelor::agent

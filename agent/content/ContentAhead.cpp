#include "agent/content/ContentAhead.h"

#include <exception>
#include <memory>
#include <utility>

#include "agent/http/Deadline.h"
#include "agent/http/HttpTransfer.h"
#include "agent/http/RepositoryOutage.h"
#include "base/Strings.h"
#include "platform/Log.h"

namespace zelor::agent {

namespace {

using Kind = ContentAnswer::Kind;

std::size_t bytesOf(const ContentAnswer& answer) {
    return answer.content.xml.size() + answer.content.signature.size();
}

/// Whether what was said when `asked` was asked answers `question` too. Content without an index does so
/// whatever version was known, but for the word that it is unchanged.
bool isAnswer(const ContentAnswer& answer, const ContentQuestion& asked, const ContentQuestion& question) {
    if (asked == question) return true;
    return !asked.listed && !question.listed && answer.kind != Kind::unchanged;
}

}  // namespace

/// One identifier's way through the worker: the content, then its signature.
struct ContentAhead::Transfer {
    std::string identifier;
    std::size_t mirror = 0;
    ContentQuestion question;
    ContentExchange exchange;
    Deadline deadline;
    std::string body{};
    bool tooLarge = false;
};

/// What the worker's thread has in progress.
class ContentAhead::Work {
  public:
    explicit Work(ContentAhead& ahead) : ahead_(ahead), transfers_(client_, kParallel) {}

    void run() {
        for (;;) {
            while (transfers_.inHand() < allowed()) {
                std::optional<std::string> identifier = ahead_.next(transfers_.inHand() == 0);
                if (!identifier) break;
                begin(*identifier);
            }
            if (transfers_.inHand() == 0) return;
            transfers_.work();
        }
    }

  private:
    // Over TLS the first answer shows whether one connection is enough for all (HTTP/2), and after trouble
    // with one file whether there is trouble with all.
    std::size_t allowed() const {
        const Mirror& mirror = ahead_.mirrors_[mirror_];
        if (mirror.outage->isOneFile()) return 1;
        return answered_ || !base::hasBeginningInAnyCase(mirror.url, "https:") ? kParallel : 1;
    }

    void begin(const std::string& identifier) {
        const Mirror& mirror = ahead_.mirrors_[mirror_];
        auto question = ahead_.question_(identifier, mirror.source, [this] { return ahead_.isStopping(); });
        if (!question) return ahead_.drop(identifier);
        // The index may have been asked for meanwhile, and met an outage.
        const bool isDown = !mirror.outage->mayAsk(identifier, std::chrono::steady_clock::now());
        if (isDown && mirror_ + 1 < ahead_.mirrors_.size()) return goElsewhere(identifier, mirror_);
        ContentExchange exchange(mirror, identifier, *question);
        const Deadline deadline(SharedTime(ahead_.longest_).left(0, ahead_.mirrors_.size() - mirror_));
        ask(std::make_shared<Transfer>(
            Transfer{identifier, mirror_, *std::move(question), std::move(exchange), deadline}));
    }

    void ask(const std::shared_ptr<Transfer>& transfer) {
        HttpRequest request = transfer->exchange.request();
        request.limits = contentLimits();
        request.overdue = [this, transfer] {
            return transfer->deadline.passed() || !ahead_.isWanted(transfer->identifier);
        };
        transfer->body.clear();
        request.onBody = [transfer](std::string_view piece) {
            transfer->tooLarge = piece.size() > transfer->exchange.limit() - transfer->body.size();
            if (!transfer->tooLarge) transfer->body += piece;
            return !transfer->tooLarge;
        };
        const auto began = std::chrono::steady_clock::now();
        transfers_.start(std::move(request),
                         [=](HttpResult result) { take(transfer, std::move(result), began); });
    }

    void take(const std::shared_ptr<Transfer>& transfer, HttpResult result,
              std::chrono::steady_clock::time_point began) {
        if (!ahead_.isWanted(transfer->identifier)) return;
        const RepositoryOutage& outage = *ahead_.mirrors_[transfer->mirror].outage;
        if (ahead_.mirrors_[transfer->mirror].outage->learn(transfer->identifier, result, began))
            return outage.isOneFile() ? ahead_.drop(transfer->identifier)
                                      : goElsewhere(transfer->identifier, transfer->mirror);
        answered_ = true;
        // Redirects, and what another attempt may change, are for who wants the answer.
        const long status = result.head.status;
        const bool late = result.outcome == HttpOutcome::overdue;
        if (status >= 300 && status < 400 && status != 304) return ahead_.drop(transfer->identifier);
        std::optional<ContentAnswer> answer =
            transfer->exchange.take({std::move(result), std::move(transfer->body), transfer->tooLarge});
        if (!answer) return ask(transfer);
        if (answer->kind == Kind::noAnswer && !late) return ahead_.drop(transfer->identifier);
        ahead_.arrived(transfer->identifier, std::move(transfer->question), std::move(*answer));
    }

    /// That mirror is down.
    void goElsewhere(const std::string& identifier, std::size_t mirror) {
        if (mirror + 1 == ahead_.mirrors_.size()) return ahead_.failed();
        if (mirror_ == mirror) {
            ++mirror_;
            answered_ = false;
        }
        ahead_.askAgain(identifier);
    }

    ContentAhead& ahead_;
    std::size_t mirror_ = 0;
    bool answered_ = false;
    HttpClient client_;
    ParallelTransfers transfers_;
};

void ContentAhead::begin(std::vector<Mirror> mirrors, const std::vector<std::string>& identifiers,
                         Question question, std::chrono::milliseconds longest) {
    join();
    if (identifiers.empty()) return;
    mirrors_ = std::move(mirrors);
    question_ = std::move(question);
    longest_ = longest;
    {
        const base::MutexLock lock(mutex_);
        for (const std::string& identifier : identifiers)
            if (entries_.try_emplace(identifier).second) queue_.push_back(identifier);
        stopping_ = false;
    }
    try {
        thread_ = std::thread([this] { run(); });
    } catch (...) {
        stop();
        throw;
    }
}

void ContentAhead::run() {
    try {
        Work(*this).run();
    } catch (const std::exception& problem) {
        log::debug("[CreCacher] content is no longer fetched ahead: ", problem.what());
    }
    const base::MutexLock lock(mutex_);
    for (auto entry = entries_.begin(); entry != entries_.end();)
        entry = entry->second.state == State::arrived ? std::next(entry) : entries_.erase(entry);
    changed_.notifyAll();
}

// The next identifier to ask about; none while there is no room for another answer, for which an idle worker
// waits.
std::optional<std::string> ContentAhead::next(bool idle) {
    const base::MutexLock lock(mutex_);
    while (idle && !stopping_ && held_ > kHeldBytes && !queue_.empty())
        changed_.wait(mutex_);
    while (!stopping_ && held_ <= kHeldBytes && !queue_.empty()) {
        std::string identifier = std::move(queue_.front());
        queue_.pop_front();
        const auto entry = entries_.find(identifier);
        if (entry == entries_.end()) continue;  // dropped, or asked for by who wanted it
        entry->second.state = State::inHand;
        return identifier;
    }
    return std::nullopt;
}

bool ContentAhead::isWanted(const std::string& identifier) {
    const base::MutexLock lock(mutex_);
    return !stopping_ && entries_.count(identifier) != 0;
}

bool ContentAhead::isStopping() {
    const base::MutexLock lock(mutex_);
    return stopping_;
}

void ContentAhead::arrived(const std::string& identifier, ContentQuestion question, ContentAnswer answer) {
    const base::MutexLock lock(mutex_);
    const auto entry = entries_.find(identifier);
    if (entry == entries_.end()) return;
    held_ += bytesOf(answer);
    entry->second = {State::arrived, std::move(question), std::move(answer)};
    changed_.notifyAll();
}

void ContentAhead::askAgain(const std::string& identifier) {
    const base::MutexLock lock(mutex_);
    const auto entry = entries_.find(identifier);
    if (entry == entries_.end()) return;
    entry->second.state = State::waiting;
    queue_.push_front(identifier);
    changed_.notifyAll();
}

void ContentAhead::failed() {
    const base::MutexLock lock(mutex_);
    queue_.clear();
    for (auto entry = entries_.begin(); entry != entries_.end();)
        entry = entry->second.state == State::arrived ? std::next(entry) : entries_.erase(entry);
    changed_.notifyAll();
}

void ContentAhead::drop(const std::string& identifier) {
    const base::MutexLock lock(mutex_);
    const auto entry = entries_.find(identifier);
    if (entry == entries_.end()) return;
    held_ -= bytesOf(entry->second.answer);
    entries_.erase(entry);
    changed_.notifyAll();
}

void ContentAhead::stop() {
    const base::MutexLock lock(mutex_);
    stopping_ = true;
    queue_.clear();
    entries_.clear();
    held_ = 0;
    changed_.notifyAll();
}

void ContentAhead::join() {
    stop();
    if (thread_.joinable()) thread_.join();
}

std::optional<ContentAnswer> ContentAhead::take(const std::string& identifier,
                                                const ContentQuestion& question) {
    const base::MutexLock lock(mutex_);
    for (;;) {
        const auto found = entries_.find(identifier);
        if (found == entries_.end()) return std::nullopt;
        Entry& entry = found->second;
        if (entry.state != State::inHand) {
            std::optional<ContentAnswer> answer;
            held_ -= bytesOf(entry.answer);
            if (entry.state == State::arrived && isAnswer(entry.answer, entry.question, question))
                answer = std::move(entry.answer);
            entries_.erase(found);
            changed_.notifyAll();
            return answer;
        }
        if (stopRequested()) return std::nullopt;
        (void)changed_.waitUntil(mutex_, std::chrono::steady_clock::now() + kReaction);
    }
}

}  // namespace zelor::agent

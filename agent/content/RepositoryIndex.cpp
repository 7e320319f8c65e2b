#include "agent/content/RepositoryIndex.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "agent/ContentCacheControl.h"
#include "agent/http/Deadline.h"
#include "platform/Log.h"

namespace zelor::agent {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::minutes kIndexTime{10};
constexpr std::chrono::seconds kSilentTime{5};  ///< until a repository that did not answer is asked again
constexpr std::size_t kWarningsLimit = 20;

trust::ClientOptions clientOptions(Freshness freshness) {
    trust::ClientOptions options;
    // At the time 0 nothing has expired.
    options.signedTime = freshness != Freshness::off;
    if (options.signedTime) options.now = std::time(nullptr);
    return options;
}

}  // namespace

/// The index of one repository and root in one run.
class RepositoryIndex::Session {
  public:
    Session(RepositoryIndex& index, const AgentSettings& settings, std::shared_ptr<Mirrors> mirrors)
        : mirrors_(std::move(mirrors)),
          root_(settings.values().root),
          freshness_(settings.values().freshness),
          rootStamp_(base::stampOf(root_)),
          run_(currentRun()),
          fetcher_(index.clients_, index.retry_),
          store_(index.directory_),
          client_(fetcher_, store_, clientOptions(freshness_)) {}

    bool serves(const AgentSettings& settings, const std::shared_ptr<Mirrors>& mirrors) const {
        const auto age = Clock::now() - refreshed_;
        return run_ == currentRun() && mirrors_ == mirrors && root_ == settings.values().root &&
               freshness_ == settings.values().freshness && rootStamp_ == base::stampOf(root_) && !stopped_ &&
               age < (silent_ ? Clock::duration(kSilentTime) : Clock::duration(kIndexTime));
    }

    void refresh(const AgentSettings& settings, const StopSource& stop) {
        base::Check good = configure();
        silent_ = false;
        if (good) {
            good = askEach(settings, stop, silent_, [this] { return client_.refresh(); });
        } else if (const auto loaded = client_.load(); !loaded) {
            log::debug("[RepositoryIndex] ", loaded.error().text);
        }
        current_ = good.has_value();
        stopped_ = fetcher_.isStopped();
        refreshed_ = Clock::now();
        const auto roles = client_.roles();
        known_ = std::any_of(roles.begin(), roles.end(),
                             [](const trust::RoleState& role) { return role.role == trust::kTargetsRole; });
        if (!stopped_) judge(good ? "" : good.error().text);
    }

    Listing find(const AgentSettings& settings, const std::string& path, const StopSource& stop) {
        Listing listing;
        if (stopped_) {
            listing.kind = Listing::Kind::stopped;
            return listing;
        }
        listing.problem = problem_;
        if (!known_) return listing;
        if (current_) {
            const auto found = askEach(settings, stop, listing.silent, [&] { return client_.find(path); });
            listing.current = found.has_value();
            if (found) return take(std::move(listing), *found);
            if (fetcher_.isStopped()) return stoppedListing();
            listing.problem = found.error().text;
            report(listing.problem, listing.silent);
        }
        const auto kept = client_.findKept(path);
        if (kept) return take(std::move(listing), *kept);
        listing.kind = Listing::Kind::unknown;
        listing.silent = listing.silent || (!current_ && silent_);
        if (listing.problem.empty()) listing.problem = kept.error().text;
        return listing;
    }

    /// What is to be known when the configured root replaced the kept one; "" otherwise.
    const std::string& begunAnew() const { return begunAnew_; }

    /// Logs nothing again that an earlier session of the run has logged.
    void keepQuietAbout(Session&& earlier) {
        if (earlier.run_ == run_) reported_ = std::move(earlier.reported_);
    }

  private:
    /// What `step` returns with the first mirror that it succeeds with, or the failures of all; `silent` says
    /// whether none of them answered.
    template <class Step>
    auto askEach(const AgentSettings& settings, const StopSource& stop, bool& silent, const Step& step)
        -> decltype(step()) {
        const SharedTime time(std::chrono::seconds(settings.values().contentSeconds));
        const std::vector<Mirror> toAsk = mirrors_->toAsk("metadata/timestamp.json");
        std::string failures;
        silent = true;
        for (std::size_t i = 0;; ++i) {
            const bool othersLeft = i + 1 < toAsk.size();
            fetcher_.begin(toAsk[i], othersLeft, time.left(i, toAsk.size()), stop);
            auto done = step();
            if (done && fetcher_.hasServed()) mirrors_->served(toAsk[i]);
            silent = silent && fetcher_.isSilent();
            if (done || fetcher_.isStopped()) return done;
            const std::string& mirror = toAsk[i].source;
            const std::string failure = (mirror.empty() ? "" : mirror + ": ") + done.error().text;
            failures += (failures.empty() ? "" : "; ") + failure;
            if (!othersLeft) return base::failure(failures);
            report(failure + "; asking " + toAsk[i + 1].source, fetcher_.isSilent());
        }
    }

    base::Check configure() {
        try {
            // On managed machines, configuration files are often symbolic links, so a link is followed here.
            const auto begun =
                client_.initialise(base::readBounded(root_, trust::Limits().root, base::Links::follow));
            if (!begun) return base::failure(begun.error());
            begunAnew_ = *begun;
            if (!begunAnew_.empty()) log::error("[RepositoryIndex] ", begunAnew_);
            return {};
        } catch (const std::exception& e) {
            return base::failure(e.what());
        }
    }

    static Listing stoppedListing() {
        Listing listing;
        listing.kind = Listing::Kind::stopped;
        return listing;
    }

    Listing take(Listing listing, const std::optional<trust::TargetFile>& file) const {
        listing.kind = file ? Listing::Kind::listed : Listing::Kind::unlisted;
        if (file) listing.file = {client_.downloadPath(*file), *file};
        return listing;
    }

    /// `failure`: of the refresh; "" for none.
    void judge(const std::string& failure) {
        problem_.clear();
        if (!failure.empty()) report(failure, silent_);
        if (!known_) {
            problem_ = "there is no index of the repository yet: " + failure;
        } else if (!failure.empty() && !silent_) {
            problem_ = failure;
        } else if (!current_) {
            problem_ = expiry();
            if (!problem_.empty()) report(problem_, false);
        }
        if (current_ || !silent_) store_.setRefusal(failure);
    }

    /// What of the kept index has expired; "" when nothing has.
    std::string expiry() const {
        for (const trust::RoleState& role : client_.roles()) {
            const trust::Header header{role.version, role.expires};
            const auto fresh = trust::requireFresh(role.role, header, client_.now());
            if (!fresh) return fresh.error().text;
        }
        return "";
    }

    /// Logs each text once.
    void report(const std::string& text, bool silent) {
        if (!reported_.insert(text).second) return;
        const std::string line = "[RepositoryIndex] " + text;
        if (freshness_ == Freshness::off) {
            log::debug(line);
        } else if (silent) {
            log::info(line);
        } else {
            log::error(line);
        }
    }

    std::shared_ptr<Mirrors> mirrors_;
    std::string root_;
    Freshness freshness_;
    base::FileStamp rootStamp_;
    std::uint64_t run_;
    IndexFetcher fetcher_;
    IndexStore store_;
    trust::Client client_;
    bool known_ = false;    ///< there is an index
    bool current_ = false;  ///< and it was brought up to date
    bool silent_ = false;   ///< nobody answered
    bool stopped_ = false;
    Clock::time_point refreshed_{};
    std::string begunAnew_;
    std::string problem_;  ///< why it is not known to be the newest; "" when it is fresh
    std::set<std::string> reported_;
};

/// The session is this thread's for the life of the object.
class RepositoryIndex::Turn {
  public:
    Turn(RepositoryIndex& index, const StopSource& stop) : index_(index), mine_(index.enter(stop)) {}
    ~Turn() {
        if (mine_) index_.leave();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    explicit operator bool() const { return mine_; }

  private:
    RepositoryIndex& index_;
    bool mine_;
};

RepositoryIndex::RepositoryIndex(std::string directory, HttpClientPool& clients, RetryPolicy retry)
    : directory_(std::move(directory)), clients_(clients), retry_(retry) {}

RepositoryIndex::~RepositoryIndex() = default;

Listing RepositoryIndex::find(const AgentSettings& settings, const std::string& path,
                              const StopSource& stop) {
    if (settings.values().root.empty()) return {};
    const auto mirrors = Mirrors::ofRun(settings);
    const Turn turn(*this, stop);
    Listing listing;
    listing.kind = Listing::Kind::stopped;
    if (!turn) return listing;
    listing = sessionFor(settings, mirrors, stop).find(settings, path, stop);
    // Of a repository that does not answer, each request says so itself.
    if (!listing.problem.empty() && !(listing.kind == Listing::Kind::unknown && listing.silent))
        warn(settings, listing.problem);
    return listing;
}

RepositoryIndex::Session& RepositoryIndex::sessionFor(const AgentSettings& settings,
                                                      const std::shared_ptr<Mirrors>& mirrors,
                                                      const StopSource& stop) {
    if (!session_ || !session_->serves(settings, mirrors)) {
        auto next = std::make_unique<Session>(*this, settings, mirrors);
        if (session_) next->keepQuietAbout(std::move(*session_));
        session_ = std::move(next);
        session_->refresh(settings, stop);
        if (!session_->begunAnew().empty()) warn(settings, session_->begunAnew());
    }
    return *session_;
}

bool RepositoryIndex::enter(const StopSource& stop) {
    const base::MutexLock lock(mutex_);
    while (busy_) {
        if (stop()) return false;
        (void)free_.waitUntil(mutex_, Clock::now() + kReaction);
    }
    busy_ = true;
    return true;
}

void RepositoryIndex::leave() {
    const base::MutexLock lock(mutex_);
    busy_ = false;
    free_.notifyAll();
}

void RepositoryIndex::warn(const AgentSettings& settings, const std::string& warning) {
    if (settings.values().freshness == Freshness::off) return;
    const std::uint64_t run = currentRun();
    const base::MutexLock lock(mutex_);
    if (run != warnedRun_) warnings_.clear();
    warnedRun_ = run;
    const bool known = std::find(warnings_.begin(), warnings_.end(), warning) != warnings_.end();
    if (!known && warnings_.size() < kWarningsLimit) warnings_.push_back(warning);
}

std::vector<std::string> RepositoryIndex::warnings() const {
    const std::uint64_t run = currentRun();
    const base::MutexLock lock(mutex_);
    return run == warnedRun_ ? warnings_ : std::vector<std::string>();
}

}  // namespace zelor::agent

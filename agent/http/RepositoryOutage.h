#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "agent/http/HttpClient.h"
#include "base/Mutex.h"

namespace zelor::agent {

/// What a process knows of a repository that does not answer: one memory for content and archives, so that
/// each request does not find out for itself. An outage begins with an attempt that brings no answer, or one
/// of the server's own trouble (5xx), and ends with any other answer. The request that meets it first makes
/// its series of attempts, which ends after a quarter of a minute; later ones make one short attempt, a
/// probe, and none at all until the next probe is due. Trouble with one file may be the file's alone: a
/// request for another one then probes at once, and only when it fails too does nobody ask. Any thread.
class RepositoryOutage {
  public:
    /// The clock of all moments.
    using Time = std::chrono::steady_clock::time_point;
    using Milliseconds = std::chrono::milliseconds;

    /// How a request may ask.
    enum class Turn {
        series,  ///< with its own limits and attempts
        probe,   ///< once, and briefly; nobody else is given this probe
        none     ///< not now
    };
    /// For a request for `file`, by any name that it alone has.
    Turn begin(const std::string& file, Time now);
    /// False when that would be `none`.
    bool mayAsk(const std::string& file, Time now) const;
    /// `limits`, or less: for a probe, or as far as the patience with the outage goes.
    HttpLimits bounded(Turn turn, HttpLimits limits, Time now) const;
    /// Takes note of how an attempt for `file` that began at `began` ended. True when it speaks for an
    /// outage.
    bool learn(const std::string& file, const HttpResult& result, Time began);
    /// True when the server had trouble with one file, and no other was asked for since.
    bool isOneFile() const;
    /// Whether a series may go on at `next`; a pause that the server `asked` for is waited for once.
    bool mayGoOn(Turn turn, Time next, Milliseconds asked);
    /// A request for `file` ends at `now` without an answer, and later ones are to probe, no sooner than the
    /// server `asked` for.
    void gaveUp(const std::string& file, Time now, Milliseconds asked);
    /// kRepositoryDown and since when, for a log line or a display.
    std::string reason() const;

  private:
    Turn turn(const std::string& file, Time now) const ZELOR_REQUIRES(mutex_);
    void start(const std::string& file, Time now) ZELOR_REQUIRES(mutex_);

    mutable base::Mutex mutex_;
    std::optional<Time> since_ ZELOR_GUARDED_BY(mutex_);  ///< nothing: there is no outage
    std::chrono::system_clock::time_point sinceText_ ZELOR_GUARDED_BY(mutex_);
    Time last_ ZELOR_GUARDED_BY(mutex_){};
    Time nextProbe_ ZELOR_GUARDED_BY(mutex_){};
    bool known_ ZELOR_GUARDED_BY(mutex_) = false;  ///< a request gave up
    std::string file_ ZELOR_GUARDED_BY(mutex_);    ///< that it began with
    bool everyFile_ ZELOR_GUARDED_BY(mutex_) = false;
    int probes_ ZELOR_GUARDED_BY(mutex_) = 0;
    bool waited_ ZELOR_GUARDED_BY(mutex_) = false;  ///< as long as the server asked for
};

/// One request's way through an outage: its attempts ask it. Without a memory it allows everything. One
/// thread.
class RepositoryTurn {
  public:
    RepositoryTurn() = default;
    /// Takes the turn of a request for `file` now. With another mirror to ask, only a transfer that broke off
    /// is worth another attempt.
    RepositoryTurn(std::shared_ptr<RepositoryOutage> outage, std::string file, bool othersLeft = false);

    /// False: the repository is not to be asked.
    bool mayAsk() const { return turn_ != RepositoryOutage::Turn::none; }
    /// The limits of the attempt that begins now.
    HttpLimits bounded(const HttpLimits& limits);
    /// Takes note of how that attempt ended.
    void learn(const HttpResult& result);
    /// Whether another attempt may follow after `pause`, of which the server asked for `asked`.
    bool mayGoOn(std::chrono::milliseconds pause, std::chrono::milliseconds asked);
    /// The request ends without an answer.
    void gaveUp();
    /// True when the last attempt met an outage, or there was none for it.
    bool isDown() const { return outage_ && (silent_ || !mayAsk()); }
    /// `RepositoryOutage::reason`; "" without a memory.
    std::string reason() const { return outage_ ? outage_->reason() : ""; }
    /// The same for a request that met the outage with `problem`: a series has something to say of its own.
    std::string reason(const std::string& problem) const {
        return turn_ == RepositoryOutage::Turn::series ? reason() + ": " + problem : reason();
    }

  private:
    std::shared_ptr<RepositoryOutage> outage_;
    std::string file_;
    RepositoryOutage::Turn turn_ = RepositoryOutage::Turn::series;
    RepositoryOutage::Time began_{};
    std::chrono::milliseconds asked_{0};
    bool othersLeft_ = false;
    bool begun_ = false;
    bool silent_ = false;
};

}  // namespace zelor::agent

#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "agent/AgentSettings.h"
#include "agent/content/IndexFiles.h"
#include "agent/http/Mirrors.h"
#include "base/Mutex.h"

namespace zelor::agent {

/// What the signed index of a repository says of one file.
struct Listing {
    /// Whether the file is listed, or why that is not known.
    enum class Kind {
        none,      ///< there is no index: without a root, or until one was accepted
        listed,    ///< `file` says what it must be
        unlisted,  ///< the repository does not have it
        unknown,   ///< the part of the index that could list it cannot be had
        stopped    ///< the caller asked for an early end
    };
    Kind kind = Kind::none;
    ListedContent file;
    bool current = false;   ///< the index was brought up to date for this
    bool silent = false;    ///< `unknown`, because nobody answered
    std::string problem{};  ///< why the index is not known to be the newest; "" when it is fresh

    /// True when `file` counts.
    bool isListed() const { return kind == Kind::listed; }
};

/// The signed index of a repository, which lists the newest file for every identifier. Brought up to date
/// when it is first needed in a run, and again after ten minutes. Of several mirrors, the next is asked when
/// one gives no metadata that is accepted. What is not accepted is logged in one line, and what was accepted
/// before stays in force. Any thread.
class RepositoryIndex {
  public:
    /// Keeps its files in `directory`, which is made when it is first needed. `clients` must outlive this.
    RepositoryIndex(std::string directory, HttpClientPool& clients, RetryPolicy retry);
    ~RepositoryIndex();
    RepositoryIndex(const RepositoryIndex&) = delete;
    RepositoryIndex& operator=(const RepositoryIndex&) = delete;

    /// What it says of the file at `path`, which is relative to the repository, by the settings' root and
    /// rules of freshness. May block on the network; `stop` ends it. Throws as `Mirrors::ofRun` does.
    Listing find(const AgentSettings& settings, const std::string& path, const StopSource& stop);

    /// Takes note that what is used is not the newest, unless the settings ask for silence.
    void warn(const AgentSettings& settings, const std::string& warning);
    /// What was noted since the current run began, each once.
    std::vector<std::string> warnings() const;

  private:
    class Session;
    class Turn;

    Session& sessionFor(const AgentSettings& settings, const std::shared_ptr<Mirrors>& mirrors,
                        const StopSource& stop);
    bool enter(const StopSource& stop);
    void leave();

    std::string directory_;
    HttpClientPool& clients_;
    RetryPolicy retry_;
    mutable base::Mutex mutex_;
    base::Condition free_;
    bool busy_ ZELOR_GUARDED_BY(mutex_) = false;
    std::uint64_t warnedRun_ ZELOR_GUARDED_BY(mutex_) = 0;
    std::vector<std::string> warnings_ ZELOR_GUARDED_BY(mutex_);
    std::unique_ptr<Session> session_;  ///< of the thread that made `busy_` true
};

}  // namespace zelor::agent

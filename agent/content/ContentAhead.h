#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent/content/ContentFetch.h"
#include "base/Mutex.h"

namespace zelor::agent {

/// The repository's answers about the content of many identifiers, asked for side by side before anyone wants
/// them. It keeps them in bounded memory, unchecked, until they are taken. When a mirror is down it goes on
/// with the next one, and without one it stops: who wants an answer then asks for itself. Any thread, but for
/// `begin` and `join`.
class ContentAhead {
  public:
    /// What to ask a mirror, by its `Mirror::source`, about an identifier; nothing when that needs no
    /// request. Called on a thread of its own. `stopped` becomes true when nobody waits for it any more.
    using Question = std::function<std::optional<ContentQuestion>(
        const std::string& identifier, const std::string& source, const std::function<bool()>& stopped)>;

    ContentAhead() = default;
    ~ContentAhead() { join(); }
    ContentAhead(const ContentAhead&) = delete;
    ContentAhead& operator=(const ContentAhead&) = delete;

    /// Asks the first mirror, when it is down the next one, about these identifiers, in their order. What an
    /// earlier call left is dropped. Each may take `longest`, zero for no limit. Returns at once. Throws
    /// std::system_error without a thread.
    void begin(std::vector<Mirror> mirrors, const std::vector<std::string>& identifiers, Question question,
               std::chrono::milliseconds longest);
    /// Nobody will take that answer: the transfer in progress ends within a tenth of a second.
    void drop(const std::string& identifier);
    /// The same for all of them.
    void stop();
    /// Stops, and waits until nothing is in progress.
    void join();

    /// The answer to that question about an identifier; waits for one in progress. Nothing when there is
    /// none, when the call is to end early, when another listed file was asked for, or when the answer says
    /// that another version than the known one is unchanged.
    std::optional<ContentAnswer> take(const std::string& identifier, const ContentQuestion& question);

  private:
    enum class State { waiting, inHand, arrived };
    struct Entry {
        State state = State::waiting;
        ContentQuestion question;
        ContentAnswer answer;
    };
    struct Transfer;
    class Work;

    std::optional<std::string> next(bool idle);
    bool isWanted(const std::string& identifier);
    bool isStopping();
    void arrived(const std::string& identifier, ContentQuestion question, ContentAnswer answer);
    void askAgain(const std::string& identifier);
    void failed();
    void run();

    static constexpr std::size_t kParallel = 16;
    static constexpr std::size_t kHeldBytes = 32U << 20U;

    std::vector<Mirror> mirrors_;  ///< this one and the next two are set while there is no thread
    Question question_;
    std::chrono::milliseconds longest_{0};
    std::thread thread_;
    base::Mutex mutex_;
    base::Condition changed_;
    std::map<std::string, Entry> entries_ ZELOR_GUARDED_BY(mutex_);
    std::deque<std::string> queue_ ZELOR_GUARDED_BY(mutex_);
    std::size_t held_ ZELOR_GUARDED_BY(mutex_) = 0;  ///< bytes of the answers that arrived
    bool stopping_ ZELOR_GUARDED_BY(mutex_) = true;
};

}  // namespace zelor::agent

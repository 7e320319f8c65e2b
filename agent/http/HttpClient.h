#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Mutex.h"

namespace zelor::agent {

struct HttpHandles;

/// How late an interruption of a transfer or of a wait for one may be seen.
constexpr std::chrono::milliseconds kReaction{50};

/// The bounds of one transfer.
struct HttpLimits {
    std::chrono::milliseconds connectTimeout{10'000};
    /// The whole head of a final answer is there in this time from the start of each request, a redirected
    /// one too. What only announces an answer (100 Continue and the like) does not count.
    std::chrono::milliseconds firstAnswer{10'000};
    /// A transfer that brings fewer than one byte a second over this long has stalled.
    std::chrono::milliseconds stallTime{60'000};
    int redirects = 5;
};

/// The status line and headers of an answer; names are lower case.
struct HttpHead {
    long status = 0;
    std::vector<std::pair<std::string, std::string>> headers;

    /// The first header of that lower-case name, "" when there is none.
    const std::string& header(const std::string& name) const;
    /// The same for one that a later request sends back, such as "etag": "" also when it has control
    /// characters.
    std::string validator(const std::string& name) const;
};

/// One GET request. Callbacks run on the thread of `perform`.
struct HttpRequest {
    std::string url;                   ///< http or https
    std::vector<std::string> headers;  ///< "Name: value"
    std::uint64_t bytesPerSecond = 0;  ///< 0: no limit
    HttpLimits limits;
    /// Asked several times a second; true ends the transfer as overdue.
    std::function<bool()> overdue;
    /// Called once with the head of the final answer, before its body; false ends the transfer.
    std::function<bool(const HttpHead&)> onHead;
    /// Called with each piece of the body of a 2xx answer; false ends the transfer.
    std::function<bool(std::string_view)> onBody;
};

/// How a request ended.
enum class HttpOutcome {
    answered,     ///< a complete answer of any status
    stopped,      ///< a callback ended it
    interrupted,  ///< the boost::thread was asked to stop; the request stays pending on the thread
    overdue,      ///< its time was up
    transient,    ///< no answer or a broken one; another attempt may help
    permanent     ///< another attempt would end the same way
};

/// The result of a request. `head` is empty when there was no answer.
struct HttpResult {
    HttpOutcome outcome = HttpOutcome::permanent;
    HttpHead head;
    std::string error;  ///< the cause, in words, unless answered
};

/// Makes HTTP transfers one after the other and keeps its connections open in between. TLS certificates are
/// verified; redirects to schemes other than http and https, and from https to http, are refused; the
/// proxy and the authorities are those of the settings in force, and the environment is ignored. One thread
/// at a time; `perform` returns well within a second when its boost::thread is interrupted.
class HttpClient {
  public:
    HttpClient();
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// Blocks until the end of the request. Throws only what a callback throws.
    HttpResult perform(const HttpRequest& request);

  private:
    friend class ParallelTransfers;

    std::unique_ptr<HttpHandles> handles_;
};

/// Lends clients, so that threads share open connections without sharing a client. Any thread.
class HttpClientPool {
  public:
    /// Returns a client to the pool at the end of its lease.
    struct Return {
        HttpClientPool* pool = nullptr;
        /// Returns the client to `pool`, which must be set.
        void operator()(HttpClient* client) const;
    };
    /// A client for one thread, returned to the pool when the lease is destroyed.
    using Lease = std::unique_ptr<HttpClient, Return>;

    /// An idle client, or a new one. The pool must outlive the lease.
    Lease lend();

  private:
    base::Mutex mutex_;
    std::vector<std::unique_ptr<HttpClient>> idle_ ZELOR_GUARDED_BY(mutex_);
};

/// `url` without user name and password, for messages.
std::string withoutCredentials(const std::string& url);

/// True when the boost::thread is interrupted, or when the agent's caller wants the call to end early.
bool stopRequested();

/// Sleeps; false at once when a stop is requested.
bool sleepUnlessInterrupted(std::chrono::milliseconds time);

}  // namespace zelor::agent

#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/http/HttpClient.h"
#include "base/Deleter.h"

namespace zelor::agent {

/// libcurl's side of a client: it holds the connections. One thread at a time.
struct HttpHandles {
    std::unique_ptr<CURLM, base::Deleter<curl_multi_cleanup>> multi{curl_multi_init()};
};

/// Makes one request for `url`, ignoring `request.url`, and follows no redirect: if the answer is one, sets
/// `redirect` to its target. Throws what a callback throws, std::bad_alloc and std::runtime_error.
HttpResult transferOnce(HttpHandles& handles, const HttpRequest& request, const std::string& url,
                        std::string& redirect);

/// Makes several requests at once on one client's connections, over HTTP/2 where a server speaks it, and else
/// on as many connections. Redirects are not followed: they are answers. One thread; what is left is given up
/// when it is destroyed.
class ParallelTransfers {
  public:
    /// Receives the end of a request.
    using Done = std::function<void(HttpResult)>;

    /// Opens at most `most` connections. The client stays the caller's, must outlive the object, and does
    /// nothing else.
    ParallelTransfers(HttpClient& client, std::size_t most);
    ~ParallelTransfers();
    ParallelTransfers(const ParallelTransfers&) = delete;
    ParallelTransfers& operator=(const ParallelTransfers&) = delete;

    /// Starts a request; its rate is not kept to. `done` is called by `work`, which it may not call, and may
    /// start others. Throws std::bad_alloc and std::runtime_error.
    void start(HttpRequest request, Done done);
    /// How many have not ended.
    std::size_t inHand() const { return running_.size(); }
    /// Goes on with all of them, and waits up to a twentieth of a second for something to do. Throws what a
    /// callback throws.
    void work();

  private:
    struct Running;

    HttpHandles& handles_;
    std::vector<std::unique_ptr<Running>> running_;
};

/// Spreads bytes over time: the mean is the rate asked for, and what an idle moment left unused is made good
/// only up to a tenth of a second's worth, so that no second runs far over the rate.
class RatePacer {
  public:
    /// The clock that is meant by `now` and `due`.
    using Time = std::chrono::steady_clock::time_point;

    /// 0 bytes per second paces nothing.
    explicit RatePacer(std::uint64_t bytesPerSecond) : rate_(static_cast<double>(bytesPerSecond)) {}

    /// `bytes` were taken at `now`.
    void took(std::uint64_t bytes, Time now) {
        if (rate_ <= 0) return;
        const Time earliest = due_ == Time() ? now : now - kAllowance;
        if (due_ < earliest) due_ = earliest;
        due_ += std::chrono::duration_cast<Time::duration>(
            std::chrono::duration<double>(static_cast<double>(bytes) / rate_));
    }

    /// When the next bytes may be taken; never later for a pacer without a rate.
    Time due() const { return due_; }

  private:
    static constexpr std::chrono::milliseconds kAllowance{100};
    double rate_;
    Time due_{};
};

}  // namespace zelor::agent

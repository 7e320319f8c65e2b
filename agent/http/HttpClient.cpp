#include "agent/http/HttpClient.h"

#include <algorithm>
#include <boost/thread/thread.hpp>
#include <stdexcept>
#include <thread>

#include "agent/http/HttpTransfer.h"
#include "base/Mutex.h"
#include "base/Strings.h"
#include "remediation/CallReport.h"

namespace zelor::agent {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

void initialise() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK)
            throw std::runtime_error("libcurl failed to start");
    });
}

bool hasScheme(const std::string& url, const std::string& scheme) {
    return base::lowerCased(url.substr(0, scheme.size() + 3)) == scheme + "://";
}

}  // namespace

const std::string& HttpHead::header(const std::string& name) const {
    static const std::string kNone;
    const auto found =
        std::find_if(headers.begin(), headers.end(), [&](const auto& one) { return one.first == name; });
    return found == headers.end() ? kNone : found->second;
}

std::string HttpHead::validator(const std::string& name) const {
    const std::string& value = header(name);
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    return std::any_of(value.begin(), value.end(), isControl) ? "" : value;
}

HttpClient::HttpClient() {
    initialise();
    handles_ = std::make_unique<HttpHandles>();
    if (!handles_->multi) throw std::bad_alloc();
}

HttpClient::~HttpClient() = default;

HttpResult HttpClient::perform(const HttpRequest& request) {
    std::string url = request.url;
    for (int hops = 0;; ++hops) {
        if (!hasScheme(url, "http") && !hasScheme(url, "https")) {
            return {HttpOutcome::permanent,
                    {},
                    "only http and https are fetched, not " + withoutCredentials(url)};
        }
        std::string target;
        HttpResult result = transferOnce(*handles_, request, url, target);
        if (target.empty()) return result;
        if (hops == request.limits.redirects) {
            return {HttpOutcome::permanent, result.head,
                    "more than " + std::to_string(request.limits.redirects) + " redirects"};
        }
        if (hasScheme(url, "https") && !hasScheme(target, "https")) {
            return {HttpOutcome::permanent, result.head,
                    "a redirect from https to " + withoutCredentials(target) + " is refused"};
        }
        url = target;
    }
}

void HttpClientPool::Return::operator()(HttpClient* client) const {
    std::unique_ptr<HttpClient> owned(client);
    const base::MutexLock lock(pool->mutex_);
    pool->idle_.push_back(std::move(owned));
}

HttpClientPool::Lease HttpClientPool::lend() {
    {
        const base::MutexLock lock(mutex_);
        if (!idle_.empty()) {
            Lease lease(idle_.back().release(), Return{this});
            idle_.pop_back();
            return lease;
        }
    }
    return Lease(std::make_unique<HttpClient>().release(), Return{this});
}

std::string withoutCredentials(const std::string& url) {
    const auto scheme = url.find("://");
    if (scheme == std::string::npos) return url;
    const auto begin = scheme + 3;
    const auto end = std::min(url.find_first_of("/?#", begin), url.size());
    const auto at = url.rfind('@', end);
    if (at == std::string::npos || at < begin) return url;
    return url.substr(0, begin) + url.substr(at + 1);
}

bool stopRequested() {
    return boost::this_thread::interruption_requested() || CallReport::stopAsked();
}

bool sleepUnlessInterrupted(milliseconds time) {
    const auto until = Clock::now() + time;
    for (;;) {
        if (stopRequested()) return false;
        const auto left = until - Clock::now();
        if (left <= Clock::duration::zero()) return true;
        std::this_thread::sleep_for(std::min<Clock::duration>(left, kReaction));
    }
}

}  // namespace zelor::agent

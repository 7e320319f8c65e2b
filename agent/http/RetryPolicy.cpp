#include "agent/http/RetryPolicy.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <random>

namespace zelor::agent {

using std::chrono::milliseconds;

bool statusIsTransient(long status) {
    return status == 408 || status == 429 || (status >= 500 && status <= 599);
}

milliseconds retryAfter(const std::string& header, std::time_t now) {
    constexpr long kLongest = 24L * 60 * 60;
    long seconds = 0;
    const char* end = header.data() + header.size();
    const auto [stopped, error] = std::from_chars(header.data(), end, seconds);
    const bool number = !header.empty() && stopped == end;
    if (number && error == std::errc::result_out_of_range) seconds = kLongest;
    if (!number) {
        const std::time_t time = header.empty() ? -1 : curl_getdate(header.c_str(), nullptr);
        seconds = time < 0 ? 0 : static_cast<long>(time - now);
    }
    return std::chrono::seconds(std::clamp(seconds, 0L, kLongest));
}

milliseconds pauseAfter(int failures, milliseconds asked, const RetryPolicy& policy, double chance) {
    const double longest = static_cast<double>(policy.longestPause.count());
    const double grown =
        static_cast<double>(policy.firstPause.count()) * std::pow(policy.factor, failures - 1);
    const double varied = std::min(grown, longest) * (1 + policy.jitter * (2 * chance - 1));
    return std::min(std::max(milliseconds(std::llround(varied)), asked), policy.longestPause);
}

double randomChance() {
    thread_local std::minstd_rand engine(std::random_device{}());
    return std::uniform_real_distribution<double>(0, 1)(engine);
}

}  // namespace zelor::agent

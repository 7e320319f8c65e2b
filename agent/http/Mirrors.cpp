#include "agent/http/Mirrors.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>

#include "agent/ContentCacheControl.h"
#include "agent/http/RepositoryUrl.h"

namespace zelor::agent {

namespace {

/// The addresses that were used last. A run has one memory of them.
struct Latest {
    base::Mutex mutex;
    std::uint64_t run ZELOR_GUARDED_BY(mutex) = 0;
    std::vector<std::string> urls ZELOR_GUARDED_BY(mutex);
    std::shared_ptr<Mirrors> mirrors ZELOR_GUARDED_BY(mutex);
};

}  // namespace

Mirrors::Mirrors(const std::vector<std::string>& urls) {
    for (const std::string& url : urls)
        mirrors_.push_back(
            {url, urls.size() == 1 ? "" : withoutCredentials(url), std::make_shared<RepositoryOutage>()});
}

std::shared_ptr<Mirrors> Mirrors::ofRun(const AgentSettings& settings) {
    // Kept to the very end of the process: a run's thread may outlive main().
    static Latest& latest = *new Latest;
    const std::vector<std::string> urls = repositoryUrls(settings);
    const std::uint64_t run = currentRun();
    const base::MutexLock lock(latest.mutex);
    if (!latest.mirrors || latest.run != run || latest.urls != urls) {
        latest.mirrors = std::make_shared<Mirrors>(urls);
        latest.run = run;
        latest.urls = urls;
    }
    return latest.mirrors;
}

std::vector<Mirror> Mirrors::inOrder() const {
    std::vector<Mirror> order = mirrors_;
    const base::MutexLock lock(mutex_);
    const auto first = order.begin() + static_cast<std::ptrdiff_t>(first_);
    std::rotate(order.begin(), first, first + 1);
    return order;
}

std::vector<Mirror> Mirrors::toAsk(const std::string& file) const {
    std::vector<Mirror> order = inOrder();
    const auto now = std::chrono::steady_clock::now();
    const auto isDown = [&](const Mirror& mirror) { return !mirror.outage->mayAsk(file, now); };
    const auto usable = std::stable_partition(order.begin(), order.end(), std::not_fn(isDown));
    order.erase(usable == order.begin() ? usable + 1 : usable, order.end());
    return order;
}

void Mirrors::served(const Mirror& mirror) {
    const base::MutexLock lock(mutex_);
    for (std::size_t i = 0; i < mirrors_.size(); ++i)
        if (mirrors_[i].url == mirror.url) first_ = i;
}

}  // namespace zelor::agent

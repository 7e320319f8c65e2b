#include "agent/content/ContentCache.h"

#include <utility>

#include "base/Mutex.h"

namespace zelor::agent {

std::optional<CachedContent> ContentCache::get(const std::string& identifier) {
    const base::MutexLock lock(mutex_);
    const auto found = byIdentifier_.find(identifier);
    if (found == byIdentifier_.end()) return std::nullopt;
    entries_.splice(entries_.begin(), entries_, found->second);
    return found->second->content;
}

void ContentCache::put(const std::string& identifier, CachedContent content) {
    constexpr std::size_t kBookkeeping = 256;
    const std::size_t bytes = sizeof(Entry) + kBookkeeping + 2 * identifier.size() +
                              (content.document ? content.document->bytes() : 0);
    const base::MutexLock lock(mutex_);
    const auto found = byIdentifier_.find(identifier);
    if (found != byIdentifier_.end()) erase(found->second);
    entries_.push_front({identifier, std::move(content), bytes});
    byIdentifier_[identifier] = entries_.begin();
    bytes_ += bytes;
    while (bytes_ > limit_ && entries_.size() > 1)
        erase(std::prev(entries_.end()));
}

void ContentCache::remove(const std::string& identifier) {
    const base::MutexLock lock(mutex_);
    const auto found = byIdentifier_.find(identifier);
    if (found != byIdentifier_.end()) erase(found->second);
}

void ContentCache::erase(Entries::iterator entry) {
    bytes_ -= entry->bytes;
    byIdentifier_.erase(entry->identifier);
    entries_.erase(entry);
}

}  // namespace zelor::agent

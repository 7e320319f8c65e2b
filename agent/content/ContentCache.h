#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "agent/content/ContentDocument.h"
#include "agent/content/ContentStore.h"
#include "base/Mutex.h"

namespace zelor::agent {

/// The state of one identifier's content as last confirmed with the repository.
struct CachedContent {
    std::shared_ptr<const ContentDocument> document;  ///< null: there is no usable content
    SignedContent version;                            ///< without the files
    std::uint64_t run = 0;
    std::chrono::steady_clock::time_point confirmed;
    std::string problem{};  ///< why there is no content
    std::string listed{};   ///< `ListedContent::identity` of the document, "" when no index listed it
};

/// Parsed content by identifier, in bounded memory: the least recently used is removed first. Any thread.
class ContentCache {
  public:
    /// Keeps about `bytesLimit` bytes, but always the latest entry.
    explicit ContentCache(std::size_t bytesLimit) : limit_(bytesLimit) {}

    /// A copy of the entry, which counts as used now; nothing when there is none.
    std::optional<CachedContent> get(const std::string& identifier);
    /// Adds or replaces an entry.
    void put(const std::string& identifier, CachedContent content);
    /// Removes an entry, if there is one.
    void remove(const std::string& identifier);

  private:
    struct Entry {
        std::string identifier;
        CachedContent content;
        std::size_t bytes;
    };
    using Entries = std::list<Entry>;

    void erase(Entries::iterator entry) ZELOR_REQUIRES(mutex_);

    base::Mutex mutex_;
    std::size_t limit_;
    std::size_t bytes_ ZELOR_GUARDED_BY(mutex_) = 0;
    Entries entries_ ZELOR_GUARDED_BY(mutex_);  ///< most recently used first
    std::unordered_map<std::string, Entries::iterator> byIdentifier_ ZELOR_GUARDED_BY(mutex_);
};

}  // namespace zelor::agent

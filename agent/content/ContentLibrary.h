#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "agent/content/ContentCache.h"
#include "agent/content/ContentFetch.h"
#include "agent/content/ContentStore.h"
#include "agent/http/HttpClient.h"
#include "agent/http/RetryPolicy.h"
#include "base/Mutex.h"

namespace zelor::agent {

/// Signed remediation content of one install path: in memory, on disk, and from the repository. Any thread.
///
/// Content in memory is used without asking the repository until the next run begins or ten minutes have
/// passed. After that, and for content that is only on disk, the repository is asked whether it changed; when
/// it does not answer, the copy is used. Within a run, a repository that did not answer is asked again about
/// existing content only after half a minute. A copy read from disk is checked against its signature each
/// time, and one that fails is fetched again. Failures are logged.
class ContentLibrary {
  public:
    /// Keeps files in `directory`, which is made when it is first needed.
    explicit ContentLibrary(const std::string& directory, RetryPolicy retry = contentRetryPolicy())
        : store_(directory), retry_(retry) {}

    /// The content for that identifier, null when there is none that can be used. May block on the network.
    std::shared_ptr<const ContentDocument> get(const std::string& identifier);
    /// Forgets what is in memory.
    void forget(const std::string& identifier) { cache_.remove(identifier); }
    /// Deletes what is on disk.
    void removeFile(const std::string& identifier);

  private:
    using Document = std::shared_ptr<const ContentDocument>;
    /// What is at hand before the repository is asked.
    struct Kept {
        Document document;
        SignedContent version;  ///< its etag and date
    };

    Document refresh(const std::string& identifier, std::uint64_t run, std::optional<CachedContent> cached);
    Kept readKept(const std::string& identifier) const;
    ContentAnswer ask(const std::string& identifier, std::uint64_t run, const Kept& kept);
    /// Null for content that is not good, with the reason in `problem`.
    Document accept(const std::string& identifier, const SignedContent& content, std::string& problem);

    static constexpr std::size_t kCacheBytes = 64U << 20U;

    ContentStore store_;
    RetryPolicy retry_;
    ContentCache cache_{kCacheBytes};
    HttpClientPool clients_;
    base::Mutex mutex_;
    std::uint64_t silentRun_ ZELOR_GUARDED_BY(mutex_) =
        0;  ///< the run in which the repository did not answer
    std::chrono::steady_clock::time_point silentUntil_ ZELOR_GUARDED_BY(mutex_);
};

}  // namespace zelor::agent

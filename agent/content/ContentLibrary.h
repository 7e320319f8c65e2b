#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/content/ContentAhead.h"
#include "agent/content/ContentCache.h"
#include "agent/content/ContentFetch.h"
#include "agent/content/ContentStore.h"
#include "agent/content/RepositoryIndex.h"
#include "agent/http/HttpClient.h"
#include "agent/http/RetryPolicy.h"

namespace zelor::agent {

/// Signed remediation content of one install path: in memory, on disk, and from the repository. Any thread.
///
/// What is in memory is used without a question until the next run begins or ten minutes have passed. After
/// that, and for what is only on disk, the repository is asked whether it changed; when nobody answers, the
/// copy kept serves. A repository that did not answer is asked as RepositoryOutage allows. A copy read from
/// disk is checked against its signature each time, and one that fails is fetched anew. Of several mirrors,
/// the next is asked when one does not give content with a good signature. Failures go to the log.
///
/// With a root in the settings, content is what the repository's index lists: a copy with the listed digest
/// needs no request, another one is replaced, and what is not listed is no content. Of several mirrors, the
/// next is asked when one does not have the listed file; a signature is not required then. Until there is an
/// index, content counts by its signature, unless the settings require freshness.
class ContentLibrary {
  public:
    /// Keeps files in `content` and `metadata` in that directory, which are made when they are first needed.
    explicit ContentLibrary(const std::string& installPath, RetryPolicy retry = contentRetryPolicy())
        : store_(installPath + "/content"),
          retry_(retry),
          index_(installPath + "/metadata", clients_, retry) {}

    /// The content for that identifier, null when there is none that can be used. May block on the network.
    std::shared_ptr<const ContentDocument> get(const std::string& identifier);
    /// Forgets what is in memory.
    void forget(const std::string& identifier) { cache_.remove(identifier); }
    /// What was applied is no longer kept. With a root in the settings the bytes stay, and count only where
    /// the index lists them: asking for them again would bring the same.
    void applied(const std::string& identifier);

    /// Asks the repository about these identifiers at once, for the `get` of each that will follow, in their
    /// order. Those whose content is in memory and still believed are left out. One thread at a time.
    void fetchAhead(const std::vector<std::string>& identifiers);
    /// What was asked ahead, to end it.
    ContentAhead& ahead() { return ahead_; }
    /// The repository's index.
    const RepositoryIndex& index() const { return index_; }

  private:
    using Document = std::shared_ptr<const ContentDocument>;
    /// What is at hand before the repository is asked.
    struct Kept {
        Document document;
        SignedContent version;  ///< its etag and date
        std::string listed;     ///< `ListedContent::identity`, when it is the listed file
    };

    Document refresh(const std::string& identifier, std::uint64_t run, std::optional<CachedContent> cached);
    void removeFile(const std::string& identifier);
    Listing look(const std::string& identifier, const StopSource& stop);
    Kept readKept(const std::string& identifier, const Listing& listing) const;
    Document usableAnyway(const std::string& identifier, const Kept& kept, const Listing& listing,
                          const ContentAnswer& answer);
    std::optional<ContentQuestion> question(const std::string& identifier, const std::string& source,
                                            const StopSource& stopped);
    SignedContent knownVersion(const std::string& identifier, const std::string& source);
    ContentAnswer answerOf(const std::string& identifier, const Kept& kept, const Listing& listing);
    ContentAnswer ask(const std::string& identifier, const Kept& kept, const Listing& listing);
    ContentAnswer askEach(const std::string& identifier, const Kept& kept, const Listing& listing);
    /// Asks one mirror, for that long; zero: without a limit.
    ContentAnswer askMirror(const Mirror& mirror, const std::string& identifier,
                            const ContentQuestion& question, std::chrono::milliseconds longest,
                            RepositoryTurn& turn);
    /// Null for content that is not good, with the reason in `problem`.
    Document accept(const std::string& identifier, const SignedContent& content, std::string& problem);

    static constexpr std::size_t kCacheBytes = 64U << 20U;

    ContentStore store_;
    RetryPolicy retry_;
    ContentCache cache_{kCacheBytes};
    HttpClientPool clients_;
    RepositoryIndex index_;
    ContentAhead ahead_;  ///< last: its thread uses the others
};

/// The one of the agent installed in `installPath`, which has no trailing separator. It is never removed. Any
/// thread.
ContentLibrary& contentLibraryAt(const std::string& installPath);

}  // namespace zelor::agent

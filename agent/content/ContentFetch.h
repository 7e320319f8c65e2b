#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "agent/content/ContentStore.h"
#include "agent/http/Deadline.h"
#include "agent/http/HttpClient.h"
#include "agent/http/Mirrors.h"
#include "agent/http/RepositoryOutage.h"
#include "agent/http/RetryPolicy.h"
#include "trust/Metadata.h"

namespace zelor::agent {

/// A file as the repository's index lists it.
struct ListedContent {
    std::string path;  ///< below the repository, percent-encoded
    trust::TargetFile file{};

    /// Equal for files of equal bytes; never "" for a listed one.
    std::string identity() const;
    /// Whether these are its bytes.
    bool matches(const std::string& bytes) const;
};

/// Which content is asked for.
struct ContentQuestion {
    SignedContent known{};                  ///< `versionFor` the mirror: one that differs from it
    std::optional<ListedContent> listed{};  ///< the file of an index, whatever is known

    /// True when the answers are to the same question.
    bool operator==(const ContentQuestion& other) const;
};

/// What the repository says about one identifier's content.
struct ContentAnswer {
    /// What kind of answer it is.
    enum class Kind {
        fresh,      ///< `content` has the file, and its signature, not checked yet, unless it is listed
        unchanged,  ///< the known version is still current
        none,       ///< there is no such content
        noAnswer,   ///< nobody answered in time, or the server is in trouble
        stopped,    ///< the call is to end early
        notServed,  ///< this mirror does not have the file that is listed, or has another one
        refused     ///< an answer that cannot be used
    };
    Kind kind = Kind::noAnswer;
    SignedContent content;  ///< its source is who answered, whatever the kind
    std::string problem;    ///< why there is no usable answer; "" for fresh and unchanged
};

/// Retries and time limits for content: short, since a kept copy can be used instead.
RetryPolicy contentRetryPolicy();
HttpLimits contentLimits();

/// One answer of the repository, with the start of its body.
struct FetchedFile {
    HttpResult result;
    std::string body;
    bool tooLarge = false;  ///< for the exchange's limit
};

/// Makes `request` and, as `retry`, `deadline` and `turn` allow, further attempts at it. The body may have
/// `limit` bytes.
FetchedFile fetchFile(HttpClient& client, HttpRequest request, std::size_t limit, const RetryPolicy& retry,
                      const Deadline& deadline, RepositoryTurn& turn);

/// The requests that get one identifier's content, one after the other: the content file, when it differs
/// from the known version, and then its signature; or the listed file alone. One thread at a time.
class ContentExchange {
  public:
    /// For an identifier that may name content; a known version is one that this mirror gave.
    ContentExchange(const Mirror& mirror, const std::string& identifier, const ContentQuestion& question);
    /// The next request, without limits and callbacks.
    const HttpRequest& request() const { return request_; }
    /// The most bytes of its body.
    std::size_t limit() const;
    /// Takes its answer. Nothing: another request follows.
    std::optional<ContentAnswer> take(FetchedFile fetched);

  private:
    ContentAnswer takeListed(FetchedFile fetched) const;
    std::optional<ContentAnswer> answerTo(FetchedFile fetched);

    std::string source_;
    HttpRequest request_;
    std::optional<ListedContent> listed_;
    bool conditional_ = false;
    bool hasXml_ = false;
    SignedContent content_;
};

/// Asks the mirror for the content: for the listed file, or for `<url>/content/<identifier>.xml` when it
/// differs from the known version (empty etag and date: in any case), and its signature. All of it, with all
/// attempts and pauses, takes at most `longest` (zero: no limit); later is no answer. `turn` says how
/// patiently.
ContentAnswer fetchContent(HttpClient& client, const Mirror& mirror, const std::string& identifier,
                           const ContentQuestion& question, const RetryPolicy& retry,
                           std::chrono::milliseconds longest, RepositoryTurn& turn);

}  // namespace zelor::agent

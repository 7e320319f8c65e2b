#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "agent/content/ContentStore.h"
#include "agent/http/HttpClient.h"
#include "agent/http/Mirrors.h"
#include "agent/http/RepositoryOutage.h"
#include "agent/http/RetryPolicy.h"

namespace zelor::agent {

/// What the repository says about one identifier's content.
struct ContentAnswer {
    /// What kind of answer it is.
    enum class Kind {
        fresh,      ///< `content` has the file and its signature, not checked yet
        unchanged,  ///< the known version is still current
        none,       ///< there is no such content
        noAnswer,   ///< nobody answered in time, or the server is in trouble
        stopped,    ///< the call is to end early
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

/// The requests that get one identifier's content, one after the other: the content file, when it differs
/// from the version in `known`, and then its signature. One thread at a time.
class ContentExchange {
  public:
    /// For an identifier that may name content; `known` gives its etag and date alone.
    ContentExchange(const Mirror& mirror, const std::string& identifier, const SignedContent& known);
    /// The next request, without limits and callbacks.
    const HttpRequest& request() const { return request_; }
    /// The most bytes of its body.
    std::size_t limit() const;
    /// Takes its answer. Nothing: another request follows.
    std::optional<ContentAnswer> take(FetchedFile fetched);

  private:
    std::optional<ContentAnswer> answerTo(FetchedFile fetched);

    std::string source_;
    HttpRequest request_;
    bool conditional_ = false;
    bool hasXml_ = false;
    SignedContent content_;
};

/// Asks `<url>/content/<identifier>.xml` for the content when it differs from the version in `known`
/// (empty etag and date: in any case), and for its signature. Both together, with all attempts and pauses,
/// take at most `longest` (zero: no limit); later is no answer. `turn` says how patiently.
ContentAnswer fetchContent(HttpClient& client, const Mirror& mirror, const std::string& identifier,
                           const SignedContent& known, const RetryPolicy& retry,
                           std::chrono::milliseconds longest, RepositoryTurn& turn);

}  // namespace zelor::agent

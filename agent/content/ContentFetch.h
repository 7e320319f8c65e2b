#pragma once

#include <chrono>
#include <string>

#include "agent/content/ContentStore.h"
#include "agent/http/HttpClient.h"
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
    SignedContent content;
    std::string problem;  ///< why there is no usable answer; "" for fresh and unchanged
};

/// Retries and time limits for content: short, since a kept copy can be used instead.
RetryPolicy contentRetryPolicy();
HttpLimits contentLimits();

/// Fetches `<repository>/content/<identifier>.xml` and its signature, if the content differs from the version
/// in `known` (always when that has neither etag nor date). Blocks.
ContentAnswer fetchContent(HttpClient& client, const std::string& repository, const std::string& identifier,
                           const SignedContent& known, const RetryPolicy& retry,
                           std::chrono::milliseconds longest = std::chrono::minutes(2));

}  // namespace zelor::agent

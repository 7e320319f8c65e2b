#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "agent/http/HttpClient.h"
#include "base/Deleter.h"

namespace zelor::agent {

/// libcurl's side of a client: it holds the connections. One thread at a time.
struct HttpHandles {
    std::unique_ptr<CURLM, base::Deleter<curl_multi_cleanup>> multi{curl_multi_init()};
};

/// Makes one request of `url`, whatever `request.url` says, and follows no redirect: where the answer is one,
/// its target is left in `redirect`. Throws what a callback throws, std::bad_alloc and std::runtime_error.
HttpResult transferOnce(HttpHandles& handles, const HttpRequest& request, const std::string& url,
                        std::string& redirect);

}  // namespace zelor::agent

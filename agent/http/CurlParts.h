#pragma once

#include <curl/curl.h>

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "agent/http/HttpClient.h"
#include "base/Deleter.h"

namespace zelor::agent {

/// Headers of a request as libcurl wants them; they must outlive its use.
using HeaderList = std::unique_ptr<curl_slist, base::Deleter<curl_slist_free_all>>;

/// A list of these headers, "Name: value". Throws std::bad_alloc.
inline HeaderList headerList(const std::vector<std::string>& headers) {
    HeaderList list;
    for (const std::string& header : headers) {
        curl_slist* longer = curl_slist_append(list.get(), header.c_str());
        if (longer == nullptr) throw std::bad_alloc();
        // The list's head stays where it is once there is one.
        (void)list.release();
        list.reset(longer);
    }
    return list;
}

/// What the end of a transfer with that code means.
inline HttpOutcome outcomeOf(CURLcode code) {
    switch (code) {
        case CURLE_OK:
            return HttpOutcome::answered;
        case CURLE_URL_MALFORMAT:
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_OUT_OF_MEMORY:
        case CURLE_BAD_FUNCTION_ARGUMENT:
            return HttpOutcome::permanent;
        default:
            return HttpOutcome::transient;
    }
}

}  // namespace zelor::agent

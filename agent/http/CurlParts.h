#pragma once

#include <curl/curl.h>

#include <algorithm>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/AgentSettings.h"
#include "agent/http/HttpClient.h"
#include "base/Deleter.h"
#include "base/Strings.h"

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

/// Sets an option. Throws std::runtime_error when libcurl does not know it or has no memory.
template <class Value>
void setOption(CURL* easy, CURLoption option, Value value) {
    if (curl_easy_setopt(easy, option, value) != CURLE_OK) {
        throw std::runtime_error("libcurl refuses option " + std::to_string(option));
    }
}

/// Sets the authorities, and `proxy`, an address or "" for none. Throws as `setOption`.
inline void setUpNetwork(CURL* easy, const Settings& settings, const std::string& proxy) {
    std::string direct = settings.noProxy;
    std::replace_if(
        direct.begin(), direct.end(), [](char c) { return c == ' ' || c == '\t'; }, ',');
    // Where an empty text is not set, libcurl reads the environment.
    setOption(easy, CURLOPT_PROXY, proxy.c_str());
    setOption(easy, CURLOPT_NOPROXY, direct.c_str());
    setOption(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (settings.caFile.empty()) return;
    setOption(easy, CURLOPT_CAINFO, settings.caFile.c_str());
    // Not every TLS library knows directories of certificates.
    (void)curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
    if (!base::hasBeginningInAnyCase(proxy, "https:")) return;
    setOption(easy, CURLOPT_PROXY_CAINFO, settings.caFile.c_str());
    (void)curl_easy_setopt(easy, CURLOPT_PROXY_CAPATH, nullptr);
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

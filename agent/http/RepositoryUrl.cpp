#include "agent/http/RepositoryUrl.h"

#include <boost/algorithm/string/predicate.hpp>
#include <stdexcept>
#include <string_view>

#include "agent/AgentSettings.h"
#include "agent/http/HttpClient.h"
#include "base/Strings.h"

namespace zelor::agent {

std::string repositoryUrl(const AgentSettings& settings) {
    std::string url = settings.values().repositoryUrl;
    if (url.empty()) {
        throw std::runtime_error("Repository.Url is not set; name the repository in " + settings.iniFile());
    }
    const bool http = boost::istarts_with(url, "http://") || boost::istarts_with(url, "https://");
    if (!http || url.find_first_of("?# ") != std::string::npos || base::hasControlCharacter(url)) {
        throw std::runtime_error("Repository.Url \"" + withoutCredentials(url) +
                                 "\" is not an http or https URL of a directory; correct it in " +
                                 settings.iniFile());
    }
    while (url.back() == '/')
        url.pop_back();
    return url;
}

std::string urlSegment(const std::string& text) {
    constexpr std::string_view kUnreserved =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    std::string out;
    for (const char c : text) {
        if (kUnreserved.find(c) != std::string_view::npos) {
            out += c;
            continue;
        }
        out += '%';
        base::appendHex(out, static_cast<unsigned char>(c), base::HexCase::upper);
    }
    return out;
}

}  // namespace zelor::agent

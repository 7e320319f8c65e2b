#include "agent/http/RepositoryUrl.h"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <stdexcept>
#include <string_view>

#include "agent/AgentSettings.h"
#include "agent/http/HttpClient.h"
#include "base/Strings.h"

namespace zelor::agent {

namespace {

std::vector<std::string> addressesIn(const std::string& setting) {
    std::vector<std::string> addresses;
    std::string text = setting;
    std::replace(text.begin(), text.end(), ',', ' ');
    std::replace(text.begin(), text.end(), '\t', ' ');
    for (const std::string& address : base::splitCompressed(text, ' '))
        if (!address.empty()) addresses.push_back(address);
    return addresses;
}

}  // namespace

std::vector<std::string> repositoryUrls(const AgentSettings& settings) {
    const std::string& setting = settings.values().repositoryUrl;
    const std::string remedy = "; correct it in " + settings.iniFile();
    std::vector<std::string> urls;
    for (std::string url : addressesIn(setting)) {
        const bool http = boost::istarts_with(url, "http://") || boost::istarts_with(url, "https://");
        if (!http || url.find_first_of("?#") != std::string::npos || base::hasControlCharacter(url)) {
            throw std::runtime_error("Repository.Url \"" + shownAddresses(setting) +
                                     "\" is not an http or https URL of a directory, or several" + remedy);
        }
        while (url.back() == '/')
            url.pop_back();
        if (std::find(urls.begin(), urls.end(), url) == urls.end()) urls.push_back(url);
    }
    if (urls.empty())
        throw std::runtime_error("Repository.Url is not set; name the repository in " + settings.iniFile());
    if (urls.size() > kMostAddresses)
        throw std::runtime_error("Repository.Url has more than " + std::to_string(kMostAddresses) +
                                 " addresses" + remedy);
    return urls;
}

std::string shownAddresses(const std::string& setting) {
    std::string shown;
    // As a whole first: a password may have a comma.
    for (const std::string& address : addressesIn(withoutCredentials(setting)))
        shown += (shown.empty() ? "" : ", ") + withoutCredentials(address);
    return shown;
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

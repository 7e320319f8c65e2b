#include "agent/http/SystemProxy.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <fnmatch.h>

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <charconv>
#include <chrono>
#include <map>
#include <optional>

#include "base/CommandRunner.h"
#include "base/Deleter.h"
#include "base/Mutex.h"
#include "base/Strings.h"
#include "platform/Log.h"

namespace zelor::agent {

namespace {

constexpr std::chrono::minutes kAskedAgain{1};
constexpr std::chrono::seconds kToolLimit{5};

struct Answer {
    std::map<std::string, std::string> values;
    std::vector<std::string> exceptions;
};

/// The lines "  Key : value", and those inside of "ExceptionsList : <array> {".
Answer linesOf(std::string_view text) {
    Answer answer;
    bool inList = false;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = base::trimmedView(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        const auto colon = line.find(" : ");
        if (line == "}") inList = false;
        if (colon == std::string_view::npos) continue;
        const std::string key(line.substr(0, colon));
        const std::string value(line.substr(colon + 3));
        if (key == "ExceptionsList") {
            inList = true;
        } else if (inList) {
            answer.exceptions.push_back(value);
        } else {
            answer.values[key] = value;
        }
    }
    return answer;
}

bool isHostCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_' || c == ':';
}

std::optional<unsigned> numberIn(std::string_view text, unsigned most) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && number <= most ? std::optional<unsigned>(number) : std::nullopt;
}

/// `kind`: HTTP or HTTPS. Both are spoken to by http.
std::string addressOf(Answer& answer, const std::string& kind) {
    const std::string& host = answer.values[kind + "Proxy"];
    const auto port = numberIn(answer.values[kind + "Port"], 65535);
    if (answer.values[kind + "Enable"] != "1" || host.empty() || !port || *port == 0) return "";
    if (!std::all_of(host.begin(), host.end(), isHostCharacter)) return "";
    const bool six = base::contains(host, ":");
    return "http://" + (six ? '[' + host + ']' : host) + ':' + std::to_string(*port);
}

std::string hostOf(const std::string& url) {
    const std::unique_ptr<CURLU, base::Deleter<curl_url_cleanup>> parts(curl_url());
    char* host = nullptr;
    if (!parts || curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
        curl_url_get(parts.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK)
        return "";
    const std::unique_ptr<char, base::Deleter<curl_free>> owned(host);
    return host;
}

std::optional<std::uint32_t> addressIn(const std::string& text) {
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
    return ntohl(address.s_addr);
}

/// `network`: "169.254/16", where the last numbers may be missing.
bool isInNetwork(const std::string& host, const std::string& network) {
    const auto slash = network.find('/');
    if (slash == std::string::npos) return false;
    std::string first = network.substr(0, slash);
    for (auto dots = std::count(first.begin(), first.end(), '.'); dots < 3; ++dots)
        first += ".0";
    const auto address = addressIn(host);
    const auto begin = addressIn(first);
    const auto bits = numberIn(std::string_view(network).substr(slash + 1), 32);
    if (!address || !begin || !bits) return false;
    return *bits == 0 || (*address ^ *begin) >> (32 - *bits) == 0;
}

bool isException(const std::string& host, const std::string& exception) {
    return ::fnmatch(base::lowerCased(exception).c_str(), base::lowerCased(host).c_str(), FNM_NOESCAPE) ==
               0 ||
           isInNetwork(host, exception);
}

/// Why the settings cannot be followed; "" when they can.
std::string problemOf(const base::CommandResult& result, const SystemProxies& proxies) {
    if (!result.started || !result.waited || result.status != 0)
        return "scutil --proxy cannot be run, so the proxy of the network settings is not known";
    if (proxies.script)
        return "the network settings leave the choice of a proxy to a script, which is not run";
    return "";
}

struct Cache {
    base::Mutex mutex;
    std::optional<std::chrono::steady_clock::time_point> asked ZELOR_GUARDED_BY(mutex);
    SystemProxies proxies ZELOR_GUARDED_BY(mutex);
    std::string problem ZELOR_GUARDED_BY(mutex);
};

}  // namespace

SystemProxies parseSystemProxies(std::string_view text) {
    Answer answer = linesOf(text);
    SystemProxies proxies;
    proxies.http = addressOf(answer, "HTTP");
    proxies.https = addressOf(answer, "HTTPS");
    proxies.exceptions = std::move(answer.exceptions);
    proxies.plainNamesDirect = answer.values["ExcludeSimpleHostnames"] == "1";
    proxies.script =
        answer.values["ProxyAutoConfigEnable"] == "1" || answer.values["ProxyAutoDiscoveryEnable"] == "1";
    return proxies;
}

std::string proxyFor(const SystemProxies& proxies, const std::string& url) {
    const std::string& proxy = boost::istarts_with(url, "https:") ? proxies.https : proxies.http;
    const std::string host = hostOf(url);
    if (proxy.empty() || host.empty()) return "";
    if (proxies.plainNamesDirect && host.find_first_of(".:") == std::string::npos) return "";
    const bool direct = std::any_of(proxies.exceptions.begin(), proxies.exceptions.end(),
                                    [&](const std::string& each) { return isException(host, each); });
    return direct ? "" : proxy;
}

SystemProxies systemProxies() {
    // Never destroyed: a run's thread may outlive main().
    static Cache& cache = *new Cache;
    const base::MutexLock lock(cache.mutex);
    const auto now = std::chrono::steady_clock::now();
    if (cache.asked && now - *cache.asked < kAskedAgain) return cache.proxies;
    const base::CommandResult result =
        base::runCommand({"/bin/sh", "-c", "exec scutil --proxy 2>/dev/null"}, false, kToolLimit);
    cache.asked = now;
    cache.proxies = parseSystemProxies(result.status == 0 ? result.output : "");
    const std::string problem = problemOf(result, cache.proxies);
    if (!problem.empty() && problem != cache.problem)
        log::error("[HttpClient] ", problem, "; name the proxy in Proxy, section Network");
    cache.problem = problem;
    return cache.proxies;
}

}  // namespace zelor::agent

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zelor::agent {

/// The web proxies of a Mac's network settings.
struct SystemProxies {
    std::string http;                     ///< for http addresses, "http://host:port"; "" for none
    std::string https;                    ///< for https addresses
    std::vector<std::string> exceptions;  ///< hosts asked directly: names, patterns with `*`, IPv4 networks
    bool plainNamesDirect = false;        ///< names without a dot are asked directly
    bool script = false;                  ///< a script chooses the proxy, which is not run here
};

/// Reads what `scutil --proxy` prints. What cannot be used as a proxy counts as none. Pure.
SystemProxies parseSystemProxies(std::string_view text);

/// The proxy to ask `url` through; "" to ask it directly. Pure.
std::string proxyFor(const SystemProxies& proxies, const std::string& url);

/// The proxies in force: asked from `scutil`, at most once a minute. Logs once what keeps them from being
/// used; without them, every address is asked directly. Any thread.
SystemProxies systemProxies();

}  // namespace zelor::agent

#include "rehearsal/Tools.h"

namespace zelor::rehearsal {

namespace {

std::string exceptionLines(const std::vector<std::string>& exceptions) {
    if (exceptions.empty()) return "";
    std::string text = "  ExceptionsList : <array> {\n";
    for (std::size_t i = 0; i < exceptions.size(); ++i)
        text += "    " + std::to_string(i) + " : " + exceptions[i] + '\n';
    return text + "  }\n";
}

std::string proxyLines(const std::string& kind, const NetworkProxies& proxies) {
    const bool on = !proxies.host.empty();
    std::string text = "  " + kind + "Enable : " + (on ? "1" : "0") + '\n';
    if (!on) return text;
    text += "  " + kind + "Port : " + std::to_string(proxies.port) + '\n';
    return text + "  " + kind + "Proxy : " + proxies.host + '\n';
}

std::string scriptLines(const std::string& script) {
    if (script.empty()) return "  ProxyAutoConfigEnable : 0\n";
    return "  ProxyAutoConfigEnable : 1\n  ProxyAutoConfigURLString : " + script + '\n';
}

}  // namespace

int runScutil(const StateDirectory& directory, const Arguments& arguments) {
    const MacState state = directory.load();
    const Outcome fault = faultFor(state, FaultScope::tool, nameOf(Tool::scutil));
    disturb(fault);
    if (fault == Outcome::fail) return 1;
    if (arguments != Arguments{"--proxy"}) return say({"", "usage: scutil --proxy\n", 64});
    return say({"<dictionary> {\n" + exceptionLines(state.proxies.exceptions) + "  FTPPassive : 1\n" +
                    proxyLines("HTTP", state.proxies) + proxyLines("HTTPS", state.proxies) +
                    scriptLines(state.proxies.script) + "}\n",
                "", 0});
}

}  // namespace zelor::rehearsal

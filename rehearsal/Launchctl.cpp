#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

#include "base/Strings.h"
#include "rehearsal/OsVersion.h"
#include "rehearsal/SettingsTools.h"

namespace zelor::rehearsal {

namespace {

namespace fs = boost::filesystem;

constexpr int kNoSuchProcess = 3;
constexpr int kInputOutput = 5;
constexpr int kUsage = 64;
constexpr int kNotFound = 113;
constexpr int kDisabled = 119;

const char kDomain[] = "system/";

/// The label in "system/LABEL", "" for any other target.
std::string labelIn(const std::string& target) {
    return base::hasBeginning(target, kDomain) ? target.substr(sizeof kDomain - 1) : "";
}

ToolText notFound(const std::string& label) {
    return {"", "Could not find service \"" + label + "\" in domain for system\n", kNotFound};
}

ToolText list(const MacState& state, const Arguments& words) {
    if (words.empty()) {
        std::string text = "PID\tStatus\tLabel\n";
        for (const auto& [label, service] : state.services)
            if (service.loaded) text += "-\t0\t" + label + '\n';
        return {text, "", 0};
    }
    const auto found = state.services.find(words[0]);
    if (found == state.services.end() || !found->second.loaded) return notFound(words[0]);
    return {"{\n\t\"Label\" = \"" + words[0] + "\";\n\t\"LastExitStatus\" = 0;\n};\n", "", 0};
}

ToolText printDisabled(const MacState& state) {
    const bool words = parseOsVersion(state.productVersion).atLeast(13);
    std::string text = "\n\tdisabled services = {\n";
    for (const auto& [label, service] : state.services) {
        if (!service.overridden) continue;
        text += "\t\t\"" + label + "\" => " +
                (words              ? service.disabled ? "disabled" : "enabled"
                 : service.disabled ? "true"
                                    : "false") +
                '\n';
    }
    return {text + "\t}\n", "", 0};
}

ToolText print(const MacState& state, const std::string& label) {
    const auto found = state.services.find(label);
    if (found == state.services.end() || !found->second.loaded) return notFound(label);
    return {kDomain + label + " = {\n\tstate = running\n}\n", "", 0};
}

ToolText setDisabled(MacState& state, const std::string& label, bool disabled) {
    Service& service = state.services[label];
    service.overridden = true;
    service.disabled = disabled;
    return {};
}

ToolText bootOut(MacState& state, const std::string& label) {
    const auto found = state.services.find(label);
    if (found == state.services.end() || !found->second.loaded)
        return {"", "Boot-out failed: 3: No such process\n", kNoSuchProcess};
    found->second.loaded = false;
    return {};
}

ToolText bootstrap(MacState& state, const std::string& plist) {
    boost::system::error_code ignored;
    const std::string label = fs::path(plist).stem().string();
    const auto found = state.services.find(label);
    const bool loaded = found != state.services.end() && found->second.loaded;
    if (loaded || !fs::is_regular_file(state.root + plist, ignored))
        return {"", "Bootstrap failed: 5: Input/output error\n", kInputOutput};
    if (found != state.services.end() && found->second.disabled)
        return {"", "Bootstrap failed: 119: Service is disabled\n", kDisabled};
    state.services[label].loaded = true;
    return {};
}

}  // namespace

ToolText tellLaunchctl(MacState& state, const Arguments& arguments) {
    const ToolText unrecognized = {"", "Unrecognized target specifier.\n", kUsage};
    if (arguments.empty()) return {"", "Usage: launchctl <subcommand> ...\n", kUsage};
    const std::string& command = arguments[0];
    const Arguments words(arguments.begin() + 1, arguments.end());
    if (command == "list") return list(state, words);
    const bool pair = words.size() == 2 && words[0] == "system";
    const std::string label = words.size() == 1 ? labelIn(words[0])
                              : pair            ? fs::path(words[1]).stem().string()
                                                : "";
    if (command == "print-disabled")
        return words.size() == 1 && base::hasBeginning(words[0], "system") ? printDisabled(state)
                                                                           : unrecognized;
    if (command == "bootstrap") return pair ? bootstrap(state, words[1]) : unrecognized;
    if (command == "bootout") return label.empty() ? unrecognized : bootOut(state, label);
    if (command == "print") return label.empty() ? unrecognized : print(state, label);
    if (command == "enable" || command == "disable")
        return label.empty() || pair ? unrecognized : setDisabled(state, label, command == "disable");
    return {"", "Unrecognized subcommand: " + command + "\nUsage: launchctl <subcommand> ...\n", kUsage};
}

}  // namespace zelor::rehearsal

#include "rehearsal/SettingsTools.h"

namespace zelor::rehearsal {

int runSettingsTool(Tool tool, const StateDirectory& directory, const Arguments& arguments,
                    ToolText (*tell)(MacState&, const Arguments&), const ToolText& notRoot) {
    const MacState before = directory.load();
    const Outcome fault = faultFor(before, FaultScope::tool, nameOf(tool));
    disturb(fault);
    if (fault == Outcome::fail) return say({"", nameOf(tool) + ": failed\n", 1});
    MacState after = before;
    const ToolText text = tell(after, arguments);
    if (toJson(after) == toJson(before) || fault == Outcome::noEffect) return say(text);
    if (fault == Outcome::notRoot) return say(notRoot);
    ToolText answer;
    directory.update([&](MacState& state) { answer = tell(state, arguments); });
    return say(answer);
}

int runPkgutil(const StateDirectory& directory, const Arguments& arguments) {
    return runSettingsTool(Tool::pkgutil, directory, arguments, tellPkgutil,
                           {"", "pkgutil: this command must be run as root\n", 1});
}

int runDefaults(const StateDirectory& directory, const Arguments& arguments) {
    return runSettingsTool(Tool::defaults, directory, arguments, tellDefaults,
                           {"", "defaults: Could not write domain; exiting\n", 1});
}

int runLaunchctl(const StateDirectory& directory, const Arguments& arguments) {
    return runSettingsTool(Tool::launchctl, directory, arguments, tellLaunchctl,
                           {"", "Operation not permitted\n", 1});
}

int runPwpolicy(const StateDirectory& directory, const Arguments& arguments) {
    return runSettingsTool(Tool::pwpolicy, directory, arguments, tellPwpolicy,
                           {"", "Error: the policies can be changed as root only\n", 1});
}

}  // namespace zelor::rehearsal

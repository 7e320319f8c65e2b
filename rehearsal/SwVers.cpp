#include "rehearsal/OsVersion.h"
#include "rehearsal/Tools.h"

namespace zelor::rehearsal {

namespace {

ToolText versionText(const MacState& state, const std::string& option) {
    const std::string version = reportedVersion(state.productVersion);
    if (option.empty()) {
        const std::string gap = parseOsVersion(state.productVersion).atLeast(13) ? "\t\t" : "\t";
        return {"ProductName:" + gap + state.productName + "\nProductVersion:" + gap + version +
                    "\nBuildVersion:" + gap + state.buildVersion + "\n",
                "", 0};
    }
    const std::string name = option.compare(0, 2, "--") == 0 ? option.substr(1) : option;
    if (name == "-productName") return {state.productName + "\n", "", 0};
    if (name == "-productVersion") return {version + "\n", "", 0};
    if (name == "-buildVersion") return {state.buildVersion + "\n", "", 0};
    return {"", "Usage: sw_vers [-productName|-productVersion|-buildVersion]\n", 1};
}

}  // namespace

int runSwVers(const StateDirectory& directory, const Arguments& arguments) {
    const MacState state = directory.load();
    const Outcome fault = faultFor(state, FaultScope::tool, nameOf(Tool::swVers));
    disturb(fault);
    if (fault == Outcome::fail) return 1;
    return say(versionText(state, arguments.empty() ? "" : arguments.front()));
}

}  // namespace zelor::rehearsal

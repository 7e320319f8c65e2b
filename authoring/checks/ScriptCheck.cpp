#include "authoring/checks/ScriptCheck.h"

#include <chrono>

#include "base/CommandRunner.h"
#include "base/Strings.h"

namespace zelor::authoring {

Findings scriptFindings(const std::string& place, const std::string& script) {
    constexpr std::chrono::seconds limit{60};
    const base::CommandResult result = base::runCommand({"/bin/bash", "--norc", "-n", script}, true, limit);
    if (!result.started) {
        return {{Severity::warning, place, "the script was not parsed: /bin/bash cannot be started here",
                 "check it on a machine with /bin/bash"}};
    }
    if (result.waited && result.status == 0) return {};
    std::string said = base::trimmed(result.output);
    for (auto at = said.find(script); at != std::string::npos; at = said.find(script))
        said.erase(at, script.size() + (said.compare(at + script.size(), 2, ": ") == 0 ? 2 : 0));
    return {{Severity::error, place,
             "bash cannot parse the script: " + (result.timedOut ? "no end in a minute" : said),
             "correct the line named (bash -n shows the same) and publish it again"}};
}

}  // namespace zelor::authoring

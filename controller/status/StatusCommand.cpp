#include <nlohmann/json.hpp>

#include "controller/Commands.h"
#include "controller/InputError.h"
#include "controller/States.h"
#include "controller/run/OutputFile.h"
#include "controller/status/Status.h"

namespace zelor::controller {

int statusCommand(const StatusOptions& options) {
    using nlohmann::ordered_json;
    requireSystem(options.paths, false);
    checkOutputs({{"--json", options.json}}, "");
    const Status status = gatherStatus(resolvePaths(options.paths));
    const bool text = options.json.empty();
    const std::string problem = writeOutput(text ? "-" : options.json, [&](std::ostream& out) {
        if (text) {
            out << statusText(status);
        } else {
            out << statusJson(status).dump(2, ' ', false, ordered_json::error_handler_t::replace) << '\n';
        }
    });
    if (!problem.empty()) throw CommandError(exitStatus::kOutputFailed, problem);
    return exitStatus::kAllSucceeded;
}

}  // namespace zelor::controller

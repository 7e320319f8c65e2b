#include "controller/run/Inputs.h"

namespace zelor::controller {

Inputs readInputs(const PathOptions& options, const std::string& requests,
                  const std::vector<RequestedOutput>& outputs) {
    requireSystem(options, true);
    Inputs inputs{loadRequests(requests), {}};
    checkOutputs(outputs, requests);
    inputs.paths = resolvePaths(options);
    requireUsableSettings(inputs.paths);
    return inputs;
}

}  // namespace zelor::controller

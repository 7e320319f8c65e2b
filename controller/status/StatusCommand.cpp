#include <unistd.h>

#include <nlohmann/json.hpp>

#include "controller/Commands.h"
#include "controller/States.h"
#include "controller/status/Status.h"

namespace zelor::controller {

int statusCommand(const StatusOptions& options) {
    const Status status = gatherStatus(enterPlace(options.place));
    using nlohmann::ordered_json;
    base::writeAll(STDOUT_FILENO,
                   options.json
                       ? statusJson(status).dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n'
                       : statusText(status));
    return exitStatus::allSucceeded;
}

}  // namespace zelor::controller

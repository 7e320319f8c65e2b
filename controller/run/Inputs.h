#pragma once

#include <string>
#include <vector>

#include "controller/Setup.h"
#include "controller/run/OutputFile.h"
#include "controller/run/Requests.h"

namespace zelor::controller {

/// What every command on requests starts with.
struct Inputs {
    Requests requests;
    Paths paths;
};

/// Reads the file `requests` ("-": standard input) and the agent's settings. Throws InputError when the
/// system, the requests, the outputs or the settings do not let the command work. Changes nothing on disk;
/// call it first.
Inputs readInputs(const PathOptions& options, const std::string& requests,
                  const std::vector<RequestedOutput>& outputs);

}  // namespace zelor::controller

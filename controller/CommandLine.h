#pragma once

#include <string>
#include <vector>

namespace zelor::controller {

/// Runs the controller with the arguments after its name; returns the exit status.
int runController(const std::vector<std::string>& arguments);

}  // namespace zelor::controller

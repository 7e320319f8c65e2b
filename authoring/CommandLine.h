#pragma once

#include <string>
#include <vector>

namespace zelor::authoring {

/// Runs the author's tool with the arguments after its name; messages go to standard error. Returns the exit
/// status.
int runContentTool(const std::vector<std::string>& arguments);

}  // namespace zelor::authoring

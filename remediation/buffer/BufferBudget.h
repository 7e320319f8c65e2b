#pragma once

#include <string>

/// What a buffering job may use according to the agent's settings.
namespace zelor::remediation {

/// True when a patch of this size (text such as "12.5 MB") does not fit into what is left of the buffer
/// directory's budget.
bool exceedsBudget(const std::string& patchSize);

/// Adds the sizes in bytes of all files below `dir` to `size`. Links are followed; a directory that is
/// reached more than once counts once. What cannot be read is logged and does not count.
void addDirectorySize(const std::string& dir, long& size);

/// The rate for buffering in bytes per second: a share of the measured bandwidth, or 1,024 when that is
/// unknown. Blocks while it measures the bandwidth. `installPath`: the agent's install directory.
unsigned long bufferingRate(const std::string& installPath);

}  // namespace zelor::remediation

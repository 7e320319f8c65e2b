#pragma once

#include <string_view>

namespace zelor::base {

/// True for a variable of the environment that makes shells or libraries read, write or run something: shell
/// start-up files and options, exported shell functions, OpenSSL's configuration, the file that TLS keys are
/// written to. Pure.
bool isHarmfulVariable(std::string_view name, std::string_view value);

/// Removes those from this process's environment, and so from that of its children. Call it before other
/// threads run.
void removeHarmfulVariables();

/// What a program does first in `main`: removes harmful variables, and ignores SIGXFSZ, so that a limit on
/// the size of files is a failed write. Children get the signal's default action from `base/Spawn.h`.
void prepareProgram();

}  // namespace zelor::base

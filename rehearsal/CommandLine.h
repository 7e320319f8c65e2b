#pragma once

#include <string>

namespace zelor::rehearsal {

/// The program under its own name: makes and changes a rehearsal Mac, builds packages and images. Returns the
/// exit status: 0, or 2 for unusable arguments and 1 for anything that failed, with a message.
int runCommandLine(int count, char** words);

/// The directory of the name that this program was called by: of `name` itself when it holds a slash, else of
/// the first executable of that name in `searchPath`, as the shell looked it up. Throws std::runtime_error
/// when there is none.
std::string directoryOfName(const std::string& name, const std::string& searchPath);

}  // namespace zelor::rehearsal

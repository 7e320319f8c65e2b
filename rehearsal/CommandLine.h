#pragma once

namespace zelor::rehearsal {

/// The program under its own name: makes and changes a rehearsal Mac, builds packages and images. Returns the
/// exit status: 0, or 2 for unusable arguments and 1 for anything that failed, with a message.
int runCommandLine(int count, char** words);

}  // namespace zelor::rehearsal

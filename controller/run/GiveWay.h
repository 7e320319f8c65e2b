#pragma once

#include <string>

#include "base/LockFile.h"

/// How a buffering job gives way to a run, in two processes: each has its own lock, beside the one that
/// only one of them can hold. A lock ends with its holder, however that ends.
namespace zelor::controller {

/// Held by a buffering job while it works, so that a run knows that it is worth waiting. One thread at a
/// time.
class BufferingSign {
  public:
    /// `directory`: the one of the job lock. Throws InputError when one of the files cannot be used as a
    /// lock file.
    explicit BufferingSign(const std::string& directory);
    /// True while some run waits.
    bool runWaits() const;

  private:
    base::LockFile buffering_;
    base::LockFile waiting_;
};

/// Held by a run while it waits. One thread at a time.
class WaitingSign {
  public:
    /// As above.
    explicit WaitingSign(const std::string& directory);
    /// True while a buffering job works.
    bool jobBuffers() const;

  private:
    base::LockFile buffering_;
    base::LockFile waiting_;
};

}  // namespace zelor::controller

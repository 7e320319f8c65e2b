#pragma once

#include <string>

#include "base/Files.h"

/// How a buffering job gives way to a run, in two processes: each has a lock of its own, beside the one that
/// only one of them can hold. A lock ends with its holder, however that ends.
namespace zelor::controller {

/// Held by a buffering job while it works, so that a run knows that it is worth waiting. One thread at a
/// time.
class BufferingSign {
  public:
    /// `directory`: the one of the place's lock. Throws InputError when a file of the signs is not ours
    /// alone.
    explicit BufferingSign(const std::string& directory);
    /// True while some run waits.
    bool runWaits() const;

  private:
    base::UniqueFd buffering_;
    base::UniqueFd waiting_;
};

/// Held by a run while it waits. One thread at a time.
class WaitingSign {
  public:
    /// As above.
    explicit WaitingSign(const std::string& directory);
    /// True while a buffering job works.
    bool jobBuffers() const;

  private:
    base::UniqueFd buffering_;
    base::UniqueFd waiting_;
};

}  // namespace zelor::controller

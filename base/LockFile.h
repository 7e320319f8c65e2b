#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "base/Files.h"

namespace zelor::base {

/// A file of mode 0600 whose flock(2) one process holds at a time. Who cannot open it cannot hold it. The
/// file stays when the lock is released: were it removed, two could hold "the" lock.
class LockFile {
  public:
    /// Opens the file, and makes it when there is none. A file of this user's that others may open is closed
    /// to them. Throws std::runtime_error, which names the file, the cause and the remedy, when it cannot be
    /// opened, is a link or no regular file, or belongs to another user.
    explicit LockFile(std::string path);

    /// False when another open file holds the lock. Held until the object is destroyed, or until the last
    /// process that inherited the descriptor has closed it. Throws as the constructor does, and when the file
    /// system has no locks.
    bool take();
    /// Holds the lock together with others that share it; waits for one that has taken it.
    void share();
    /// Whether another open file holds or shares the lock. Only for who neither holds nor shares it.
    bool isHeld() const;
    /// Gives the lock up, for processes that inherited it too.
    void release();
    /// Puts a new file in the place of this one and opens it. Only for who knows that the lock means nothing.
    void renew();

    /// Writes a process id (negative: a process group's; none: an empty file) for those who ask for the
    /// holder. A failure is not reported: the lock counts, not the text.
    void note(std::optional<long> process);
    /// What was noted last, by whoever holds the lock; nothing for another text.
    std::optional<long> noted() const;

    /// The file, and its descriptor, which stays this object's.
    const std::string& path() const { return path_; }
    int descriptor() const { return file_.get(); }

  private:
    void open();
    bool isInPlace() const;

    std::string path_;
    UniqueFd file_;
};

/// What can be seen of a lock without taking it.
struct LockState {
    /// `unknown`: the file cannot be examined.
    enum class Kind { free, held, unknown } kind = Kind::free;
    std::optional<long> process;  ///< the holder, when `held` and known
    std::string problem;          ///< why it is `unknown`
};

/// Looks at a lock file; a missing one counts as free. For a moment the lock is shared, so that a
/// holder-to-be tries twice. Changes nothing.
LockState lookAtLock(const std::string& path);

}  // namespace zelor::base

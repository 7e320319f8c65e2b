#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "base/LockFile.h"

namespace zelor::base {

/// While it is taken, each command of `base/CommandRunner.h` inherits the descriptor of a lock file, under
/// the number `kChildLockDescriptor`: when this process is killed, the lock stays held as long as its command
/// is running, and the next process sees that. The file says which process that is, so that services which a
/// command left behind, and which have the descriptor too, are not taken for it. At most one lives in a
/// process, and commands run one at a time under it.
class ChildLock {
  public:
    /// Throws as `LockFile` does.
    explicit ChildLock(const std::string& path) : file_(path) {}
    ~ChildLock();
    ChildLock(const ChildLock&) = delete;
    ChildLock& operator=(const ChildLock&) = delete;

    /// False when a command of an earlier process is still running. The caller has made sure that the earlier
    /// process itself has ended.
    bool take();
    /// The command that is still running, as the id of its process or, negative, its group; nothing when not
    /// known.
    std::optional<long> command() const { return file_.noted(); }
    const std::string& path() const { return file_.path(); }

  private:
    bool onlyServicesHoldIt() const;

    LockFile file_;
    bool taken_ = false;
};

/// Looks at the lock file of an earlier process: `held` while a `ChildLock` could not be taken, with what
/// `ChildLock::command` would say. The caller has made sure that the earlier process itself has ended.
LockState lookAtCommand(const std::string& path);

/// The number under which commands inherit the lock: one that scripts do not use by habit.
constexpr int kChildLockDescriptor = 99;

/// The life of one command, as the child lock's file has it; does nothing without a lock.
class CommandNote {
  public:
    /// Before the command is started: one of unknown id may go on from now on.
    CommandNote();
    /// The command has ended.
    ~CommandNote();
    CommandNote(const CommandNote&) = delete;
    CommandNote& operator=(const CommandNote&) = delete;
    /// The command has started; `group`: it lasts as long as any process of its group.
    void started(pid_t process, bool group);
};

/// The descriptor to pass on as `kChildLockDescriptor`; -1 for none, also when this process's limit of
/// descriptors does not reach that number.
int childLockToInherit();

}  // namespace zelor::base

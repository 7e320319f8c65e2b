#pragma once

#include <signal.h>
#include <spawn.h>

#include <string>
#include <vector>

/// RAII for what posix_spawn(3) takes.
namespace zelor::base {

/// The file actions of a child; none at first.
class SpawnActions {
  public:
    SpawnActions() { posix_spawn_file_actions_init(&actions_); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    /// For adding actions, and for posix_spawn(3). Stays this object's.
    posix_spawn_file_actions_t* get() { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

/// The signal mask, default signal actions and flags of a child.
class SpawnAttributes {
  public:
    /// The child starts with the signal mask `blocked` and the default actions for `defaults`. `flags`:
    /// further flags as posix_spawnattr_setflags takes them; POSIX_SPAWN_SETPGROUP puts the child into a new
    /// process group.
    SpawnAttributes(const sigset_t& blocked, const sigset_t& defaults, int flags);
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    /// For posix_spawn(3). Stays this object's.
    const posix_spawnattr_t* get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

/// `words` as a null-terminated argument vector; valid as long as `words` is unchanged.
std::vector<char*> argumentPointers(const std::vector<std::string>& words);

}  // namespace zelor::base

#pragma once

#include <signal.h>
#include <spawn.h>

#include <string>
#include <vector>

/// What posix_spawn(3) takes, released by destructors.
namespace zelor::base {

class SpawnActions {
  public:
    SpawnActions() { posix_spawn_file_actions_init(&actions_); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    posix_spawn_file_actions_t* get() { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

class SpawnAttributes {
  public:
    /// The child starts with the signal mask `blocked` and the default actions for `defaults`. `flags`:
    /// further flags as posix_spawnattr_setflags takes them; POSIX_SPAWN_SETPGROUP makes a process group of
    /// its own.
    SpawnAttributes(const sigset_t& blocked, const sigset_t& defaults, int flags);
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    const posix_spawnattr_t* get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

/// `words` as the arguments of a program, with the null pointer at the end; valid as long as `words`.
std::vector<char*> argumentPointers(const std::vector<std::string>& words);

}  // namespace zelor::base

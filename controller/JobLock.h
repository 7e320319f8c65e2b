#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "base/ChildLock.h"
#include "base/LockFile.h"

namespace zelor::controller {

/// How long a command waits for another one at its place to end, and whether it says so on standard error.
struct Waiting {
    std::chrono::seconds longest{0};
    bool quiet = false;
    /// That long it waits in any case for a buffering job, which gives way to it; zero: it is no run.
    std::chrono::seconds forBuffering{0};
};

/// The directory of the files whose locks keep runs apart, below the root: one place for all agents of a
/// system, whatever their settings.
std::string lockDirectory();
/// The lock of a run or buffering job.
std::string jobLockFile();
/// The lock that the running command holds too, which outlives a controller that is killed.
std::string commandLockFile();

/// Holds the only right to run or buffer on this system for its life. While another process has it, waits as
/// `waiting` says, and a run waits for a buffering job to give way; then throws CommandError with
/// exitStatus::kBusy; with exitStatus::kCancelled when a signal ends the wait. Then waits in the same way,
/// but for at least ten minutes, for the command of a controller that was killed. Throws InputError when a
/// lock file cannot be used. One at a time in a process.
class JobLock {
  public:
    /// Blocks while it waits.
    explicit JobLock(const Waiting& waiting);

  private:
    std::unique_ptr<base::LockFile> job_;
    std::unique_ptr<base::ChildLock> commands_;
};

}  // namespace zelor::controller

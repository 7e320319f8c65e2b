#pragma once

#include <signal.h>
#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "base/Mutex.h"

namespace zelor::authoring {

/// A command was ended by SIGINT, SIGTERM or SIGHUP.
class Interrupted : public std::runtime_error {
  public:
    Interrupted() : std::runtime_error("interrupted") {}
};

/// Holds SIGINT, SIGTERM and SIGHUP back, in every thread made from here on, so that what is under way is put
/// in order again; the process group of a program that `run` runs gets them instead, and a terminal's changes
/// of size. One at a time in a process.
class SignalRelay {
  public:
    SignalRelay();
    ~SignalRelay();
    SignalRelay(const SignalRelay&) = delete;
    SignalRelay& operator=(const SignalRelay&) = delete;

    /// Throws Interrupted when a signal has come.
    void requireNone();
    /// Runs `argv` (its first word a path) on this process's standard streams, in a process group of its own,
    /// and returns its exit status, 128 and the signal's number when one ended it. Throws std::runtime_error
    /// when it cannot be started.
    int run(std::vector<std::string> argv);

  private:
    void relay();

    sigset_t signals_{};
    sigset_t before_{};
    base::Mutex mutex_;
    bool received_ ZELOR_GUARDED_BY(mutex_) = false;
    bool ended_ ZELOR_GUARDED_BY(mutex_) = false;
    pid_t program_ ZELOR_GUARDED_BY(mutex_) = 0;
    std::thread thread_;
};

}  // namespace zelor::authoring

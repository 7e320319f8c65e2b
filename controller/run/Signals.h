#pragma once

#include <chrono>

namespace zelor::controller {

/// Counts SIGINT, SIGTERM and SIGHUP (the ending signals) and handles SIGWINCH, SIGTSTP and SIGPIPE for its
/// life; one object at a time. The second ending signal ends the process at once with status 130. A signal
/// that was ignored when the process started stays ignored. Programs started meanwhile get the default
/// actions.
class Signals {
  public:
    Signals();
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    /// True once an ending signal has come.
    bool endAsked() const;
    /// True once after each change of the terminal's size and each return from a stop.
    bool takeRedraw();
    /// Waits that long, or until a signal comes.
    void wait(std::chrono::milliseconds time) const;

    /// Sets the terminal whose cursor is hidden, -1 for none: a stop or a sudden end shows it again.
    static void setHiddenCursor(int fd);
};

}  // namespace zelor::controller

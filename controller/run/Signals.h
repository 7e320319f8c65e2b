#pragma once

#include <chrono>

namespace zelor::controller {

/// SIGINT, SIGTERM and SIGHUP counted, and SIGWINCH, SIGTSTP and SIGPIPE kept from harm, for one object's
/// life; one object at a time. The second ending signal leaves the process at once with status 130. A signal
/// that the process was started with as ignored stays ignored. Programs started meanwhile see the defaults.
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

    /// While a terminal's cursor is hidden, `fd` is the terminal, where a stop or a sudden end shows it
    /// again; -1: none is hidden.
    static void setHiddenCursor(int fd);
};

}  // namespace zelor::controller

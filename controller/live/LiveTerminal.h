#pragma once

#include <string>
#include <vector>

#include "controller/live/LiveFrame.h"

namespace zelor::controller {

/// True when a live display can be shown on the descriptor: a terminal that can move its cursor.
bool isLiveTerminal(int fd);

/// The width of the terminal at `fd`; 0 for what is no terminal.
std::size_t terminalColumns(int fd);

/// Draws frames over each other at the bottom of a terminal, with finished lines above them. The cursor is
/// hidden for its life and shown again at every way out. One object at a time.
class LiveTerminal {
  public:
    /// The descriptor stays the caller's.
    explicit LiveTerminal(int fd);
    /// Takes the last frame away.
    ~LiveTerminal();
    LiveTerminal(const LiveTerminal&) = delete;
    LiveTerminal& operator=(const LiveTerminal&) = delete;

    /// The terminal as it is now.
    LiveStyle style() const;
    /// Writes the settled lines and replaces the frame, in one write.
    void draw(const std::vector<FrameLine>& settled, const std::vector<FrameLine>& frame);

  private:
    std::string eraseLast(const LiveStyle& style) const;

    int fd_;
    bool colour_;
    bool unicode_;
    std::vector<FrameLine> last_;
};

}  // namespace zelor::controller

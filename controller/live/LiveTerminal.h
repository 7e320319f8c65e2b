#pragma once

#include <string>
#include <vector>

#include "controller/live/LiveFrame.h"

namespace zelor::controller {

/// True when a live display can be shown on the descriptor: a terminal that can move its cursor.
bool isLiveTerminal(int fd);

/// The columns of the terminal at `fd`; 0 when it is not a terminal.
std::size_t terminalColumns(int fd);

/// Draws frames at the bottom of a terminal, each replacing the last, with finished lines above them. Hides
/// the cursor for its life; it is shown again also when a signal ends the process. One object at a time.
class LiveTerminal {
  public:
    /// The descriptor stays the caller's.
    explicit LiveTerminal(int fd);
    /// Erases the last frame.
    ~LiveTerminal();
    LiveTerminal(const LiveTerminal&) = delete;
    LiveTerminal& operator=(const LiveTerminal&) = delete;

    /// The terminal's current size and abilities.
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

#include "controller/live/LiveTerminal.h"

#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "base/Files.h"
#include "base/Strings.h"
#include "controller/run/Signals.h"

namespace zelor::controller {

namespace {

// A terminal that knows the first and last of these shows a frame only when it is whole.
constexpr char kBeginFrame[] = "\x1b[?2026h";
constexpr char kEndFrame[] = "\x1b[?2026l";
constexpr char kHideCursor[] = "\x1b[?25l";
constexpr char kShowCursor[] = "\x1b[?25h";
constexpr char kEraseRestOfLine[] = "\x1b[K";
constexpr char kEraseBelow[] = "\x1b[J";

std::string environmentText(const char* name) {
    const char* value = ::getenv(name);
    return value == nullptr ? "" : value;
}

bool localeIsUtf8() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const std::string value = base::lowerCased(environmentText(name));
        if (!value.empty()) return base::contains(value, "utf-8") || base::contains(value, "utf8");
    }
    return false;
}

void appendLines(std::string& out, const std::vector<FrameLine>& lines) {
    for (const FrameLine& line : lines)
        out += line.text + kEraseRestOfLine + '\n';
}

}  // namespace

bool isLiveTerminal(int fd) {
    const std::string term = environmentText("TERM");
    return ::isatty(fd) != 0 && !term.empty() && term != "dumb";
}

std::size_t terminalColumns(int fd) {
    if (::isatty(fd) == 0) return 0;
    struct winsize size {};
    return ::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : LiveStyle().columns;
}

LiveTerminal::LiveTerminal(int fd)
    : fd_(fd), colour_(environmentText("NO_COLOR").empty()), unicode_(localeIsUtf8()) {
    Signals::setHiddenCursor(fd);
    base::writeAll(fd_, kHideCursor);
}

LiveTerminal::~LiveTerminal() {
    base::writeAll(fd_, eraseLast(style()) + kEraseBelow + kShowCursor);
    Signals::setHiddenCursor(-1);
}

LiveStyle LiveTerminal::style() const {
    LiveStyle style;
    struct winsize size {};
    if (::ioctl(fd_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) {
        style.columns = size.ws_col;
        style.lines = size.ws_row;
    }
    style.colour = colour_;
    style.unicode = unicode_;
    return style;
}

std::string LiveTerminal::eraseLast(const LiveStyle& style) const {
    const std::size_t up = std::min(linesOnScreen(last_, style.columns), style.lines - 1);
    return up == 0 ? "\r" : "\r\x1b[" + std::to_string(up) + 'A';
}

void LiveTerminal::draw(const std::vector<FrameLine>& settled, const std::vector<FrameLine>& frame) {
    std::string out = kBeginFrame + eraseLast(style());
    appendLines(out, settled);
    appendLines(out, frame);
    out += std::string(kEraseBelow) + kEndFrame;
    base::writeAll(fd_, out);
    last_ = frame;
}

}  // namespace zelor::controller

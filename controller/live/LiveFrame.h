#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "controller/States.h"

/// The live display as text: only decisions, nothing here touches a terminal.
namespace zelor::controller {

/// The time between two frames, in seconds, and the columns of a row's state.
constexpr double kFrameTime = 0.08;
constexpr std::size_t kStateColumns = 16;

/// What a state means to the reader; decides the colour.
enum class Tone { waiting, busy, good, bad, stopped };

/// A download's bytes and speed.
struct Transfer {
    std::uint64_t done = 0;
    std::uint64_t total = 0;  ///< 0: not known
    double rate = 0;          ///< bytes per second; 0: not known yet
};

/// One request (or patch). All texts are printable.
struct LiveRow {
    std::string name;
    std::string identifier;
    std::string state;
    Tone tone = Tone::waiting;
    double seconds = 0;  ///< in this state; for a settled row, in total
    std::optional<Transfer> transfer;
    std::string reason;
};

/// What one frame shows.
struct LiveView {
    std::vector<LiveRow> rows;  ///< busy ones first
    std::size_t moreWaiting = 0;
    std::size_t done = 0;
    std::size_t total = 0;                                    ///< 0: not known
    std::vector<std::pair<std::string, std::size_t>> counts;  ///< results by state
    double seconds = 0;
    EarlyEnd end = EarlyEnd::none;  ///< why the end is awaited
    /// Columns of names and identifiers, so that they stay where they are from frame to frame; those of the
    /// rows where they are wider.
    std::size_t nameColumns = 0;
    std::size_t identifierColumns = 0;
};

/// What the terminal can show.
struct LiveStyle {
    std::size_t columns = 80;
    std::size_t lines = 24;
    bool colour = false;
    bool unicode = false;
};

/// One line of a frame.
struct FrameLine {
    std::string text;         ///< with its escape sequences for colour
    std::size_t columns = 0;  ///< that it takes; below the style's columns, so that nothing wraps
};

/// How many rows a frame has room for, above its other lines.
std::size_t rowsThatFit(const LiveStyle& style);

/// The lines of a frame, which replaces the previous one: rows as far as they fit, how many are left out, the
/// total. Fewer lines than the terminal has.
std::vector<FrameLine> liveFrame(const LiveView& view, const LiveStyle& style);

/// The lines that remain of a finished row; a reason that does not fit gets its own lines. Names and
/// identifiers are as wide as those of the view's rows.
std::vector<FrameLine> settledLines(const LiveRow& row, const LiveView& view, const LiveStyle& style);

/// How many lines of the screen the frame takes after the terminal's width became `columns`.
std::size_t linesOnScreen(const std::vector<FrameLine>& frame, std::size_t columns);

}  // namespace zelor::controller

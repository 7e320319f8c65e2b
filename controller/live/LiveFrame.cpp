#include "controller/live/LiveFrame.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "controller/Text.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kMostIdentifier = 20;
constexpr std::size_t kFullWidth = 72;  ///< below it the identifier is left out
constexpr std::size_t kLeastBar = 6;
constexpr std::size_t kMostBar = 28;
constexpr char kPlain[] = "";

const char* colourOf(Tone tone) {
    switch (tone) {
        case Tone::waiting:
            return kDim;
        case Tone::busy:
            return kCyan;
        case Tone::good:
            return kGreen;
        case Tone::bad:
            return kRed;
        case Tone::stopped:
            return kYellow;
    }
    return kPlain;
}

std::string markOf(Tone tone, double time, bool unicode) {
    static constexpr std::array<const char*, 10> kDots = {"⠋", "⠙", "⠹", "⠸", "⠼", "⠴", "⠦", "⠧", "⠇", "⠏"};
    static constexpr std::array<const char*, 4> kStrokes = {"|", "/", "-", "\\"};
    switch (tone) {
        case Tone::waiting:
            return unicode ? "·" : ".";
        case Tone::busy: {
            const auto turn = static_cast<std::size_t>(std::max(time, 0.0) * 10);
            return unicode ? kDots.at(turn % kDots.size()) : kStrokes.at(turn % kStrokes.size());
        }
        case Tone::good:
            return unicode ? "✓" : "+";
        case Tone::bad:
            return unicode ? "✗" : "x";
        case Tone::stopped:
            return unicode ? "■" : "!";
    }
    return " ";
}

/// One line of at most so many columns, made from left to right.
class LineBuilder {
  public:
    explicit LineBuilder(const LiveStyle& style)
        : style_(style), room_(style.columns > 0 ? style.columns - 1 : 0) {}

    std::size_t left() const { return room_ - line_.columns - blanks_; }
    std::string ellipsis() const { return style_.unicode ? "…" : "~"; }

    /// Adds what fits of the text. Blanks at its end wait for what follows: at the end of a line they would
    /// wrap with it when the terminal shrinks.
    void add(const std::string& text, const char* colour = kPlain) {
        const std::string fitting = cutToColumns(text, left(), ellipsis());
        const auto last = fitting.find_last_not_of(' ');
        const std::size_t size = last == std::string::npos ? 0 : last + 1;
        if (size > 0) {
            const std::string shown = fitting.substr(0, size);
            const bool coloured = style_.colour && colour[0] != '\0';
            line_.text.append(blanks_, ' ').append(coloured ? colour + shown + kUncoloured : shown);
            line_.columns += blanks_ + columnsOf(shown);
            blanks_ = 0;
        }
        blanks_ += fitting.size() - size;
    }
    void addColumn(const std::string& text, std::size_t columns, const char* colour = kPlain) {
        add(fitToColumns(text, columns, ellipsis()) + "  ", colour);
    }
    void addBar(double share, std::size_t columns) {
        const double within = std::min(std::max(share, 0.0), 1.0);
        const auto full = static_cast<std::size_t>(std::floor(within * static_cast<double>(columns)));
        std::string filled;
        std::string rest;
        for (std::size_t i = 0; i < columns; ++i)
            (i < full ? filled : rest) += style_.unicode ? (i < full ? "━" : "─") : (i < full ? "#" : "-");
        add(filled, kGreen);
        add(rest, kDim);
        add("  ");
    }
    FrameLine finish() { return std::move(line_); }

  private:
    const LiveStyle& style_;
    std::size_t room_;
    std::size_t blanks_ = 0;
    FrameLine line_;
};

/// The columns of a frame's rows.
struct Columns {
    std::size_t name = 8;
    std::size_t identifier = 0;
};

Columns columnsFor(const LiveView& view, const LiveStyle& style) {
    Columns columns;
    columns.name = std::max(columns.name, view.nameColumns);
    columns.identifier = view.identifierColumns;
    for (const LiveRow& row : view.rows) {
        columns.name = std::max(columns.name, columnsOf(row.name));
        columns.identifier = std::max(columns.identifier, columnsOf(row.identifier));
    }
    columns.name = std::min(columns.name, std::max<std::size_t>(style.columns * 2 / 5, 8));
    columns.identifier = style.columns < kFullWidth ? 0 : std::min(columns.identifier, kMostIdentifier);
    return columns;
}

/// "4.2/12.5 MB"; the unit is repeated only where it differs.
std::string amountText(const Transfer& transfer) {
    if (transfer.total == 0) return bytesText(transfer.done);
    const std::string done = bytesText(transfer.done);
    const std::string total = bytesText(transfer.total);
    const auto blank = done.find(' ');
    const bool sameUnit = done.substr(blank) == total.substr(total.find(' '));
    return (sameUnit ? done.substr(0, blank) : done) + "/" + total;
}

void addTransfer(LineBuilder& line, const Transfer& transfer) {
    std::string tail = amountText(transfer);
    if (transfer.rate >= 1) {
        tail += "  " + bytesText(static_cast<std::uint64_t>(transfer.rate)) + "/s";
        if (transfer.total > transfer.done) {
            tail +=
                "  " +
                clockText(std::ceil(static_cast<double>(transfer.total - transfer.done) / transfer.rate)) +
                " left";
        }
    }
    const std::size_t taken = columnsOf(tail) + 2;
    if (transfer.total > 0 && line.left() >= taken + kLeastBar) {
        const double share = static_cast<double>(transfer.done) / static_cast<double>(transfer.total);
        line.addBar(share, std::min(line.left() - taken, kMostBar));
    }
    line.add(tail);
}

FrameLine rowLine(const LiveRow& row, const Columns& columns, const LiveStyle& style) {
    LineBuilder line(style);
    line.add(markOf(row.tone, row.seconds, style.unicode) + " ", colourOf(row.tone));
    line.addColumn(row.name, columns.name, row.tone == Tone::waiting ? kDim : kPlain);
    if (columns.identifier > 0) line.addColumn(row.identifier, columns.identifier, kDim);
    line.addColumn(row.state, kStateColumns, colourOf(row.tone));
    if (row.transfer) {
        addTransfer(line, *row.transfer);
    } else if (row.tone == Tone::busy) {
        line.add(clockText(row.seconds));
    }
    return line.finish();
}

std::string countsText(const LiveView& view) {
    std::string text;
    for (const auto& [state, count] : view.counts)
        text += (text.empty() ? "" : ", ") + std::to_string(count) + ' ' + state;
    return text;
}

std::string shortCountsText(const LiveView& view) {
    const auto good = std::find_if(view.counts.begin(), view.counts.end(),
                                   [](const auto& one) { return one.first == stateName(kSuccessValue); });
    const std::size_t succeeded = good == view.counts.end() ? 0 : good->second;
    return std::to_string(succeeded) + " good, " +
           std::to_string(view.done - std::min(succeeded, view.done)) + " not";
}

FrameLine totalLine(const LiveView& view, const LiveStyle& style) {
    LineBuilder line(style);
    const std::string progress =
        std::to_string(view.done) + (view.total > 0 ? " of " + std::to_string(view.total) : "") + " done  ";
    line.add(progress, kBold);
    const std::string time = clockText(view.seconds);
    std::string counts = countsText(view);
    if (line.left() < columnsOf(counts) + columnsOf(time) + 4 + kLeastBar) counts = shortCountsText(view);
    const std::size_t taken = columnsOf(counts) + columnsOf(time) + 4;
    if (view.total > 0 && line.left() >= taken + kLeastBar) {
        line.addBar(static_cast<double>(view.done) / static_cast<double>(view.total),
                    std::min(line.left() - taken, kMostBar));
    }
    line.add(time + (counts.empty() ? "" : "  "), kDim);
    line.add(counts);
    return line.finish();
}

FrameLine oneLine(const std::string& text, const char* colour, const LiveStyle& style) {
    LineBuilder line(style);
    line.add(text, colour);
    return line.finish();
}

/// Lines below the rows: the total, and perhaps what is left out and that the end was asked for.
constexpr std::size_t kLinesBelow = 3;

}  // namespace

std::size_t rowsThatFit(const LiveStyle& style) {
    // One line stays free for the cursor.
    return style.lines > kLinesBelow + 1 ? style.lines - kLinesBelow - 1 : 0;
}

std::vector<FrameLine> liveFrame(const LiveView& view, const LiveStyle& style) {
    std::vector<FrameLine> frame;
    const std::size_t shown = std::min(view.rows.size(), rowsThatFit(style));
    const Columns columns = columnsFor(view, style);
    for (std::size_t i = 0; i < shown; ++i)
        frame.push_back(rowLine(view.rows[i], columns, style));
    const std::size_t more = view.moreWaiting + view.rows.size() - shown;
    if (style.lines > kLinesBelow && more > 0) {
        frame.push_back(oneLine("  and " + std::to_string(more) + " more", kDim, style));
    }
    frame.push_back(totalLine(view, style));
    if (view.end != EarlyEnd::none && style.lines > kLinesBelow) {
        const char* hint = view.end == EarlyEnd::signal ? " A second Ctrl-C exits at once." : "";
        frame.push_back(oneLine(earlyEndText(view.end) + hint, kYellow, style));
    }
    return frame;
}

std::vector<FrameLine> settledLines(const LiveRow& row, const LiveView& view, const LiveStyle& style) {
    constexpr char kIndent[] = "    ";
    const Columns columns = columnsFor(view, style);
    LineBuilder line(style);
    line.add(markOf(row.tone, 0, style.unicode) + " ", colourOf(row.tone));
    line.addColumn(row.name, std::max(columns.name, columnsOf(row.name)));
    if (columns.identifier > 0) line.addColumn(row.identifier, columns.identifier, kDim);
    line.addColumn(row.state, kStateColumns, colourOf(row.tone));
    if (row.seconds >= 0.05) line.add(durationText(row.seconds) + "  ", kDim);
    if (columnsOf(row.reason) <= line.left()) {
        line.add(row.reason, kDim);
        return {line.finish()};
    }
    std::vector<FrameLine> lines = {line.finish()};
    const std::size_t room = style.columns > sizeof kIndent ? style.columns - sizeof kIndent : 1;
    for (const std::string& text : wrapToColumns(row.reason, room))
        lines.push_back(oneLine(kIndent + text, kDim, style));
    return lines;
}

std::size_t linesOnScreen(const std::vector<FrameLine>& frame, std::size_t columns) {
    std::size_t lines = 0;
    for (const FrameLine& line : frame)
        lines += line.columns == 0 || columns == 0 ? 1 : (line.columns + columns - 1) / columns;
    return lines;
}

}  // namespace zelor::controller

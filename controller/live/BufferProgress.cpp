#include "controller/live/BufferProgress.h"

#include "agent/DownloadProgress.h"
#include "controller/Text.h"

namespace zelor::controller {

namespace {

using Kind = BufferOutcome;

std::string plainText(const LiveRow& row) {
    return fitToColumns(row.state, kStateColumns, "") + "  " + row.name +
           (row.identifier.empty() ? "" : " (" + row.identifier + ")") +
           (row.reason.empty() ? "" : ": " + row.reason);
}

}  // namespace

std::string outcomeName(BufferOutcome kind) {
    switch (kind) {
        case Kind::downloading:
            return "downloading";
        case Kind::buffered:
            return "buffered";
        case Kind::alreadyBuffered:
            return "already-buffered";
        case Kind::skipped:
        case Kind::tooLarge:
            return "skipped";
    }
    return "";
}

BufferProgress::BufferProgress(int fd, bool live, BufferRecord& record) : fd_(fd), record_(record) {
    if (live) terminal_ = std::make_unique<LiveTerminal>(fd);
}

void BufferProgress::settle(const LiveRow& row) {
    if (terminal_) {
        for (FrameLine& line : settledLines(row, view_, terminal_->style()))
            settled_.push_back(std::move(line));
    } else {
        writePlainLine(fd_, plainText(row));
    }
}

void BufferProgress::changed(const ResultTable& table, const std::vector<Change>& changes, double /*time*/) {
    for (const Change& change : changes) {
        if (change.value != kContentFailedValue && change.value != kInvalidRequestValue) continue;
        if (invalid_.leavesOut(change.value)) continue;
        const Result& result = table.results()[change.request];
        settle({requestLabel(*result.key), base::printable(*result.identifier), stateName(change.value),
                Tone::bad, 0, std::nullopt, outage_.shown(record_.reason(result))});
    }
    const std::string more = invalid_.takeText();
    if (!more.empty()) writeLine(more);
}

void BufferProgress::writeLine(const std::string& text) {
    if (terminal_) {
        const std::string line = text.substr(0, terminal_->style().columns - 1);
        settled_.push_back({line, line.size()});
    } else {
        writePlainLine(fd_, text);
    }
}

void BufferProgress::ticked(const ResultTable& /*table*/, double time) {
    for (const PatchOutcome& news : record_.takeNews()) {
        view_.rows.clear();
        LiveRow row{base::printable(news.patch), "", outcomeName(news.kind), Tone::busy, 0, std::nullopt,
                    outage_.shown(news.reason)};
        if (news.kind == Kind::downloading) {
            meter_.reset();
            if (terminal_) view_.rows.push_back(row);
        } else {
            const bool there = news.kind == Kind::buffered || news.kind == Kind::alreadyBuffered;
            row.tone = there ? Tone::good : Tone::bad;
            ++view_.done;
        }
        if (news.kind != Kind::downloading || !terminal_) settle(row);
    }
    view_.seconds = time;
    if (terminal_ && time - drawn_ >= kFrameTime) draw(time);
}

void BufferProgress::draw(double time) {
    drawn_ = time;
    const agent::DownloadSnapshot download = agent::DownloadProgress::instance().snapshot();
    for (LiveRow& row : view_.rows) {
        if (!download.active) continue;
        row.seconds = time;
        row.transfer =
            Transfer{download.bytesDone, download.bytesTotal, meter_.rate(download.bytesDone, time)};
    }
    terminal_->draw(settled_, liveFrame(view_, terminal_->style()));
    settled_.clear();
}

void BufferProgress::cancelling(EarlyEnd why, double /*time*/) {
    view_.end = why;
    if (terminal_) return;
    writePlainLine(
        fd_, why == EarlyEnd::signal ? "Cancelling. A second signal exits at once." : earlyEndText(why));
}

void BufferProgress::ended(const ResultTable& table, double time) {
    ticked(table, time);
    if (terminal_) draw(time);
}

}  // namespace zelor::controller

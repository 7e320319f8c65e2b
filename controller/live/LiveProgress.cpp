#include "controller/live/LiveProgress.h"

#include <algorithm>

#include "controller/Text.h"

namespace zelor::controller {

namespace {

constexpr double kRestTime = 0.4;
constexpr std::size_t kMeasuredRequests = 2000;

Tone toneOf(ProgressValue value) {
    if (value == kSuccessValue) return Tone::good;
    if (value == kAbortedValue) return Tone::stopped;
    if (isResult(value)) return Tone::bad;
    return isActive(value) ? Tone::busy : Tone::waiting;
}

}  // namespace

std::vector<std::pair<std::string, std::size_t>> countsByState(const ResultTable& table) {
    std::vector<std::pair<std::string, std::size_t>> counts;
    for (ProgressValue value = kSuccessValue; value <= kAbortedValue; ++value) {
        const std::size_t count = table.count(value);
        if (count == 0) continue;
        const std::string state = stateName(value);
        const auto same =
            std::find_if(counts.begin(), counts.end(), [&](const auto& one) { return one.first == state; });
        if (same == counts.end()) {
            counts.emplace_back(state, count);
        } else {
            same->second += count;
        }
    }
    return counts;
}

LiveModel::LiveModel(std::size_t requests, ReasonOf reasonOf) : reasonOf_(std::move(reasonOf)) {
    for (std::size_t request = 0; request < requests; ++request)
        waiting_.insert(waiting_.end(), request);
}

void LiveModel::changed(const ResultTable& /*table*/, const std::vector<Change>& changes, double time) {
    for (const Change& change : changes) {
        const auto [interval, isNew] = intervals_.emplace(change.request, Interval{time, time});
        interval->second.changed = time;
        waiting_.erase(change.request);
        busy_.erase(change.request);
        resting_.erase(change.request);
        if (isResult(change.value)) {
            resting_.insert(change.request);
        } else if (isActive(change.value)) {
            busy_.insert(change.request);
        } else {
            waiting_.insert(change.request);
            intervals_.erase(interval);
        }
    }
}

LiveRow LiveModel::row(const ResultTable& table, std::size_t request, double time) const {
    const Result& result = table.results()[request];
    LiveRow row;
    row.name = requestLabel(*result.key);
    row.identifier = base::printable(*result.identifier);
    row.state = stateName(result.value);
    row.tone = toneOf(result.value);
    const auto interval = intervals_.find(request);
    if (interval == intervals_.end()) return row;
    if (isResult(result.value)) {
        row.seconds = interval->second.changed - interval->second.begun;
        if (reasonOf_) row.reason = reasonOf_(result);
    } else {
        row.seconds = time - interval->second.changed;
    }
    return row;
}

std::vector<LiveRow> LiveModel::takeSettled(const ResultTable& table, double time, bool atEnd) {
    std::vector<LiveRow> rows;
    std::set<std::size_t> still;
    for (const std::size_t request : resting_) {
        if (!atEnd && time - intervals_[request].changed < kRestTime) {
            still.insert(still.end(), request);
            continue;
        }
        if (invalid_.leavesOut(table.results()[request].value)) {
            intervals_.erase(request);
            continue;
        }
        rows.push_back(row(table, request, time));
        rows.back().reason = outage_.shown(rows.back().reason);
        intervals_.erase(request);
    }
    resting_.swap(still);
    return rows;
}

void LiveModel::measure(const ResultTable& table) {
    const std::size_t most = std::min(table.results().size(), kMeasuredRequests);
    for (std::size_t request = 0; request < most; ++request) {
        const LiveRow shown = row(table, request, 0);
        nameColumns_ = std::max(nameColumns_, columnsOf(shown.name));
        identifierColumns_ = std::max(identifierColumns_, columnsOf(shown.identifier));
    }
}

LiveView LiveModel::view(const ResultTable& table, double time, std::size_t rows,
                         const agent::DownloadSnapshot& download) {
    LiveView view;
    view.seconds = time;
    view.done = table.finished();
    view.total = table.results().size();
    view.counts = countsByState(table);
    for (const std::set<std::size_t>* group : {&busy_, &resting_, &waiting_}) {
        for (auto next = group->begin(); next != group->end() && view.rows.size() < rows; ++next)
            view.rows.push_back(row(table, *next, time));
    }
    if (nameColumns_ == 0) measure(table);
    for (const LiveRow& shown : view.rows) {
        nameColumns_ = std::max(nameColumns_, columnsOf(shown.name));
        identifierColumns_ = std::max(identifierColumns_, columnsOf(shown.identifier));
    }
    view.nameColumns = nameColumns_;
    view.identifierColumns = identifierColumns_;
    view.moreWaiting = busy_.size() + resting_.size() + waiting_.size() - view.rows.size();
    if (download.resource != resource_) meter_.reset();
    resource_ = download.resource;
    if (!download.active) return view;
    const double rate = meter_.rate(download.bytesDone, time);
    for (LiveRow& row : view.rows) {
        // One download runs at a time.
        if (row.state == stateName(1)) row.transfer = Transfer{download.bytesDone, download.bytesTotal, rate};
    }
    return view;
}

LiveProgress::LiveProgress(int fd, std::size_t requests, ReasonOf reasonOf)
    : terminal_(fd), model_(requests, std::move(reasonOf)) {}

void LiveProgress::changed(const ResultTable& table, const std::vector<Change>& changes, double time) {
    model_.changed(table, changes, time);
}

void LiveProgress::ticked(const ResultTable& table, double time) {
    if (time - drawn_ >= kFrameTime) draw(table, time, false);
}

void LiveProgress::cancelling(EarlyEnd why, double /*time*/) {
    end_ = why;
    drawn_ = -1;
}

void LiveProgress::ended(const ResultTable& table, double time) {
    draw(table, time, true);
}

void LiveProgress::draw(const ResultTable& table, double time, bool atEnd) {
    drawn_ = time;
    const LiveStyle style = terminal_.style();
    const std::vector<LiveRow> rows = model_.takeSettled(table, time, atEnd);
    LiveView view =
        model_.view(table, time, rowsThatFit(style), agent::DownloadProgress::instance().snapshot());
    std::vector<FrameLine> settled;
    for (const LiveRow& row : rows) {
        const std::vector<FrameLine> lines = settledLines(row, view, style);
        settled.insert(settled.end(), lines.begin(), lines.end());
    }
    const std::string more = model_.takeLeftOut().substr(0, style.columns - 1);
    if (!more.empty()) settled.push_back({more, more.size()});
    view.end = end_;
    terminal_.draw(settled, liveFrame(view, style));
}

}  // namespace zelor::controller

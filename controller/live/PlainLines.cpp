#include "controller/live/PlainLines.h"

#include <map>

#include "base/Files.h"
#include "controller/Text.h"
#include "controller/live/LiveTerminal.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kTimeColumns = 22;  ///< "2026-11-21T10:15:02Z  "

}  // namespace

void writePlainLine(int fd, const std::string& text) {
    const std::string line = utcText(std::chrono::system_clock::now()) + "  " + text;
    base::writeAll(fd, folded(line, terminalColumns(fd), kTimeColumns) + '\n');
}

void PlainLines::changed(const ResultTable& table, const std::vector<Change>& changes, double /*time*/) {
    std::string lines;
    const std::string now = utcText(std::chrono::system_clock::now());
    const std::size_t columns = terminalColumns(fd_);
    for (const Change& change : changes) {
        if (change.value == 0) continue;  // nothing has begun
        if (invalid_.leavesOut(change.value)) continue;
        const Result& result = table.results()[change.request];
        const std::string reason =
            isResult(change.value) && reasonOf_ ? outage_.shown(reasonOf_(result)) : "";
        const std::string line = now + "  " + fitToColumns(stateName(change.value), 16, "") + "  " +
                                 requestLabel(*result.key) + " (" + base::printable(*result.identifier) +
                                 ')' + (reason.empty() ? "" : ": " + reason);
        lines += folded(line, columns, kTimeColumns) + '\n';
    }
    const std::string more = invalid_.takeText();
    if (!more.empty()) lines += folded(now + "  " + more, columns, kTimeColumns) + '\n';
    if (!lines.empty()) base::writeAll(fd_, lines);
}

void PlainLines::cancelling(EarlyEnd why, double /*time*/) {
    writePlainLine(fd_,
                   earlyEndText(why) + (why == EarlyEnd::signal ? " A second signal exits at once." : ""));
}

std::string countsText(const std::vector<ProgressValue>& values) {
    std::map<ProgressValue, std::size_t> counts;
    for (const ProgressValue value : values) {
        // 9 to 11 are failures without a name of their own, as is what nobody defined.
        const bool nameless = value > 5 && stateName(value) == stateName(5);
        ++counts[nameless ? 5 : value];
    }
    std::string text;
    for (const ProgressValue value : {4UL, 5UL, 6UL, 7UL, 8UL, 12UL, 13UL, 0UL, 1UL, 2UL, 3UL}) {
        const auto count = counts.find(value);
        if (count == counts.end()) continue;
        text += (text.empty() ? "" : ", ") + std::to_string(count->second) + ' ' + stateName(value);
    }
    return text;
}

std::string restartText(const RunFlags& flags) {
    if (flags.restartNeededByThisRun) return "A restart is needed to complete what this run applied.";
    if (flags.rebootNeeded)
        return "A restart is needed only if there was none since an earlier run applied them.";
    return "";
}

std::string runSummary(const ResultTable& table, const std::vector<ProgressValue>& beforeCancel,
                       const RunFlags& flags, const std::string& logFile, double seconds) {
    std::vector<ProgressValue> values;
    for (const Result& result : table.results())
        values.push_back(result.value);
    std::string text = countText(values.size(), "request") + " in " + durationText(seconds) + ": " +
                       countsText(values) + ".\n";
    if (!beforeCancel.empty()) {
        text += "Of the aborted, " + countText(beforeCancel.size(), "request") +
                " had a result before the cancel: " + countsText(beforeCancel) + ".\n";
    }
    if (!flags.endReason.empty())
        text += "The requests that were left are aborted: " + flags.endReason + ".\n";
    const std::string outage = outageText(flags.outage);
    if (!outage.empty()) text += outage + ".\n";
    for (const std::string& warning : flags.warnings)
        text += "Warning: " + warning + ".\n";
    const std::string restart = restartText(flags);
    return text + (restart.empty() ? "" : restart + '\n') + "Log: " + base::printable(logFile) + '\n';
}

}  // namespace zelor::controller

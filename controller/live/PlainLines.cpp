#include "controller/live/PlainLines.h"

#include "base/Files.h"
#include "controller/Text.h"
#include "controller/live/RequestLabel.h"

namespace zelor::controller {

void writePlainLine(int fd, const std::string& text) {
    base::writeAll(fd, utcText(std::chrono::system_clock::now()) + "  " + text + '\n');
}

void PlainLines::changed(const ResultTable& table, const std::vector<Change>& changes, double /*time*/) {
    std::string lines;
    const std::string now = utcText(std::chrono::system_clock::now());
    for (const Change& change : changes) {
        if (change.value == 0) continue;  // nothing has begun
        const Result& result = table.results()[change.request];
        const std::string reason = isResult(change.value) && reasonOf_ ? reasonOf_(result) : "";
        lines += now + "  " + fitToColumns(stateName(change.value), 16, "") + "  " +
                 requestLabel(*result.key) + " (" + base::printable(*result.identifier) + ')' +
                 (reason.empty() ? "" : ": " + reason) + '\n';
    }
    if (!lines.empty()) base::writeAll(fd_, lines);
}

void PlainLines::cancelling(double /*time*/) {
    writePlainLine(fd_, "Cancelling; waiting for the step in hand. A second signal leaves at once.");
}

std::string runSummary(const ResultTable& table, bool rebootNeeded, const std::string& logFile,
                       double seconds) {
    std::string counts;
    for (const ProgressValue value :
         {4UL, 5UL, 6UL, 7UL, 8UL, 9UL, 10UL, 11UL, 12UL, 13UL, 0UL, 1UL, 2UL, 3UL}) {
        // 9 to 11 are failures without a name of their own.
        if (value >= 9 && value <= 11) continue;
        std::size_t count = table.count(value);
        if (value == 5) count += table.count(9) + table.count(10) + table.count(11);
        if (count == 0) continue;
        counts += (counts.empty() ? "" : ", ") + std::to_string(count) + ' ' + stateName(value);
    }
    return countText(table.results().size(), "request") + " in " + durationText(seconds) + ": " + counts +
           ".\n" + (rebootNeeded ? "A reboot is needed to complete them.\n" : "") +
           "Log: " + base::printable(logFile) + '\n';
}

}  // namespace zelor::controller

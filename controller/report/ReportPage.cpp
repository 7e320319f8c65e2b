#include "controller/report/ReportPage.h"

#include <algorithm>
#include <numeric>

#include "controller/Text.h"
#include "controller/live/LiveProgress.h"
#include "controller/live/PlainLines.h"
#include "controller/report/ReportTimeline.h"
#include "remediation/Version.h"
#include "results/Page.h"

namespace zelor::controller {

using results::dateText;
using results::markSvg;

namespace {

constexpr std::size_t kOpenTimelineRows = 40;

/// The requests that are shown, at most `most`: all in their order, or the most important ones.
std::vector<std::size_t> chosenRequests(const RunReport& report, std::size_t most) {
    std::vector<std::size_t> chosen(report.table.results().size());
    std::iota(chosen.begin(), chosen.end(), std::size_t{0});
    if (chosen.size() <= most) return chosen;
    std::vector<double> weight(chosen.size());
    for (const std::size_t request : chosen) {
        const bool good = report.table.results()[request].value == kSuccessValue;
        weight[request] = busySeconds(report.spans[request]) + (good ? 0 : report.facts.seconds + 1);
    }
    std::nth_element(chosen.begin(), chosen.begin() + static_cast<std::ptrdiff_t>(most), chosen.end(),
                     [&](std::size_t a, std::size_t b) { return weight[a] > weight[b]; });
    chosen.resize(most);
    std::sort(chosen.begin(), chosen.end());
    return chosen;
}

class Page {
  public:
    Page(std::ostream& out, const RunReport& report) : out_(out), report_(report) {}

    void write() {
        head();
        counts();
        requests();
        timeline();
        out_ << "<footer><p>Log: <code>" << markupText(report_.logFile)
             << "</code></p></footer>\n</body>\n</html>\n";
    }

  private:
    void head() {
        const std::string when = dateText(report_.facts.started);
        results::writePageHead(out_, "Remediation of " + report_.facts.host + ", " + when);
        out_ << "<header>\n<h1>Remediation of " << markupText(report_.facts.host) << "</h1>\n";
        facts(when);
        const std::string restart = restartText(report_.flags);
        const std::string outage = outageText(report_.flags.outage);
        const std::vector<std::string>& warnings = report_.flags.warnings;
        if (!restart.empty() || report_.cancelled || !outage.empty() || !warnings.empty()) {
            out_ << "<ul class=\"flags\">"
                 << (restart.empty() ? "" : "<li>" + escapedMarkup(restart) + "</li>") << endItem()
                 << (outage.empty() ? "" : "<li>" + markupText(outage) + "</li>");
            for (const std::string& warning : warnings)
                out_ << "<li>Warning: " << markupText(warning) << "</li>";
            out_ << "</ul>\n";
        }
        out_ << "</header>\n";
    }

    std::string endItem() const {
        if (!report_.cancelled) return "";
        const std::string& reason = report_.flags.endReason;
        return "<li>" + (reason.empty() ? "Cancelled by a signal" : "Ended early: " + markupText(reason)) +
               "</li>";
    }

    void facts(const std::string& when) {
        const RunFacts& facts = report_.facts;
        out_ << "<dl class=\"facts\">";
        for (const auto& [name, value] :
             {std::pair<const char*, std::string>{"Started", when},
              {"Duration", durationText(facts.seconds)},
              {"Host", facts.host},
              {"System", facts.productName + ' ' + facts.productVersion},
              {"Repository", facts.repository},
              {"Program", std::string("zelor-remediate ") + ZELOR_VERSION_STRING}}) {
            out_ << "<div><dt>" << name << "</dt><dd>" << markupText(value) << "</dd></div>";
        }
        out_ << "</dl>\n";
    }

    /// Counts by state; 0 to 3 occur when a run ended early.
    std::vector<std::pair<std::string, std::size_t>> stateCounts() const {
        auto counts = countsByState(report_.table);
        for (ProgressValue value = 0; value < kSuccessValue; ++value) {
            if (report_.table.count(value) > 0)
                counts.emplace_back(stateName(value), report_.table.count(value));
        }
        return counts;
    }

    void counts() {
        const std::size_t total = report_.table.results().size();
        out_ << "<section class=\"counts\">\n<div class=\"count\"><b>" << total << "</b><span>"
             << (total == 1 ? "request" : "requests") << "</span></div>\n";
        for (const auto& [state, count] : stateCounts()) {
            out_ << "<div class=\"count s-" << state << "\"><b>" << count << "</b><span>" << state
                 << "</span></div>\n";
        }
        out_ << "</section>\n<div class=\"share\" aria-hidden=\"true\">";
        for (const auto& [state, count] : stateCounts())
            out_ << "<i class=\"s-" << state << "\" style=\"flex-grow:" << count << "\"></i>";
        out_ << "</div>\n";
    }

    void legend(const std::vector<ProgressValue>& values) {
        out_ << "<ul class=\"legend\">";
        for (const ProgressValue value : values) {
            out_ << "<li class=\"" << stateClass(value) << "\">" << markSvg(value) << stateName(value)
                 << "</li>";
        }
        out_ << "</ul>\n";
    }

    /// The states that occur in the rows, in the order of their values.
    std::vector<ProgressValue> statesOf(const std::vector<std::size_t>& rows) const {
        std::vector<bool> seen(kAbortedValue + 1);
        for (const std::size_t row : rows) {
            for (const StateSpan& span : report_.spans[row]) {
                if (span.value <= kAbortedValue && span.value != 0) seen[span.value] = true;
            }
        }
        std::vector<ProgressValue> values;
        for (ProgressValue value = 0; value <= kAbortedValue; ++value) {
            if (seen[value]) values.push_back(value);
        }
        return values;
    }

    /// Sorted by the time at which a request was started or decided.
    void sortByBegin(std::vector<std::size_t>& requests) const {
        const auto begun = [&](std::size_t request) {
            for (const StateSpan& span : report_.spans[request]) {
                if (span.value != 0) return span.begin;
            }
            return report_.facts.seconds;
        };
        std::stable_sort(requests.begin(), requests.end(),
                         [&](std::size_t a, std::size_t b) { return begun(a) < begun(b); });
    }

    void timeline() {
        std::vector<std::size_t> shown = chosenRequests(report_, kReportTimelineRows);
        sortByBegin(shown);
        const std::size_t total = report_.table.results().size();
        // Many rows are collapsed into one line that expands without a script.
        const bool many = total > kOpenTimelineRows;
        out_ << "<details" << (many ? "" : " open=\"open\"") << ">\n<summary><h2>Timeline</h2></summary>\n";
        if (shown.size() < total) {
            out_ << "<p class=\"note\">All " << total
                 << " requests: succeeded below, above them those that ended otherwise, on top those that "
                    "were worked on.</p>\n<div class=\"scroll\">";
            writeStateAreas(out_, report_.spans, report_.facts.seconds);
            out_ << "</div>\n<p class=\"note\">Of " << total << " requests the " << shown.size()
                 << " most telling are drawn one by one: those that did not succeed first, then those that "
                    "took longest.</p>\n";
        }
        legend(statesOf(shown));
        std::vector<TimelineRow> rows;
        for (const std::size_t request : shown) {
            const Result& result = report_.table.results()[request];
            const std::string label = requestLabel(*result.key);
            rows.push_back({escapedMarkup(timelineLabel(label)),
                            escapedMarkup(label) + " (" + markupText(*result.identifier) +
                                "): " + stateName(result.value),
                            &report_.spans[request]});
        }
        out_ << "<div class=\"scroll\">";
        writeTimeline(out_, rows, report_.facts.seconds);
        out_ << "</div>\n</details>\n";
    }

    void requests() {
        std::vector<std::size_t> shown = chosenRequests(report_, kReportTableRows);
        sortByBegin(shown);
        std::stable_partition(shown.begin(), shown.end(), [&](std::size_t request) {
            return report_.table.results()[request].value != kSuccessValue;
        });
        out_ << "<section>\n<h2>Requests</h2>\n";
        if (shown.size() < report_.table.results().size()) {
            out_ << "<p class=\"note\">The table has " << shown.size() << " of "
                 << report_.table.results().size()
                 << " requests: those that did not succeed first, then those that took longest. All of them "
                    "are in the results that --json writes.</p>\n";
        }
        out_ << "<div class=\"scroll\"><table>\n<thead><tr><th>State</th><th>Identifier</th><th>Product</th>"
                "<th>Reason</th><th class=\"time\">Duration</th></tr></thead>\n<tbody>\n";
        for (const std::size_t request : shown)
            requestRow(request);
        out_ << "</tbody>\n</table></div>\n</section>\n";
    }

    /// What the check says, when it says something.
    std::string proofText(std::size_t request) const {
        if (request >= report_.proofs.size() || !report_.proofs[request]) return "";
        const Proof& proof = *report_.proofs[request];
        if (proof.truth == Truth::unknown) return "";
        const bool holds = proof.truth == Truth::holds;
        return std::string("<p class=\"") + (holds ? "s-success" : "s-failed") + " proof\">" +
               markupText((holds ? "verified: " : "does not hold: ") + proof.reason) + "</p>";
    }

    void requestRow(std::size_t request) {
        const Result& result = report_.table.results()[request];
        const std::string kind = stateClass(result.value);
        const Outcome outcome = report_.outcomeOf(result);
        const std::string label = requestLabel(*result.key);
        const double busy = busySeconds(report_.spans[request]);
        const char* applied = outcome.applied == Applied::before ? "applied before" : "";
        const std::string reason = outage_.shown(report_.reasonOf(result));
        out_ << "<tr" << (outcome.output.empty() ? "" : " class=\"has-said\"") << "><td class=\"state "
             << kind << "\">" << markSvg(result.value) << stateName(result.value) << "</td><td class=\"id\">"
             << markupText(*result.identifier) << "</td><td class=\"product\">" << escapedMarkup(label)
             << "<code>" << markupText(*result.key) << "</code></td><td class=\"reason\">"
             << markupText(reason.empty() ? applied : reason) << proofText(request)
             << "</td><td class=\"time\">" << (busy > 0 ? shortDuration(busy) : "") << "</td></tr>\n";
        if (outcome.output.empty()) return;
        out_ << "<tr class=\"said\"><td></td><td colspan=\"4\"><pre class=\"" << kind << "\">"
             << markupText(outcome.output) << "</pre></td></tr>\n";
    }

    std::ostream& out_;
    const RunReport& report_;
    OutageReason outage_;
};

}  // namespace

void writeReportPage(std::ostream& out, const RunReport& report) {
    Page(out, report).write();
}

}  // namespace zelor::controller

#include "authoring/fleet/FleetPage.h"

#include <algorithm>
#include <unordered_map>

#include "remediation/Version.h"
#include "results/Page.h"
#include "results/Text.h"

namespace zelor::authoring {

namespace {

using results::countText;
using results::escapedMarkup;
using results::markupText;

constexpr std::size_t kShownReasons = 5;
constexpr std::size_t kShownDays = 14;

std::string numberCell(const char* name, std::size_t number) {
    return std::string("<td class=\"number\" data-name=\"") + name + "\">" + std::to_string(number) + "</td>";
}

std::string headCells(std::initializer_list<const char*> names) {
    std::string cells;
    for (const std::string name : names) {
        const bool text = name == "Machine" || name == "Identifier" || name == "State" || name == "Product" ||
                          name == "Reason" || name == "System" || name == "Most frequent reason" ||
                          name == "File" || name == "Day";
        cells += (text ? "<th>" : "<th class=\"number\">") + name + "</th>";
    }
    return "<thead><tr>" + cells + "</tr></thead>\n<tbody>\n";
}

std::string stateCell(results::ProgressValue value) {
    return "<td class=\"state " + results::stateClass(value) + "\">" + results::markSvg(value) +
           results::stateName(value) + "</td>";
}

class FleetPage {
  public:
    FleetPage(std::ostream& out, const Fleet& fleet, const std::vector<UnreadFile>& unread)
        : out_(out), texts_(fleet.texts()), unread_(unread), summary_(summaryOf(fleet)) {
        const std::size_t shown = std::min(summary_.identifiers.size(), kShownEntries);
        for (std::size_t i = 0; i < shown; ++i)
            identifierRanks_[summary_.identifiers[i].identifier] = i;
    }

    void write() {
        const std::string title = "Remediation of " + countText(summary_.machines.size(), "machine");
        results::writePageHead(out_, title);
        out_ << "<header>\n<h1>" << title << "</h1>\n";
        facts();
        flags();
        out_ << "<p class=\"note\"><a href=\"#machines\">Machines</a> · <a "
                "href=\"#identifiers\">Identifiers</a> · "
                "<a href=\"#days\">Days</a></p>\n</header>\n";
        counts();
        rankedMachines();
        rankedIdentifiers();
        reboots();
        days();
        unreadFiles();
        identifierDetails();
        machineDetails();
        out_ << "<footer><p>The newest results of a machine count. Failed: no success, or a success that its "
                "check disproves. Undecided: aborted, not finished, or a success that installed "
                "nothing.</p></footer>\n</body>\n</html>\n";
    }

  private:
    void facts() {
        const auto [oldest, newest] = std::minmax_element(
            summary_.machines.begin(), summary_.machines.end(),
            [](const Machine* one, const Machine* other) { return one->finished < other->finished; });
        out_ << "<dl class=\"facts\">";
        for (const auto& [name, value] :
             {std::pair<const char*, std::string>{"Oldest result", results::dateText((*oldest)->finished)},
              {"Newest result", results::dateText((*newest)->finished)},
              {"Files", std::to_string(summary_.machines.size() + summary_.olderResults) + " read, " +
                            std::to_string(unread_.size()) + " not readable"},
              {"Program", std::string("zelor-content ") + ZELOR_VERSION_STRING}})
            out_ << "<div><dt>" << name << "</dt><dd>" << value << "</dd></div>";
        out_ << "</dl>\n";
    }

    void flags() {
        std::vector<std::string> items;
        if (summary_.reboots > 0)
            items.push_back("<a href=\"#restarts\">" + countText(summary_.reboots, "machine") +
                            (summary_.reboots == 1 ? " needs" : " need") + " a restart</a>");
        if (summary_.incomplete > 0) items.push_back(countText(summary_.incomplete, "run") + " ended early");
        if (summary_.olderResults > 0) {
            items.push_back(countText(summary_.olderResults, "older result") + " of " +
                            countText(summary_.machinesWithOlder, "machine") + " left out");
        }
        if (!unread_.empty())
            items.push_back("<a href=\"#unread\">" + countText(unread_.size(), "file") + " not readable</a>");
        if (summary_.uncounted > 0) {
            items.push_back(countText(summary_.uncounted, "request") +
                            " counted only by state and machine: there was no room for more");
        }
        if (items.empty()) return;
        out_ << "<ul class=\"flags\">";
        for (const std::string& item : items)
            out_ << "<li>" << item << "</li>";
        out_ << "</ul>\n";
    }

    void card(std::size_t count, const std::string& name, const std::string& kind = "") {
        out_ << "<div class=\"count" << (kind.empty() ? "" : " " + kind) << "\"><b>" << count << "</b><span>"
             << name << "</span></div>\n";
    }

    void counts() {
        out_ << "<section class=\"counts\">\n";
        card(summary_.machines.size(), summary_.machines.size() == 1 ? "machine" : "machines");
        card(summary_.machines.size() - summary_.notGoodMachines, "all good", "s-success");
        card(summary_.failedMachines, "with failures", "s-failed");
        card(summary_.notGoodMachines - summary_.failedMachines, "undecided", "s-aborted");
        out_ << "</section>\n<section class=\"counts\">\n";
        card(summary_.requests, summary_.requests == 1 ? "request" : "requests");
        for (const auto& [state, count] : summary_.states)
            card(count, state, "s-" + state);
        out_ << "</section>\n<div class=\"share\" aria-hidden=\"true\">";
        for (const auto& [state, count] : summary_.states)
            out_ << "<i class=\"s-" << state << "\" style=\"flex-grow:" << count << "\"></i>";
        out_ << "</div>\n";
        if (summary_.byProof[0] == summary_.requests) return;
        const auto of = [&](results::Verified verified) {
            return summary_.byProof.at(static_cast<std::size_t>(verified));
        };
        out_ << "<p class=\"note\">Checked after the run: " << of(results::Verified::holds) << " hold, "
             << of(results::Verified::fails) << " do not hold, " << of(results::Verified::unknown)
             << " cannot be decided, " << of(results::Verified::noCheck) << " have no check.</p>\n";
    }

    void more(std::size_t all, std::size_t shown, const std::string& noun) {
        if (all > shown)
            out_ << "<p class=\"note\">and " << countText(all - shown, "more " + noun) << "</p>\n";
    }

    std::string machineLink(std::size_t rank) const {
        std::string name = markupText(summary_.machines[rank]->host);
        if (rank >= kShownEntries) return name;
        return "<a href=\"#machine-" + std::to_string(rank + 1) + "\">" + name + "</a>";
    }

    std::string identifierLink(std::uint32_t identifier) const {
        std::string name = escapedMarkup(texts_.text(identifier));
        const auto found = identifierRanks_.find(identifier);
        if (found == identifierRanks_.end()) return name;
        return "<a href=\"#identifier-" + std::to_string(found->second + 1) + "\">" + name + "</a>";
    }

    void rankedMachines() {
        out_ << "<section id=\"machines\">\n<h2>Machines that fail most</h2>\n";
        const std::size_t shown = std::min(summary_.notGoodMachines, kShownEntries);
        if (shown == 0) out_ << "<p class=\"note\">none</p>\n";
        if (shown > 0) {
            out_ << "<div class=\"scroll\"><table class=\"ranks\">\n"
                 << headCells({"Machine", "Failed", "Undecided", "Requests", "System", "Results of"});
        }
        for (std::size_t rank = 0; rank < shown; ++rank) {
            const Machine& machine = *summary_.machines[rank];
            out_ << "<tr><td class=\"id\">" << machineLink(rank) << "</td>"
                 << numberCell("failed", machine.failed) << numberCell("undecided", machine.undecided)
                 << numberCell("requests", machine.requests) << "<td class=\"product\">"
                 << escapedMarkup(machine.system) << "</td><td class=\"number\">"
                 << results::dateText(machine.finished).substr(0, 16) << "</td></tr>\n";
        }
        if (shown > 0) out_ << "</tbody>\n</table></div>\n";
        more(summary_.notGoodMachines, shown, "machine");
        out_ << "</section>\n";
    }

    void rankedIdentifiers() {
        out_ << "<section id=\"identifiers\">\n<h2>Identifiers that fail most</h2>\n";
        const std::size_t shown = std::min(summary_.identifiers.size(), kShownEntries);
        if (shown == 0) out_ << "<p class=\"note\">none</p>\n";
        if (shown > 0) {
            out_ << "<div class=\"scroll\"><table class=\"ranks\">\n"
                 << headCells(
                        {"Identifier", "Failed on", "Undecided on", "Machines", "Most frequent reason"});
        }
        for (std::size_t rank = 0; rank < shown; ++rank) {
            const IdentifierSummary& one = summary_.identifiers[rank];
            out_ << "<tr><td class=\"id\">" << identifierLink(one.identifier) << "</td>"
                 << numberCell("failed", one.failedOn) << numberCell("undecided", one.undecidedOn)
                 << numberCell("machines", one.requestedBy) << "<td class=\"reason\">"
                 << escapedMarkup(texts_.text(one.reasons[0].first)) << "</td></tr>\n";
        }
        if (shown > 0) out_ << "</tbody>\n</table></div>\n";
        more(summary_.identifiers.size(), shown, "identifier");
        out_ << "</section>\n";
    }

    void reboots() {
        if (summary_.reboots == 0) return;
        out_ << "<section id=\"restarts\">\n<h2>Machines that need a restart</h2>\n<ul class=\"names\">";
        std::size_t shown = 0;
        for (std::size_t rank = 0; rank < summary_.machines.size() && shown < kShownNames; ++rank) {
            if (!summary_.machines[rank]->rebootNeeded) continue;
            ++shown;
            const bool linked = rank < std::min(kShownEntries, summary_.notGoodMachines);
            out_ << "<li>" << (linked ? machineLink(rank) : markupText(summary_.machines[rank]->host))
                 << "</li>\n";
        }
        out_ << "</ul>\n";
        more(summary_.reboots, shown, "machine");
        out_ << "</section>\n";
    }

    void days() {
        out_ << "<section id=\"days\">\n<h2>When the results were made</h2>\n<div class=\"scroll\"><table "
                "class=\"ranks\">\n"
             << headCells({"Day", "Machines"});
        std::size_t shown = 0, machines = 0;
        for (const auto& [day, count] : summary_.byDay) {
            if (shown == kShownDays) break;
            ++shown;
            machines += count;
            out_ << "<tr><td class=\"id\">" << day << "</td>" << numberCell("machines", count) << "</tr>\n";
        }
        if (summary_.byDay.size() > shown) {
            out_ << "<tr><td class=\"id\">before</td>"
                 << numberCell("machines", summary_.machines.size() - machines) << "</tr>\n";
        }
        out_ << "</tbody>\n</table></div>\n</section>\n";
    }

    void unreadFiles() {
        if (unread_.empty()) return;
        out_
            << "<section id=\"unread\">\n<h2>Files that could not be read</h2>\n<div class=\"scroll\"><table "
               "class=\"ranks\">\n"
            << headCells({"File", "Reason"});
        const std::size_t shown = std::min(unread_.size(), kShownFiles);
        for (std::size_t i = 0; i < shown; ++i) {
            out_ << "<tr><td class=\"id\">" << markupText(unread_[i].path) << "</td><td class=\"reason\">"
                 << markupText(unread_[i].reason) << "</td></tr>\n";
        }
        out_ << "</tbody>\n</table></div>\n";
        more(unread_.size(), shown, "file");
        out_ << "</section>\n";
    }

    void identifierDetails() {
        for (std::size_t rank = 0; rank < std::min(summary_.identifiers.size(), kShownEntries); ++rank) {
            const IdentifierSummary& one = summary_.identifiers[rank];
            out_ << "<section class=\"detail\" id=\"identifier-" << rank + 1 << "\">\n<h3>"
                 << escapedMarkup(texts_.text(one.identifier)) << "</h3>\n<p class=\"note\">Asked for on "
                 << countText(one.requestedBy, "machine") << ", failed on " << one.failedOn
                 << ", undecided on " << one.undecidedOn
                 << ". <a href=\"#identifiers\">All identifiers</a></p>\n<ul class=\"reasons\">";
            const std::size_t reasons = std::min(one.reasons.size(), kShownReasons);
            for (std::size_t i = 0; i < reasons; ++i) {
                const std::string& reason = texts_.text(one.reasons[i].first);
                out_ << "<li><b>" << one.reasons[i].second << "</b> "
                     << (reason.empty() ? "without a reason" : escapedMarkup(reason)) << "</li>\n";
            }
            out_ << "</ul>\n";
            more(one.reasons.size(), reasons, "reason");
            out_ << "<div class=\"scroll\"><table>\n" << headCells({"State", "Machine", "Product", "Reason"});
            for (const OpenOnMachine& open : one.open)
                requestRow(*open.request, machineLink(open.rank));
            out_ << "</tbody>\n</table></div>\n";
            more(one.openInAll, one.open.size(), "request");
            out_ << "</section>\n";
        }
    }

    void machineDetails() {
        for (std::size_t rank = 0; rank < std::min(summary_.notGoodMachines, kShownEntries); ++rank) {
            const Machine& machine = *summary_.machines[rank];
            out_ << "<section class=\"detail\" id=\"machine-" << rank + 1 << "\">\n<h3>"
                 << markupText(machine.host) << "</h3>\n<p class=\"note\">" << escapedMarkup(machine.system)
                 << ", results of " << results::dateText(machine.finished)
                 << (machine.complete ? "" : ", the run ended early")
                 << (machine.rebootNeeded ? ", needs a restart" : "")
                 << (machine.older > 0 ? ", " + countText(machine.older, "older result") + " left out" : "")
                 << ": " << machine.failed << " of " << countText(machine.requests, "request") << " failed, "
                 << machine.undecided << " undecided. <a href=\"#machines\">All machines</a></p>\n"
                 << "<div class=\"scroll\"><table>\n"
                 << headCells({"State", "Identifier", "Product", "Reason"});
            const std::size_t shown = std::min(machine.open.size(), kShownDetails);
            for (std::size_t i = 0; i < shown; ++i)
                requestRow(machine.open[i], identifierLink(machine.open[i].identifier));
            out_ << "</tbody>\n</table></div>\n";
            more(machine.failed + machine.undecided, shown, "request");
            out_ << "</section>\n";
        }
    }

    /// `name`: markup, of what the table does not say already.
    void requestRow(const OpenRequest& request, const std::string& name) {
        out_ << "<tr>" << stateCell(request.value) << "<td class=\"id\">" << name
             << "</td><td class=\"product\">" << escapedMarkup(texts_.text(request.label))
             << "</td><td class=\"reason\">" << escapedMarkup(texts_.text(request.reason)) << "</td></tr>\n";
    }

    std::ostream& out_;
    const TextPool& texts_;
    const std::vector<UnreadFile>& unread_;
    const FleetSummary summary_;
    std::unordered_map<std::uint32_t, std::size_t> identifierRanks_;
};

}  // namespace

void writeFleetPage(std::ostream& out, const Fleet& fleet, const std::vector<UnreadFile>& unread) {
    FleetPage(out, fleet, unread).write();
}

}  // namespace zelor::authoring

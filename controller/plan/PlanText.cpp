#include "controller/plan/PlanText.h"

#include <algorithm>
#include <sstream>

#include "controller/Text.h"
#include "remediation/buffer/PatchSize.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kMostLabel = 40;
constexpr std::size_t kMostIdentifier = 20;
constexpr std::size_t kActionColumns = 16;
constexpr char kIndent[] = "      ";

struct Look {
    const char* mark;
    const char* colour;
};

Look lookOf(PlanAction action) {
    switch (action) {
        case PlanAction::apply:
            return {"+", kGreen};
        case PlanAction::applied:
            return {"=", kDim};
        case PlanAction::fail:
            return {"x", kRed};
        case PlanAction::nothing:
            break;
    }
    return {"-", kDim};
}

std::string sourceText(const PlannedFile& file) {
    if (!file.buffered) {
        return "to download" +
               (file.partialBytes == 0 ? "" : ", " + bytesText(file.partialBytes) + " are here already");
    }
    std::string text = "in the buffer";
    if (file.bytes > 0) text += " (" + bytesText(file.bytes) + ")";
    if (file.checked) text += file.problem.empty() ? ", signature good" : ", signature refused";
    return text;
}

class Writer {
  public:
    Writer(std::ostream& out, const Plan& plan, bool colour, std::size_t columns)
        : out_(out), plan_(plan), colour_(colour), columns_(columns) {
        for (const PlannedRequest& request : plan.requests) {
            label_ = std::max(label_, columnsOf(requestLabel(request.key)));
            identifier_ = std::max(identifier_, columnsOf(base::printable(request.identifier)));
        }
        label_ = std::min(label_, kMostLabel);
        identifier_ = std::min(identifier_, kMostIdentifier);
    }

    void write() {
        out_ << base::printable(plan_.productName + ' ' + plan_.productVersion + " (" + plan_.platformCpe +
                                ")")
             << '\n';
        if (!plan_.repository.empty()) out_ << "Repository: " << base::printable(plan_.repository) << '\n';
        for (const auto& [kind, heading] : {std::pair{PlanKind::unknown, "Refused"},
                                            {PlanKind::configuration, "Configurations"},
                                            {PlanKind::osUpdate, "Updates of the system"},
                                            {PlanKind::patch, "Patches of products"}}) {
            section(kind, heading);
        }
        totals();
    }

  private:
    std::string tinted(const std::string& text, const char* colour) const {
        return colour_ ? colour + text + kUncoloured : text;
    }

    void section(PlanKind kind, const std::string& heading) {
        bool begun = false;
        for (const PlannedRequest& request : plan_.requests) {
            if (request.kind != kind) continue;
            if (!begun) out_ << '\n' << tinted(heading, kBold) << '\n';
            begun = true;
            writeRequest(request);
        }
    }

    void writeRequest(const PlannedRequest& request) {
        const Look look = lookOf(request.action);
        const std::string action =
            request.action == PlanAction::fail ? stateName(request.expected) : planActionName(request.action);
        std::string tail = base::printable(request.reason);
        if (request.reboot && request.action == PlanAction::apply)
            tail += tail.empty() ? "reboot" : "; reboot";
        const std::size_t before = 2 + label_ + 2 + identifier_ + 2 + kActionColumns + 2;
        const bool fits = columns_ == 0 || before + columnsOf(tail) <= columns_;
        out_ << tinted(look.mark, look.colour) << ' ' << fitToColumns(requestLabel(request.key), label_, "~")
             << "  " << fitToColumns(base::printable(request.identifier), identifier_, "~") << "  "
             << tinted(tail.empty() || !fits ? action : fitToColumns(action, kActionColumns, "~"),
                       look.colour)
             << (tail.empty() || !fits ? "" : "  " + tail) << '\n';
        if (!fits) writeFolded(tail, nullptr);
        if (request.verified) {
            writeFolded(
                complianceName(request.verified->compliance) + " now: " + request.verified->proof.reason,
                nullptr);
        }
        for (const std::string& command : request.commands)
            writeCommand(command);
        for (const PlannedStep& step : request.steps)
            writeStep(request, step);
        for (const std::string& warning : request.warnings)
            writeFolded("! " + base::printable(warning), kYellow);
    }

    /// Below a request. The lines after the first are indented behind the mark.
    void writeFolded(const std::string& text, const char* colour) {
        const std::size_t margin = sizeof kIndent - 1;
        const std::size_t room = columns_ > margin + 10 ? columns_ - margin : columns_;
        std::istringstream lines(folded(text, room, 2));
        for (std::string line; std::getline(lines, line);)
            out_ << kIndent << (colour == nullptr ? line : tinted(line, colour)) << '\n';
    }

    void writeCommand(const std::string& command) {
        out_ << kIndent << tinted("$ " + base::printable(command), kDim) << '\n';
    }

    /// Omits a step that adds nothing to its request.
    void writeStep(const PlannedRequest& request, const PlannedStep& step) {
        const bool only = request.steps.size() == 1;
        if (!step.file && only) return;
        std::string text = base::printable(step.eri);
        if (step.file) {
            text += "  " + base::printable(step.file->name);
            if (!step.file->sizeText.empty()) text += ", " + base::printable(step.file->sizeText);
            text += ", " + sourceText(*step.file);
        }
        if (!only && !step.reason.empty()) text += "  " + base::printable(step.reason);
        writeFolded(text, nullptr);
        for (const std::string& command : step.commands)
            writeCommand(command);
        if (!step.note.empty()) writeFolded("> " + base::printable(step.note), kDim);
    }

    void totals() {
        std::size_t downloads = 0;
        std::size_t buffered = 0;
        std::size_t warnings = plan_.warnings.size();
        std::uint64_t bytes = 0;
        for (const PlannedRequest& request : plan_.requests) {
            warnings += request.warnings.size();
            for (const PlannedStep& step : request.steps) {
                if (!step.file || !step.file->problem.empty()) continue;
                ++(step.file->buffered ? buffered : downloads);
                const long size =
                    step.file->buffered ? 0 : remediation::parsePatchSize(step.file->sizeText).bytes;
                bytes += static_cast<std::uint64_t>(std::max(size, 0L));
            }
        }
        out_ << '\n'
             << tinted(countText(plan_.requests.size(), "request"), kBold) << ": "
             << plan_.count(PlanAction::apply) << " to apply, " << plan_.count(PlanAction::applied)
             << " applied already, " << plan_.count(PlanAction::fail) << " that will fail, "
             << plan_.count(PlanAction::nothing) << " passed over.\n"
             << countText(downloads, "file") << " to download (" << bytesText(bytes) << " by their content), "
             << buffered << " from the buffer.\n";
        const bool restart =
            std::any_of(plan_.requests.begin(), plan_.requests.end(), [](const PlannedRequest& request) {
                return request.reboot && request.action == PlanAction::apply;
            });
        if (restart) {
            out_ << "A restart will be needed.\n";
        } else if (plan_.rebootNeeded) {
            out_ << "The run's rebootNeeded will be true for what is applied already; this run needs no "
                    "restart.\n";
        }
        for (const std::string& warning : plan_.warnings)
            out_ << tinted(folded("! " + base::printable(warning), columns_, 2), kYellow) << '\n';
        if (warnings > 0) out_ << tinted(countText(warnings, "warning") + '.', kYellow) << '\n';
        out_ << "Nothing was installed. Downloads and installers can still fail in a run.\n";
    }

    std::ostream& out_;
    const Plan& plan_;
    bool colour_;
    std::size_t columns_;
    std::size_t label_ = 0;
    std::size_t identifier_ = 0;
};

}  // namespace

void writePlanText(std::ostream& out, const Plan& plan, bool colour, std::size_t columns) {
    Writer(out, plan, colour, columns).write();
}

}  // namespace zelor::controller

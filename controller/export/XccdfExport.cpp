#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

#include "base/Strings.h"
#include "controller/Text.h"
#include "controller/export/Export.h"

namespace zelor::controller {

namespace {

constexpr const char* kCceSystem = "https://nvd.nist.gov/cce/index.cfm";
constexpr const char* kCveSystem = "http://cve.mitre.org";

/// The letters of an id that XML allows in one; the request's digest makes it unique.
std::string ruleId(const ExportedRequest& request) {
    constexpr std::size_t kMostLetters = 40;
    std::string id = "xccdf_zelor_rule_";
    for (const char letter : request.identifier.substr(0, kMostLetters)) {
        const auto code = static_cast<unsigned char>(letter);
        id += code < 0x80 && (std::isalnum(code) != 0 || letter == '-' || letter == '.') ? letter : '.';
    }
    return id + '-' + requestDigest(request);
}

std::string identText(const ExportedRequest& request) {
    const std::string identifier = base::trimmed(request.identifier);
    const char* system = base::hasBeginning(identifier, "CCE-")   ? kCceSystem
                         : base::hasBeginning(identifier, "CVE-") ? kCveSystem
                                                                  : nullptr;
    if (system == nullptr) return "";
    return std::string("<ident system=\"") + system + "\">" + markupText(identifier) + "</ident>";
}

/// Whether a text is a CPE 2.2 name, which needs no escapes.
bool isPlainCpe(const std::string& text) {
    return base::hasBeginning(text, "cpe:/") && std::all_of(text.begin(), text.end(), [](unsigned char code) {
               return code < 0x80 &&
                      (std::isalnum(code) != 0 ||
                       std::string(":/._-~%").find(static_cast<char>(code)) != std::string::npos);
           });
}

/// The score of the default model, which is the share of rules that hold among those that were examined.
std::string score(const ExportedRun& run) {
    double counted = 0;
    double good = 0;
    for (const ExportedRequest& request : run.requests) {
        const std::string result = xccdfResult(request);
        if (result == "notchecked") continue;
        ++counted;
        if (result == "fixed" || result == "pass") ++good;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.6f", counted > 0 ? 100 * good / counted : 0);
    return text.data();
}

const char* messageSeverity(const ExportedRequest& request) {
    return request.value == kSuccessValue ? "warning" : "error";
}

void writeRule(std::ostream& out, const ExportedRequest& request) {
    out << "  <Rule id=\"" << ruleId(request) << "\" selected=\"true\">\n    <title>"
        << escapedMarkup(requestLabel(request.key)) << " (" << markupText(request.identifier)
        << ")</title>\n    <description>" << markupText(request.key) << "</description>\n    "
        << identText(request) << "\n  </Rule>\n";
}

/// The result stays that of the run; what the check says is beside it.
void writeProof(std::ostream& out, const ExportedRequest& request) {
    if (request.verified == results::Verified::noCheck) return;
    const char* says = request.verified == results::Verified::holds   ? "it holds"
                       : request.verified == results::Verified::fails ? "it does not hold"
                                                                      : "cannot decide whether it holds";
    out << "      <message severity=\"" << (request.verified == results::Verified::holds ? "info" : "warning")
        << "\">check after the run: " << says << (request.verifiedReason.empty() ? "" : ": ")
        << markupText(request.verifiedReason) << "</message>\n";
}

void writeResult(std::ostream& out, const ExportedRun& run, const ExportedRequest& request) {
    out << "    <rule-result idref=\"" << ruleId(request) << "\" time=\"" << utcText(endOf(run, request))
        << "\">\n      <result>" << xccdfResult(request) << "</result>\n      " << identText(request) << '\n';
    if (!request.detail.empty())
        out << "      <message severity=\"" << messageSeverity(request) << "\">" << markupText(request.detail)
            << "</message>\n";
    writeProof(out, request);
    out << "    </rule-result>\n";
}

void writeFacts(std::ostream& out, const ExportedRun& run) {
    const auto fact = [&](const char* name, const std::string& text, const char* type = "string") {
        out << "      <fact name=\"urn:" << name << "\" type=\"" << type << "\">" << markupText(text)
            << "</fact>\n";
    };
    const auto flag = [](bool on) { return on ? "true" : "false"; };
    out << "    <target-facts>\n";
    fact("xccdf:fact:asset:identifier:host_name", run.host);
    fact("xccdf:fact:scanner:name", "zelor-remediate");
    fact("xccdf:fact:scanner:version", run.version);
    fact("zelor:fact:os:name", run.platformName);
    fact("zelor:fact:os:version", run.platformVersion);
    fact("zelor:fact:run:end", run.end);
    fact("zelor:fact:run:reboot-needed", flag(run.rebootNeeded), "boolean");
    fact("zelor:fact:run:restart-needed-by-this-run", flag(run.restartNeededByThisRun), "boolean");
    fact("zelor:fact:run:scan-needed", flag(run.scanNeeded), "boolean");
    out << "    </target-facts>\n";
}

std::string platform(const ExportedRun& run) {
    return isPlainCpe(run.platformCpe) ? "  <platform idref=\"" + run.platformCpe + "\"/>\n" : "";
}

void writeTestResult(std::ostream& out, const ExportedRun& run) {
    std::string moment = utcText(run.started);
    moment.erase(std::remove_if(moment.begin(), moment.end(), [](char c) { return c == '-' || c == ':'; }),
                 moment.end());
    out << "  <TestResult id=\"xccdf_zelor_testresult_" << moment << "\" start-time=\""
        << utcText(run.started) << "\" end-time=\"" << utcText(run.finished)
        << "\" version=\"1\" test-system=\"zelor-remediate " << markupText(run.version)
        << "\">\n    <title>Remediation of " << markupText(run.host) << "</title>\n    <target>"
        << (run.host.empty() ? "unknown" : markupText(run.host)) << "</target>\n";
    writeFacts(out, run);
    out << platform(run);
    for (const ExportedRequest& request : run.requests)
        writeResult(out, run, request);
    out << "    <score system=\"urn:xccdf:scoring:default\" maximum=\"100.000000\">" << score(run)
        << "</score>\n  </TestResult>\n";
}

}  // namespace

std::string xccdfResult(const ExportedRequest& request) {
    if (!isResult(request.value)) return "unknown";
    switch (request.value) {
        case kSuccessValue:
            return request.appliedNow ? "fixed" : request.appliedBefore ? "pass" : "unknown";
        case kContentFailedValue:
        case kAbortedValue:
            return "notchecked";
        case kInternalFailedValue:
        case kInvalidRequestValue:
        case kFileUnavailableValue:
            return "error";
        default:
            return "fail";
    }
}

void writeXccdf(std::ostream& out, const ExportedRun& run) {
    const std::string started = utcText(run.started);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<Benchmark xmlns=\"http://checklists.nist.gov/xccdf/1.2\" "
           "id=\"xccdf_zelor_benchmark_remediation\" "
           "resolved=\"true\" xml:lang=\"en\">\n  <status date=\""
        << started.substr(0, started.find('T')) << "\">accepted</status>\n  <title>Remediation of "
        << markupText(run.host)
        << "</title>\n  <description>What a run of zelor-remediate was asked for, and what became of "
           "it.</description>\n"
        << platform(run) << "  <version time=\"" << started
        << "\">1</version>\n  <model system=\"urn:xccdf:scoring:default\"/>\n";
    for (const ExportedRequest& request : run.requests)
        writeRule(out, request);
    writeTestResult(out, run);
    out << "</Benchmark>\n";
}

}  // namespace zelor::controller

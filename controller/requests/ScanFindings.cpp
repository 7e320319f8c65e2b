#include "controller/requests/ScanFindings.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "agent/xml/XmlText.h"
#include "base/Strings.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::controller {

namespace {

/// Text of a file without the mark that some editors put first.
std::string_view withoutMark(std::string_view text) {
    constexpr std::string_view kMark = "\xef\xbb\xbf";
    return text.substr(0, kMark.size()) == kMark ? text.substr(kMark.size()) : text;
}

/// Reads one rule of the audit: a dictionary with "finding" and more.
ScanFinding auditFinding(const std::string& rule, const pugi::xml_node& entry, const KnownRules& known,
                         bool& found) {
    ScanFinding finding{"rule " + rule, rule, {}, {"cpe:/o:apple:mac_os_x"}, ""};
    bool exempt = false;
    for (const pugi::xml_node key : entry.children("key")) {
        const std::string name = agent::textOf(key);
        pugi::xml_node value = key.next_sibling();
        while (value && value.type() != pugi::node_element)
            value = value.next_sibling();
        const bool yes = std::string(value.name()) == "true";
        if (name == "finding") found = yes;
        if (name == "exempt") exempt = yes;
        const std::string text = name == "reference" ? base::trimmed(agent::textOf(value)) : "";
        if (remediation::isCceIdentifier(text)) finding.identifiers.push_back(text);
    }
    const auto more = known.find(rule);
    if (more != known.end()) {
        if (finding.identifiers.empty()) finding.identifiers = more->second.identifiers;
        if (!more->second.title.empty()) finding.title = more->second.title;
    }
    if (exempt) finding.reason = "it is exempt";
    if (finding.reason.empty() && finding.identifiers.empty())
        finding.reason = "it has no CCE identifier; name the report of zelor-content import with --rules";
    return finding;
}

ScanFinding lineFinding(const std::string& line, std::size_t number) {
    ScanFinding finding{"line " + std::to_string(number), "", {}, {}, ""};
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (remediation::isCceIdentifier(word) || remediation::isCveIdentifier(word)) {
        finding.identifiers = {word};
    } else {
        finding.reason = "it begins with no CVE or CCE identifier: " + word.substr(0, 60);
    }
    std::getline(words, word);
    word = base::trimmed(word);
    if (base::hasBeginningInAnyCase(word, "cpe:")) {
        const auto end = std::min(word.find_first_of(" \t"), word.size());
        finding.cpes = base::splitCompressed(word.substr(0, end), ',');
        word.erase(0, end);
    }
    finding.title = base::trimmed(word);
    return finding;
}

}  // namespace

base::Result<Scan> readAuditList(const std::string& xml, const KnownRules& known) {
    const auto document = agent::parseXml(xml, agent::DocumentType::external);
    if (!document) return tl::unexpected<base::Failure>(document.error());
    const pugi::xml_node rules = document->child("plist").child("dict");
    if (!rules) return base::failure("it is a property list without a dictionary of rules");
    Scan scan;
    for (const pugi::xml_node key : rules.children("key")) {
        pugi::xml_node value = key.next_sibling();
        while (value && value.type() != pugi::node_element)
            value = value.next_sibling();
        if (std::string(value.name()) != "dict") continue;
        bool found = false;
        ScanFinding finding = auditFinding(agent::textOf(key), value, known, found);
        if (found) scan.findings.push_back(std::move(finding));
        if (!found) ++scan.passed;
    }
    if (scan.findings.empty() && scan.passed == 0)
        return base::failure("it is a property list without audited rules");
    return scan;
}

Scan readIdentifierList(const std::string& text) {
    Scan scan;
    std::istringstream lines(text);
    std::string line;
    for (std::size_t number = 1; std::getline(lines, line); ++number) {
        line = base::trimmed(line.substr(0, line.find('#')));
        if (!line.empty()) scan.findings.push_back(lineFinding(line, number));
    }
    return scan;
}

base::Result<Scan> readScan(const std::string& text, const KnownRules& known) {
    const std::string body(withoutMark(text));
    if (base::hasBeginning(body, "bplist"))
        return base::failure("it is a binary property list; convert it with \"plutil -convert xml1\"");
    const auto start = body.find_first_not_of(" \t\r\n");
    if (start == std::string::npos) return base::failure("it is empty");
    if (body[start] != '<') {
        if (body.find('\0') != std::string::npos) return base::failure("it is no text in UTF-8");
        return readIdentifierList(body);
    }
    const auto root = body.find("<plist");
    const bool list = root != std::string::npos && body.find("TestResult") == std::string::npos;
    return list ? readAuditList(body, known) : readXccdfResults(body, known);
}

base::Check addKnownRules(const std::string& json, KnownRules& rules) {
    try {
        const nlohmann::json report = nlohmann::json::parse(json);
        for (const nlohmann::json& rule : report.at("rules")) {
            KnownRule& known = rules[rule.at("rule").get<std::string>()];
            known.title = rule.at("title").get<std::string>();
            for (const nlohmann::json& identifier : rule.at("identifiers")) {
                const auto text = identifier.get<std::string>();
                if (remediation::isCceIdentifier(text)) known.identifiers.push_back(text);
            }
        }
    } catch (const nlohmann::json::exception&) {
        return base::failure("it is not the report of an import");
    }
    return {};
}

}  // namespace zelor::controller

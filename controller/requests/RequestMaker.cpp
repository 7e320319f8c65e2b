#include "controller/requests/RequestMaker.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "base/PrintableText.h"
#include "base/Strings.h"
#include "base/Utf8.h"
#include "controller/plan/PlanWarnings.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kNameBytes = 200;

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at))
        text.replace(at, from.size(), to);
}

/// A title as a package name: one line without what means something in a key.
std::string packageName(const std::string& title) {
    std::string name;
    for (const char letter : title) {
        const bool blank = letter == ' ' || letter == '\t' || letter == '\n' || letter == '\r';
        if (!blank) name += letter;
        if (blank && !name.empty() && name.back() != ' ') name += ' ';
    }
    name = base::printable(name);
    replaceAll(name, "||", "|");
    replaceAll(name, "oval:", "oval ");
    std::size_t end = 0;
    while (end < name.size() && end + base::characterAt(name, end).bytes <= kNameBytes)
        end += base::characterAt(name, end).bytes;
    name.resize(end);
    return base::trimmed(name);
}

bool isKind(const std::string& cpe, const char* kind) {
    return base::hasBeginning(cpe, kind);
}

}  // namespace

std::string keyCpe(const std::string& name) {
    const std::string cpe = isCpe23(name) ? cpe22Name(name).value_or("") : base::trimmed(name);
    const bool plain = std::all_of(cpe.begin(), cpe.end(), [](unsigned char code) {
        return code > ' ' && code < 0x7f && code != ',' && code != '|' && code != '"';
    });
    return plain && cpe.size() <= kNameBytes && (isKind(cpe, "cpe:/o") || isKind(cpe, "cpe:/a")) ? cpe : "";
}

std::string RequestMaker::namesOf(const ScanFinding& finding, std::string& problem) const {
    std::string platform = platform_, product = product_;
    for (const std::string& name : finding.cpes) {
        const std::string cpe = keyCpe(name);
        std::string& place = isKind(cpe, "cpe:/o") ? platform : product;
        if (place.empty()) place = cpe;
    }
    const bool configuration =
        !finding.identifiers.empty() && remediation::isConfiguration(finding.identifiers.front());
    if (platform.empty() && product.empty())
        problem =
            "no CPE of an operating system or application is known for it; give --platform or --product";
    else if (product.empty() && !configuration)
        problem = "no product is known for it; write its CPE after the identifier, or give --product";
    return platform + (platform.empty() || product.empty() ? "" : ",") + product + "||";
}

void RequestMaker::add(const Scan& scan, const std::string& file) {
    for (const ScanFinding& finding : scan.findings) {
        std::string problem = finding.reason;
        std::string names;
        if (problem.empty()) names = namesOf(finding, problem);
        if (!problem.empty()) {
            leftOut_.push_back({base::printable(file + ": " + finding.source), base::printable(problem)});
            continue;
        }
        for (const std::string& identifier : finding.identifiers)
            addRequest(names, packageName(finding.title), identifier);
    }
}

void RequestMaker::addRequest(const std::string& names, const std::string& name,
                              const std::string& identifier) {
    if (!made_.emplace(names, identifier).second) {
        ++merged_;
        return;
    }
    // Without a name every update of the system would match it.
    std::string key = names + (name.empty() ? identifier : name);
    if (requests_.count(key) != 0) key = names + name + " (" + identifier + ')';
    for (int copy = 2; requests_.count(key) != 0; ++copy)
        key = names + name + " (" + identifier + ", " + std::to_string(copy) + ')';
    requests_.emplace(key, identifier);
}

std::string requestsJson(const RequestMap& requests) {
    std::string text = "{";
    for (const auto& [key, identifier] : requests)
        text += (text.size() == 1 ? "\n  " : ",\n  ") + nlohmann::json(key).dump() + ": " +
                nlohmann::json(identifier).dump();
    return text + (requests.empty() ? "}\n" : "\n}\n");
}

}  // namespace zelor::controller

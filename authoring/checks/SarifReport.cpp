#include "authoring/checks/SarifReport.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <nlohmann/json.hpp>

#include "agent/trust/Sha256.h"
#include "base/Strings.h"
#include "remediation/Version.h"

namespace zelor::authoring {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kBase = "REPOSITORY";

struct Rule {
    const char* id;
    const char* beginning;  ///< of the places that it is for
    const char* text;
};

// The last one is for every other place.
constexpr std::array<Rule, 3> kRules = {{{"content", "content/", "The content of an identifier"},
                                         {"patch", "patches/", "The archive of a patch or script"},
                                         {"repository", "", "The repository as a whole"}}};

std::size_t ruleOf(const std::string& place) {
    const auto found = std::find_if(kRules.begin(), kRules.end(), [&](const Rule& rule) {
        return base::hasBeginning(place, rule.beginning);
    });
    return static_cast<std::size_t>(found - kRules.begin());
}

/// A place begins with its file: "content/CCE-1-1.xml, CRE-1, ERI-1".
std::string uriOf(const std::string& place) {
    std::string uri;
    for (const char letter : place.substr(0, place.find(", "))) {
        const auto code = static_cast<unsigned char>(letter);
        const bool plain =
            code < 0x80 && (std::isalnum(code) != 0 || base::contains("-._~/", std::string_view(&letter, 1)));
        if (plain) uri += letter;
        if (!plain) base::appendHex(uri += '%', code, base::HexCase::upper);
    }
    return uri;
}

std::string fingerprint(const Finding& finding) {
    agent::Sha256 digest;
    digest.add(finding.place + '\n' + finding.what);
    return digest.finish().sha256.substr(0, 32);
}

Json resultOf(const Finding& finding) {
    const std::size_t rule = ruleOf(finding.place);
    const Json artifact = {{"uri", uriOf(finding.place)}, {"uriBaseId", kBase}};
    const Json location = {{"physicalLocation", {{"artifactLocation", artifact}}},
                           {"logicalLocations", Json::array({{{"fullyQualifiedName", finding.place}}})}};
    return {{"ruleId", kRules.at(rule).id},
            {"ruleIndex", rule},
            {"level", finding.severity == Severity::error ? "error" : "warning"},
            {"message", {{"text", finding.place + ": " + finding.what + ". Remedy: " + finding.remedy}}},
            {"locations", Json::array({location})},
            {"partialFingerprints", {{"placeAndText/v1", fingerprint(finding)}}}};
}

}  // namespace

std::string sarifReport(const CheckReport& report) {
    Json rules = Json::array(), results = Json::array();
    for (const Rule& rule : kRules)
        rules.push_back({{"id", rule.id}, {"shortDescription", {{"text", rule.text}}}});
    for (const Finding& finding : report.findings)
        results.push_back(resultOf(finding));
    const Json driver = {{"name", "zelor-content"}, {"version", ZELOR_VERSION_STRING}, {"rules", rules}};
    const Json run = {
        {"tool", {{"driver", driver}}},
        {"invocations", Json::array({{{"executionSuccessful", true}}})},
        {"originalUriBaseIds", {{kBase, {{"description", {{"text", "The repository that was checked"}}}}}}},
        {"results", results}};
    const Json log = {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                      {"version", "2.1.0"},
                      {"runs", Json::array({run})}};
    return log.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace zelor::authoring

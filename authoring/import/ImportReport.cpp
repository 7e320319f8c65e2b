#include "authoring/import/ImportReport.h"

#include <nlohmann/json.hpp>

#include "authoring/import/SourceText.h"

namespace zelor::authoring {

namespace {

using Json = nlohmann::ordered_json;

constexpr long kNumberLimit = 1'000'000;

std::string dumped(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace

std::string eriId(const std::string& identifier, long number) {
    return "ERI-" + identifier + '-' + std::to_string(number);
}

std::string scriptFile(const std::string& identifier) {
    return "scripts/" + identifier + ".bsh";
}

std::string checkFile(const std::string& identifier) {
    return "checks/" + identifier + "-check.bsh";
}

base::Result<ImportHistory> parseImportReport(const std::string& json) {
    ImportHistory history;
    try {
        const Json report = Json::parse(json);
        history.source = report.at("source").get<std::string>();
        for (const auto& [identifier, entry] : report.at("entries").items()) {
            KnownEntry known{entry.at("number").get<long>(), entry.at("sha256").get<std::string>(),
                             entry.value("check", ""), entry.at("current").get<bool>()};
            if (!isCceIdentifier(identifier) || known.number < 1 || known.number > kNumberLimit)
                return base::failure("the entry \"" + oneLine(identifier, 60) + "\" is none of an import");
            history.entries[identifier] = known;
        }
    } catch (const Json::exception&) {
        return base::failure("it is not the report of an import");
    }
    if (history.source.empty()) return base::failure("it names no source");
    return history;
}

std::string importReport(const RuleSet& rules, const ImportHistory& history, const ImportSummary& summary) {
    Json list = Json::array(), entries = Json::object();
    for (const ImportedRule& rule : rules.rules) {
        Json one = {{"rule", oneLine(rule.rule)},
                    {"title", oneLine(rule.title)},
                    {"identifiers", rule.identifiers},
                    {"imported", rule.reason.empty()}};
        if (!rule.reason.empty()) one["reason"] = rule.reason;
        if (rule.reason.empty()) one["check"] = !rule.check.empty();
        list.push_back(std::move(one));
    }
    for (const auto& [identifier, known] : history.entries) {
        Json& entry = entries[identifier] = {{"number", known.number}, {"sha256", known.sha256}};
        if (!known.check.empty()) entry["check"] = known.check;
        entry["current"] = known.current;
    }
    const Json changes = {{"new", summary.added},
                          {"changed", summary.changed},
                          {"gone", summary.gone},
                          {"unchanged", summary.unchanged}};
    return dumped({{"source", history.source},
                   {"choice", rules.choice},
                   {"imported", summary.imported},
                   {"withCheck", summary.withCheck},
                   {"leftOut", summary.leftOut},
                   {"changes", changes},
                   {"rules", list},
                   {"entries", entries}});
}

std::string importManifest(const RuleSet& rules, const ImportHistory& history) {
    Json manifest = Json::array();
    for (const ImportedRule& rule : rules.rules) {
        if (!rule.reason.empty()) continue;
        for (const std::string& identifier : rule.identifiers) {
            // The rule's id comes first: what begins with "OS Remediation" would be an update of the system's
            // own.
            Json eri = {{"id", eriId(identifier, history.entries.at(identifier).number)},
                        {"file", scriptFile(identifier)},
                        {"instructions", "Rule " + oneLine(rule.rule) + ": " + oneLine(rule.title)}};
            if (!rules.product.empty()) eri["product"] = rules.product;
            if (!rule.check.empty()) eri["check"] = checkFile(identifier);
            if (rule.reboot) eri["reboot"] = true;
            manifest.push_back(
                {{"identifier", identifier}, {"cres", Json::array({{{"eris", Json::array({eri})}}})}});
        }
    }
    return dumped(manifest);
}

}  // namespace zelor::authoring

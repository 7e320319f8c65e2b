#include <algorithm>
#include <iostream>

#include "authoring/Commands.h"
#include "authoring/Finding.h"
#include "authoring/UsageError.h"
#include "authoring/import/ImportWriter.h"
#include "authoring/import/MscpRules.h"
#include "authoring/import/SourceText.h"
#include "authoring/import/XccdfRules.h"
#include "base/Files.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kNameColumns = 60, kIdentifierColumns = 14;

std::string padded(std::string text, std::size_t columns) {
    text.resize(std::max(text.size(), columns), ' ');
    return text + "  ";
}

void printRules(const RuleSet& rules) {
    std::cout << padded("RULE", kNameColumns) << padded("IDENTIFIER", kIdentifierColumns) << "RESULT\n";
    for (const ImportedRule& rule : rules.rules) {
        const std::string identifier = rule.identifiers.empty() ? "-" : rule.identifiers[0];
        std::cout << padded(oneLine(rule.rule, 200), kNameColumns) << padded(identifier, kIdentifierColumns)
                  << (rule.reason.empty() ? "imported" : "left out: " + rule.reason) << '\n';
    }
}

void printIdentifiers(const char* what, const std::vector<std::string>& identifiers) {
    if (identifiers.empty()) return;
    std::cout << what;
    for (const std::string& identifier : identifiers)
        std::cout << ' ' << identifier;
    std::cout << '\n';
}

void printSummary(const ImportSummary& summary, const std::string& out) {
    std::size_t leftOut = 0;
    for (const auto& [reason, count] : summary.leftOut)
        leftOut += count;
    std::cout << '\n'
              << amount(summary.imported, "rule", "rules") << " imported, " << leftOut << " left out\n";
    for (const auto& [reason, count] : summary.leftOut)
        std::cout << padded("", 2) << count << "  " << reason << '\n';
    if (!summary.written) {
        std::cout << "Nothing was written, the last import in " << out
                  << " stays as it is: check the version, the benchmark and the profile\n";
        return;
    }
    if (summary.withCheck != 0) {
        std::cout << amount(summary.withCheck, "rule has", "rules have")
                  << " a check, which plan --check and verify run\n";
    } else if (summary.imported != 0) {
        std::cout << "No rule has a check: the source has none for bash, so verify cannot prove them\n";
    }
    if (!summary.first) {
        std::cout << "Since the last import: " << summary.added.size() << " new, " << summary.changed.size()
                  << " changed, " << summary.gone.size() << " gone, " << summary.unchanged << " unchanged\n";
        printIdentifiers("  new:", summary.added);
        printIdentifiers("  changed, with a new ERI id:", summary.changed);
        printIdentifiers("  gone:", summary.gone);
    }
    std::cout << out << "/manifest.json  review it and its scripts, then publish it\n"
              << out << "/import.json    the report; the next import needs it\n";
}

int finish(RuleSet rules, const std::string& out) {
    const ImportSummary summary = writeImport(rules, out);
    printRules(rules);
    printSummary(summary, out);
    return summary.imported == 0 ? exitStatus::kFailed : exitStatus::kGood;
}

RuleSet usable(base::Result<RuleSet> rules, const std::string& prefix) {
    if (!rules) throw UsageError(prefix + rules.error().text);
    return std::move(*rules);
}

}  // namespace

int runImportMscp(const ImportMscpOptions& options) {
    return finish(usable(readMscpRules(options.directory, {options.os, options.benchmark}), ""), options.out);
}

int runImportXccdf(const ImportXccdfOptions& options) {
    std::string xml;
    try {
        xml = base::readBounded(options.dataStream, kDataStreamBytesLimit, base::Links::follow);
    } catch (const std::exception& e) {
        throw UsageError(std::string(e.what()) + "; name a data stream");
    }
    return finish(usable(readXccdfRules(xml, options.profile), options.dataStream + ": "), options.out);
}

}  // namespace zelor::authoring

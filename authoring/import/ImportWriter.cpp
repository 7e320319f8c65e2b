#include "authoring/import/ImportWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <set>

#include "authoring/UsageError.h"
#include "authoring/checks/ScriptChecks.h"
#include "authoring/import/ImportReport.h"
#include "authoring/import/SourceText.h"
#include "authoring/publish/Digests.h"
#include "base/Directories.h"
#include "base/StagedFile.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kReportBytesLimit = 64U << 20U;

/// What the directory holds of an import before.
ImportHistory readHistory(const std::string& out, const std::string& source) {
    boost::system::error_code ignored;
    const std::string report = out + "/import.json", manifest = out + "/manifest.json";
    if (!boost::filesystem::exists(report, ignored)) {
        if (boost::filesystem::exists(manifest, ignored))
            throw UsageError(manifest + " is not from an import; name another directory (--out)");
        return {};
    }
    auto history = parseImportReport(base::readBounded(report, kReportBytesLimit, base::Links::follow));
    if (!history) throw UsageError(report + ": " + history.error().text + "; name another directory (--out)");
    if (history->source != source)
        throw UsageError(out + " holds an import of \"" + oneLine(history->source) + "\", not of \"" +
                         oneLine(source) + "\"; name another directory (--out)");
    return std::move(*history);
}

void leaveOut(ImportedRule& rule, const std::string& reason) {
    rule.reason = reason;
    rule.script.clear();
    rule.check.clear();
}

/// Two entries cannot have one identifier: the first rule that is imported keeps it.
void leaveOutRepetitions(RuleSet& rules) {
    std::map<std::string, std::string> owners;
    for (ImportedRule& rule : rules.rules) {
        if (!rule.reason.empty()) continue;
        for (const std::string& identifier : rule.identifiers) {
            const auto owner = owners.find(identifier);
            if (owner != owners.end())
                leaveOut(rule, "an earlier rule has its identifier: " + oneLine(owner->second));
        }
        if (!rule.reason.empty()) continue;
        for (const std::string& identifier : rule.identifiers)
            owners.emplace(identifier, rule.rule);
    }
}

void writeText(const std::string& file, const std::string& text) {
    base::UniqueFd opened = base::openFile(file, O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (!opened || !base::writeAll(opened.get(), text) || !opened.close())
        throw std::runtime_error("cannot write " + file + ": " + base::errorText(errno));
}

/// Leaves out what bash cannot parse. The texts of the source are also parsed one by one: one that ends the
/// function that it is put into would take part in what the script reports.
void leaveOutUnparsed(RuleSet& rules) {
    const base::TemporaryDirectory directory("zelor-import");
    std::vector<ScriptFile> files;
    std::vector<ImportedRule*> owners;
    for (ImportedRule& rule : rules.rules) {
        if (!rule.reason.empty()) continue;
        std::vector<std::string> texts = rule.texts;
        texts.push_back(rule.script);
        if (!rule.check.empty()) texts.push_back(rule.check);
        for (const std::string& text : texts) {
            files.push_back({"", directory.path() + '/' + std::to_string(files.size())});
            writeText(files.back().file, text);
            owners.push_back(&rule);
        }
    }
    const std::vector<Findings> found = scriptFindings(files);
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (!found[i].empty() && owners[i]->reason.empty()) leaveOut(*owners[i], oneLine(found[i][0].what));
    }
}

/// Counts what became of the rules. What follows the colon of a reason is different for each.
void count(const RuleSet& rules, ImportSummary& summary) {
    for (const ImportedRule& rule : rules.rules) {
        if (rule.reason.empty()) ++summary.imported;
        if (!rule.check.empty()) ++summary.withCheck;
        if (!rule.reason.empty()) ++summary.leftOut[rule.reason.substr(0, rule.reason.find(": "))];
    }
}

std::string digestOf(const std::string& text) {
    return text.empty() ? "" : base::hexadecimal(digestsOfText(text).sha256);
}

/// Brings the history up to date with what is imported now.
void compare(const RuleSet& rules, ImportHistory& history, ImportSummary& summary) {
    std::set<std::string> now;
    for (const ImportedRule& rule : rules.rules) {
        if (!rule.reason.empty()) continue;
        const std::string digest = digestOf(rule.script), check = digestOf(rule.check);
        for (const std::string& identifier : rule.identifiers) {
            if (!now.insert(identifier).second) continue;
            const auto [found, fresh] =
                history.entries.emplace(identifier, KnownEntry{1, digest, check, true});
            KnownEntry& known = found->second;
            const bool other = known.sha256 != digest || known.check != check;
            if (other) ++known.number;
            if (fresh || !known.current) {
                summary.added.push_back(identifier);
            } else if (other) {
                summary.changed.push_back(identifier);
            } else {
                ++summary.unchanged;
            }
            known = {known.number, digest, check, true};
        }
    }
    for (auto& [identifier, known] : history.entries) {
        if (now.count(identifier) != 0 || !known.current) continue;
        known.current = false;
        summary.gone.push_back(identifier);
    }
}

/// The report goes before the manifest: an id that a manifest shows is always in the history.
void write(const RuleSet& rules, const ImportHistory& history, const ImportSummary& summary,
           const std::string& out) {
    for (const char* directory : {"/scripts", "/checks"}) {
        if (directory == std::string("/checks") && summary.withCheck == 0) continue;
        if (!base::makeDirectories(out + directory))
            throw std::runtime_error("cannot make " + out + directory + ": " + base::errorText(errno));
    }
    base::StagedFiles files;
    const auto add = [&](const std::string& name, const std::string& text) {
        base::StagedFile& file = files.add(out + '/' + name);
        file.write(text);
        file.close();
    };
    for (const ImportedRule& rule : rules.rules) {
        if (!rule.reason.empty()) continue;
        for (const std::string& identifier :
             std::set<std::string>(rule.identifiers.begin(), rule.identifiers.end())) {
            add(scriptFile(identifier), rule.script);
            if (!rule.check.empty()) add(checkFile(identifier), rule.check);
        }
    }
    add("import.json", importReport(rules, history, summary));
    add("manifest.json", importManifest(rules, history));
    files.commit();
    for (const std::string& identifier : summary.gone) {
        ::unlink((out + '/' + scriptFile(identifier)).c_str());
        ::unlink((out + '/' + checkFile(identifier)).c_str());
    }
}

}  // namespace

ImportSummary writeImport(RuleSet& rules, const std::string& out) {
    ImportHistory history = readHistory(out, rules.source);
    ImportSummary summary;
    summary.first = history.source.empty();
    history.source = rules.source;
    leaveOutUnparsed(rules);
    leaveOutRepetitions(rules);
    compare(rules, history, summary);
    count(rules, summary);
    // A mistyped benchmark must not withdraw everything.
    summary.written = summary.first || summary.imported != 0;
    if (summary.written) write(rules, history, summary, out);
    return summary;
}

}  // namespace zelor::authoring

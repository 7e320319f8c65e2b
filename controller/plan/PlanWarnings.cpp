#include "controller/plan/PlanWarnings.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>
#include <vector>

#include "base/Strings.h"
#include "platform/macos/InstallerKinds.h"
#include "remediation/buffer/PatchSize.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::controller {

namespace {

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

bool beginsLikeASystemUpdate(const std::string& label) {
    static constexpr std::array<const char*, 4> kBeginnings = {"osx", "os x", "secupd", "security update"};
    const std::string lower = base::lowerCased(label);
    return std::any_of(kBeginnings.begin(), kBeginnings.end(),
                       [&](const char* beginning) { return base::hasBeginning(lower, beginning); });
}

/// Patch name to the requests that name it.
using Naming = std::map<std::string, std::vector<PlannedRequest*>>;

Naming requestsByPatch(std::vector<PlannedRequest>& requests) {
    Naming naming;
    for (PlannedRequest& request : requests) {
        for (const PlannedStep& step : request.steps) {
            if (step.file) naming[step.file->name].push_back(&request);
        }
    }
    return naming;
}

void addNameWarnings(std::vector<PlannedRequest>& requests, const std::string& bufferedList) {
    const Naming naming = requestsByPatch(requests);
    std::set<std::string> names;
    for (const auto& [name, naming_] : naming)
        names.insert(name);
    std::istringstream lines(bufferedList);
    for (std::string line; std::getline(lines, line);)
        names.insert(base::splitCompressed(line, '=').front());
    for (const auto& [outer, inner] : remediation::containedNames(names)) {
        const std::string warning = quoted(inner) + " is part of the name " + quoted(outer) +
                                    ": the buffered list confuses the two, and forgets the latter when the "
                                    "former is buffered or installed";
        for (const std::string& name : {outer, inner}) {
            const auto found = naming.find(name);
            if (found == naming.end()) continue;
            for (PlannedRequest* request : found->second)
                request->warnings.push_back(warning);
        }
    }
}

void addSharedKeyWarnings(std::vector<PlannedRequest>& requests) {
    std::map<std::string, std::size_t> reported;
    for (const PlannedRequest& request : requests)
        ++reported[remediation::ProgressKey(request.key).text()];
    for (PlannedRequest& request : requests) {
        const std::string key = remediation::ProgressKey(request.key).text();
        const std::size_t others = reported[key] - 1;
        if (others == 0) continue;
        request.warnings.push_back("its result is reported under " + quoted(key) + " together with " +
                                   std::to_string(others) + " other" + (others == 1 ? "" : "s") +
                                   "; the last one counts");
    }
}

}  // namespace

void addWarnings(PlannedRequest& request, std::vector<std::string> warnings) {
    for (std::string& warning : warnings) {
        std::vector<std::string>& all = request.warnings;
        if (std::find(all.begin(), all.end(), warning) == all.end()) all.push_back(std::move(warning));
    }
}

std::vector<std::string> patchWarnings(const std::string& name, const std::string& sizeText,
                                       const std::string& path, bool script) {
    std::vector<std::string> warnings;
    const auto split = remediation::splitAtLastDot(name);
    if (split && split->stem != remediation::cutFourCharacters(name).stem) {
        warnings.push_back(quoted(name) +
                           " has no three-letter extension, so it is never found in the buffer");
    }
    const platform::InstallerKind* const kind = script ? nullptr : platform::installerKindOf(path);
    if (split && kind != nullptr && split->extension != kind->marker) {
        warnings.push_back(quoted(name) + " is installed as " + kind->marker +
                           ", because that occurs in its path");
    }
    const std::string size = base::trimmed(sizeText);
    const remediation::PatchSize parsed = remediation::parsePatchSize(size);
    if (!size.empty() && parsed.unit != "kb" && parsed.unit != "mb") {
        warnings.push_back("its size " + quoted(size) + " counts as " + std::to_string(parsed.bytes) +
                           " bytes, since only KB and MB are known");
    }
    return warnings;
}

std::vector<std::string> imageWarnings(const std::string& name, bool runsNothing,
                                       const std::string& occupied) {
    std::vector<std::string> warnings = {"when " + quoted(name) + " cannot be attached, or has no " +
                                         platform::installableOnImageText() +
                                         " at its top, nothing is installed and the request reads success; "
                                         "look at the installed product after the run"};
    if (runsNothing) {
        warnings.push_back("a bundle on " + quoted(name) +
                           " is to be installed by its own installer, but the content's silent is empty, so "
                           "nothing runs: the shell refuses the command, and the request reads success");
    }
    if (!occupied.empty()) {
        warnings.push_back(occupied +
                           " holds an image or files already: if the run cannot detach that, it is installed "
                           "in place of " +
                           quoted(name) + "; run hdiutil detach first");
    }
    return warnings;
}

std::string listedLabel(const std::string& line) {
    constexpr char kLabelled[] = "Label: ";
    const std::string text = line.substr(0, line.find_last_not_of("\r\n") + 1);
    const std::string label = platform::candidateLabel(text) + text.substr(text.find_last_not_of(" \t") + 1);
    return base::hasBeginning(label, kLabelled) ? label.substr(sizeof kLabelled - 1) : label;
}

bool isListed(const std::string& label, const std::vector<std::string>& listing) {
    bool inside = false;  // of a line that was cut
    for (const std::string& line : listing) {
        const bool cut = line.size() == platform::kListingPiece && line.back() != '\n';
        if (!inside && !cut && listedLabel(line) == label) return true;
        inside = cut;
    }
    return false;
}

bool isListedWithBlanks(const std::string& label, const std::vector<std::string>& listing) {
    const auto similar = [&](const std::string& line) {
        const std::string listed = listedLabel(line);
        return listed != label && base::trimmed(listed) == label;
    };
    return !isListed(label, listing) && std::any_of(listing.begin(), listing.end(), similar);
}

std::vector<std::string> updateWarnings(const platform::UpdateSelection& selection,
                                        const std::vector<std::string>& listing) {
    std::vector<std::string> warnings;
    const std::vector<std::string> labels = platform::labelsToInstall(selection);
    for (const std::string& label : std::set<std::string>(labels.begin(), labels.end())) {
        if (!isListedWithBlanks(label, listing)) continue;
        warnings.push_back(quoted(label) +
                           " is listed with white space at its end, but installed without: softwareupdate "
                           "does not know it, so nothing is installed" +
                           (selection.named ? " although the request reads success" : ""));
    }
    if (selection.named) {
        const auto line = std::find_if(listing.begin(), listing.end(), [&](const std::string& one) {
            return listedLabel(one) == labels.front();
        });
        if (line == listing.end() && warnings.empty()) {
            warnings.push_back("the name occurs inside another label: softwareupdate is asked for " +
                               quoted(labels.front()) +
                               ", which it does not list, so nothing is installed although the request can "
                               "read success");
        }
        return warnings;
    }
    std::set<std::string> seen;
    std::set<std::string> repeated;
    for (const std::string& label : labels) {
        if (!seen.insert(label).second) {
            repeated.insert(label);
        } else if (!beginsLikeASystemUpdate(label)) {
            warnings.push_back(quoted(label) +
                               " is selected only by a word in its label; it does not look like an update of "
                               "the system");
        }
    }
    for (const std::string& label : repeated) {
        warnings.push_back(quoted(label) +
                           " has two of the words that are looked for and is installed twice; the second "
                           "time finds nothing, and the last attempt of all decides on the request");
    }
    return warnings;
}

std::vector<std::string> keyWarnings(const std::vector<std::string>& names, const std::string& platformCpe) {
    std::vector<std::string> warnings;
    bool used = false;
    for (const std::string& name : names) {
        if (base::hasBeginning(name, "cpe:/o") || base::hasBeginning(name, "cpe:/a")) {
            used = true;
        } else if (isCpe23(name)) {
            const std::string remedy = cpe22Name(name).value_or("cpe:/a:vendor:product:version");
            warnings.push_back(quoted(name) +
                               " is a CPE 2.3 name, which a run ignores; write it in CPE 2.2, " +
                               quoted(remedy));
        } else if (!name.empty()) {
            warnings.push_back(
                quoted(name) +
                " is not a CPE 2.2 name of a system (cpe:/o:) or a product (cpe:/a:), so a run "
                "ignores it");
        }
    }
    if (!used) {
        warnings.push_back("its key names no CPE 2.2 name: it counts for " + platformCpe +
                           ", without a product");
    }
    return warnings;
}

std::vector<std::string> restartWarnings(const std::vector<PlannedRequest>& requests) {
    const bool updates = std::any_of(requests.begin(), requests.end(), [](const PlannedRequest& request) {
        const bool succeeds = request.action == PlanAction::apply;
        return request.kind == PlanKind::osUpdate &&
               (succeeds || (request.reboot && !request.commands.empty()));
    });
    if (!updates) return {};
    return {
        "updates of the operating system may need a restart or start one, and rebootNeeded does not cover "
        "them: softwareupdate -l marks those that do, and the run's results have restartNeededByThisRun"};
}

void addMutualWarnings(std::vector<PlannedRequest>& requests, const std::string& bufferedList) {
    addNameWarnings(requests, bufferedList);
    addSharedKeyWarnings(requests);
}

namespace {

constexpr char kBeginning[] = "cpe:2.3:";

/// The fields of a name as they are written; a quoted colon separates nothing.
std::vector<std::string> fieldsOf(const std::string& text) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (const char letter : text) {
        if (letter == ':' && !quoted) {
            fields.emplace_back();
        } else {
            fields.back() += letter;
        }
        quoted = letter == '\\' && !quoted;
    }
    return fields;
}

std::string percentEncoded(char letter) {
    std::string code = "%";
    base::appendHex(code, static_cast<unsigned char>(letter));
    return code;
}

/// A field as CPE 2.2 writes it; none when a letter should be quoted or a quote has no letter after it.
std::optional<std::string> field22(const std::string& field) {
    if (field == "*") return "";
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        const char letter = field[i];
        const bool plain = std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '_' ||
                           letter == '-' || letter == '.';
        if (letter == '\\') {
            if (++i == field.size()) return std::nullopt;
            const char quoted = field[i];
            const bool readable = quoted == '.' || quoted == '-' || quoted == '_';
            text += readable ? std::string(1, quoted) : percentEncoded(quoted);
        } else if (letter == '?' || letter == '*') {
            text += letter == '?' ? "%01" : "%02";
        } else if (plain) {
            text += letter;
        } else {
            return std::nullopt;
        }
    }
    return text;
}

}  // namespace

bool isCpe23(const std::string& name) {
    return base::hasBeginningInAnyCase(name, kBeginning);
}

std::optional<std::string> cpe22Name(const std::string& name23) {
    constexpr std::size_t kEdition = 5;
    constexpr std::size_t kFieldCount = 11;
    if (!isCpe23(name23)) return std::nullopt;
    std::vector<std::string> fields = fieldsOf(base::lowerCased(name23.substr(sizeof kBeginning - 1)));
    if (fields.size() > kFieldCount || (fields[0] != "o" && fields[0] != "a")) return std::nullopt;
    fields.resize(kFieldCount, "*");
    bool extended = false;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto bound = field22(fields[i]);
        if (!bound) return std::nullopt;
        fields[i] = *bound;
        if (i > kEdition + 1 && !fields[i].empty()) extended = true;
    }
    // The fields that 2.2 does not have are packed into the edition.
    if (extended) {
        fields[kEdition].insert(0, 1, '~');
        for (std::size_t i = kEdition + 2; i < kFieldCount; ++i)
            fields[kEdition] += '~' + fields[i];
    }
    std::string name = "cpe:/" + fields[0];
    for (std::size_t i = 1; i < kEdition + 2; ++i)
        name += ':' + fields[i];
    name.erase(name.find_last_not_of(':') + 1);
    return name;
}

}  // namespace zelor::controller

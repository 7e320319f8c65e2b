#include "authoring/checks/ContentChecks.h"

#include <functional>
#include <map>

#include "agent/content/ContentDocument.h"
#include "authoring/manifest/SizeText.h"
#include "base/Strings.h"
#include "platform/macos/InstallerKinds.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::authoring {

namespace {

void append(Findings& findings, Findings more) {
    findings.insert(findings.end(), std::make_move_iterator(more.begin()),
                    std::make_move_iterator(more.end()));
}

bool covers(const std::string& one, const std::string& other) {
    return one.empty() || one == other;
}

bool overlap(const std::string& one, const std::string& other) {
    return covers(one, other) || other.empty();
}

/// Of several CREs that match a request the first is taken. One for a single product before one for any is
/// the usual way to write an exception, and not a finding.
void checkCompetition(const ContentEntry& entry, std::size_t at, Findings& findings) {
    const ContentCre& cre = entry.cres[at];
    for (std::size_t i = 0; i < at; ++i) {
        const ContentCre& earlier = entry.cres[i];
        if (!overlap(earlier.platform, cre.platform) || !overlap(earlier.product, cre.product)) continue;
        const bool exception =
            covers(cre.platform, earlier.platform) && covers(cre.product, earlier.product) &&
            !(covers(earlier.platform, cre.platform) && covers(earlier.product, cre.product));
        if (exception) continue;
        const bool never = covers(earlier.platform, cre.platform) && covers(earlier.product, cre.product);
        findings.push_back({never ? Severity::error : Severity::warning, entry.place + ", " + cre.id,
                            "it matches requests that " + earlier.id +
                                " before it matches too, and the first match is used" +
                                (never ? ": this one never is" : ""),
                            "give the two different platforms or products, the more specific one first"});
    }
}

void checkCpe(const ContentEntry& entry, const ContentCre& cre, const char* name, const std::string& cpe,
              const char* beginning, Findings& findings) {
    if (cpe.empty() || base::hasBeginning(cpe, beginning)) return;
    findings.push_back({Severity::error, entry.place + ", " + cre.id,
                        std::string(name) + " \"" + cpe + "\" does not begin with \"" + beginning +
                            "\", so it matches no request",
                        "write a CPE name of that kind, or leave it out to match any"});
}

void checkEri(const ContentEntry& entry, const ContentEri& eri, Findings& findings) {
    const std::string place = placeOf(entry, eri);
    if (eri.check && !eri.check->script.empty())
        append(findings, checkNameFindings(place, eri.check->script, eri.patchId));
    const auto add = [&](Severity severity, const std::string& what, const std::string& remedy) {
        findings.push_back({severity, place, what, remedy});
    };
    if (eri.check && (eri.check->script + eri.check->receipt + eri.check->bundle).empty()) {
        add(Severity::warning, "agents do not know this kind of check, so nothing is proven by it",
            "publish the entry again with a check that is a script, a receipt or a bundle");
    }
    if (eri.id.empty() || base::trimmed(eri.id) != eri.id || base::hasControlCharacter(eri.id)) {
        add(Severity::error,
            "its id is empty, begins or ends with white space, or contains control characters",
            "give the ERI a unique id: it is a line of the installed-patches record");
    }
    if (!eri.mskb.empty() && !remediation::isConfiguration(entry.identifier)) {
        add(Severity::warning, "it has a vendor knowledge-base number, so it is skipped on this platform",
            "leave mskb out of content for macOS");
    }
    if (eri.patchId.empty()) {
        if (isOsRemediation(eri) && !remediation::isConfiguration(entry.identifier)) return;
        add(Severity::error, "it names no patch, so the request always fails",
            "name a file, or for a system update begin its instructions with \"OS Remediation\" and give it "
            "a product that begins with cpe:/a:apple or cpe:/o:apple");
        return;
    }
    append(findings, patchNameFindings(place, eri.patchId, remediation::isConfiguration(entry.identifier)));
    const bool image = !remediation::isConfiguration(entry.identifier) &&
                       platform::isInstalledBy(platform::InstallMethod::mountImage, eri.patchId);
    if (image && usesBundleInstaller(eri) && eri.silent.empty()) {
        add(Severity::warning,
            "its instructions say \"using install option\" without silent: the shell refuses the command, so "
            "a bundle on the image is not installed and the request reads success",
            "name the bundle's installer in silent, or remove the words so that the bundle is copied");
    }
    if (eri.size.empty()) return;
    if (const std::string why = whySizeMisleads(eri.size); !why.empty()) {
        add(Severity::warning, "size \"" + eri.size + "\" " + why,
            "write whole or tenths of MB, or KB, or let publish compute it");
    }
}

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

/// Why a patch of this name can never be fetched, with the remedy; none when it can.
Finding unusableName(const std::string& place, const std::string& patchId) {
    const auto error = [&](const std::string& what, const std::string& remedy) {
        return Finding{Severity::error, place, "patch id " + quoted(patchId) + " " + what, remedy};
    };
    if (const base::Check usable = remediation::checkFileName(patchId); !usable) {
        return error("is refused by agents: " + usable.error().text, "use a plain file name");
    }
    const auto name = remediation::splitAtLastDot(patchId);
    if (!name) return error("has no \".\", so agents report the request as invalid", "give it an extension");
    if (name->stem.empty() || name->extension == ".") {
        return error("has no name before or no extension after its last \".\"",
                     "name it like editor-2.1.pkg");
    }
    const std::string extension = base::lowerCased(name->extension);
    if (extension == ".zip" || extension == ".sig") {
        return error("collides with its own archive or signature",
                     "give it another extension than .zip and .sig");
    }
    return {};
}

Findings installerFindings(const std::string& place, const std::string& patchId) {
    const platform::InstallerKind* const kind = platform::installerKindOf(patchId);
    const std::string extension = remediation::splitAtLastDot(patchId)->extension;
    if (kind == nullptr) {
        return {{Severity::error, place,
                 "no installer accepts patch " + quoted(patchId) + ", so it always fails",
                 "publish a " + platform::installableText()}};
    }
    if (extension == kind->marker) return {};
    const std::string marker = kind->marker;
    return {{Severity::warning, place,
             "patch " + quoted(patchId) + " is installed as " + marker +
                 ", because that occurs in its name; its extension is " + extension,
             "rename the patch so that " + marker + " does not occur in it"}};
}

Findings scriptNameFindings(const std::string& place, const std::string& patchId) {
    const std::string extension = base::lowerCased(remediation::splitAtLastDot(patchId)->extension);
    if (platform::installerKindNamed(extension.substr(1)) == nullptr) return {};
    return {{Severity::error, place,
             "patch " + quoted(patchId) + " is named as something to install, but bash runs what a CCE names",
             "name a script like lock-screen.bsh, or give the entry a CVE identifier"}};
}

}  // namespace

std::string placeOf(const ContentEntry& entry, const ContentEri& eri) {
    return entry.place + ", " + eri.id;
}

Findings entryFindings(const ContentEntry& entry) {
    Findings findings = identifierFindings(entry.place, entry.identifier);
    if (entry.cres.empty()) {
        findings.push_back({Severity::error, entry.place,
                            "it has no cre, so agents report it as content-failed", "add one"});
    }
    for (std::size_t at = 0; at < entry.cres.size(); ++at) {
        const ContentCre& cre = entry.cres[at];
        const std::string place = entry.place + ", " + cre.id;
        checkCpe(entry, cre, "platform", cre.platform, "cpe:/o", findings);
        checkCpe(entry, cre, "product", cre.product, "cpe:/", findings);
        checkCompetition(entry, at, findings);
        if (cre.eris.empty()) {
            findings.push_back(
                {Severity::error, place, "it has no eri, so nothing is ever installed", "add one"});
        }
        if (cre.eris.size() > 1) {
            findings.push_back(
                {Severity::warning, place,
                 "it has " + std::to_string(cre.eris.size()) +
                     " ERIs: once one is recorded as installed, the whole CRE counts as applied and "
                     "the others are never tried again",
                 "publish one ERI for each identifier, or one patch that does it all"});
        }
        for (const ContentEri& eri : cre.eris)
            checkEri(entry, eri, findings);
    }
    return findings;
}

Findings repetitionFindings(const std::vector<ContentEntry>& entries) {
    Findings findings;
    std::map<std::string, std::string> identifiers, eris;
    for (const ContentEntry& entry : entries) {
        const auto [same, fresh] = identifiers.emplace(entry.identifier, entry.place);
        if (!fresh && !entry.identifier.empty()) {
            findings.push_back(
                {Severity::error, entry.place,
                 "identifier " + entry.identifier + " is duplicated: " + same->second + " has it",
                 "put both into one entry with two cres"});
            continue;
        }
        for (const ContentCre& cre : entry.cres) {
            for (const ContentEri& eri : cre.eris) {
                const auto [other, first] = eris.emplace(eri.id, entry.place);
                if (first) continue;
                findings.push_back({Severity::error, placeOf(entry, eri),
                                    "its id is duplicated: " + other->second +
                                        " has it, so installing one makes the other count as installed",
                                    "give each ERI a unique id"});
            }
        }
    }
    return findings;
}

Findings patchNameFindings(const std::string& place, const std::string& patchId, bool script) {
    if (Finding unusable = unusableName(place, patchId); !unusable.what.empty()) return {std::move(unusable)};
    Findings findings;
    const auto warn = [&](const std::string& what, const std::string& remedy) {
        findings.push_back({Severity::warning, place, "patch id " + quoted(patchId) + " " + what, remedy});
    };
    constexpr std::size_t kBufferedExtension = 4;
    if (remediation::splitAtLastDot(patchId)->extension.size() != kBufferedExtension) {
        warn("has no three-letter extension, so it is never found in the buffer",
             "rename it, for example to " + remediation::splitAtLastDot(patchId)->stem +
                 (script ? ".bsh" : ".pkg"));
    }
    if (base::contains(patchId, "=")) {
        warn("contains \"=\", so it is never found in the buffer", "rename it without \"=\"");
    }
    if (base::trimmed(patchId) != patchId) {
        warn("begins or ends with white space, which buffering drops and fetching keeps",
             "rename it without white space around it");
    }
    for (Finding& finding : script ? scriptNameFindings(place, patchId) : installerFindings(place, patchId))
        findings.push_back(std::move(finding));
    return findings;
}

Findings checkNameFindings(const std::string& place, const std::string& script, const std::string& patchId) {
    if (Finding unusable = unusableName(place + ", check", script); !unusable.what.empty())
        return {std::move(unusable)};
    if (script != patchId) return {};
    return {{Severity::error, place,
             "its check is its patch " + quoted(script) + " itself, and would apply it",
             "write a script that only looks, and exits with 0 when the remediation holds"}};
}

Findings containmentFindings(const std::set<std::string>& patchIds) {
    Findings findings;
    for (const auto& [name, inner] : remediation::containedNames(patchIds)) {
        findings.push_back(
            {Severity::warning, "patch " + quoted(name),
             "its name contains that of patch " + quoted(inner) +
                 ": once that one is buffered or installed, this one's buffered copy is forgotten",
             "rename one of the two, for example with its version"});
    }
    return findings;
}

Findings identifierFindings(const std::string& place, const std::string& identifier) {
    const auto error = [&](const std::string& what, const std::string& remedy) -> Findings {
        return {{Severity::error, place, what, remedy}};
    };
    if (identifier.empty()) return error("there is no identifier", "add one, for example \"CVE-2014-4459\"");
    if (!agent::isContentIdentifier(identifier)) {
        return error("identifier " + quoted(identifier) + " cannot be a file name",
                     "use only letters, digits, \".\", \"_\" and \"-\", at most 128");
    }
    if (!base::hasBeginning(identifier, "CVE-") && !base::hasBeginning(identifier, "CCE-")) {
        return error("identifier " + quoted(identifier) + " begins with neither \"CVE-\" nor \"CCE-\"",
                     "use the identifier that requests name");
    }
    return {};
}

namespace {

/// Every ERI that has a file, with the file's SHA-256.
void forEachFile(
    const Manifest& manifest,
    const std::function<void(const ContentEntry&, const ContentEri&, const std::string& sha256)>& use) {
    std::map<std::string, std::string> files;
    for (const ManifestPatch& patch : manifest.patches)
        files[patch.patchId] = base::hexadecimal(patch.digests.sha256);
    for (const ContentEntry& entry : manifest.entries) {
        for (const ContentCre& cre : entry.cres) {
            for (const ContentEri& eri : cre.eris) {
                const auto file = files.find(eri.patchId);
                if (file != files.end() && !file->second.empty()) use(entry, eri, file->second);
            }
        }
    }
}

}  // namespace

Findings changedFileFindings(const Manifest& manifest, const PublishState& published) {
    Findings findings;
    forEachFile(manifest, [&](const ContentEntry& entry, const ContentEri& eri, const std::string& sha256) {
        const auto before = published.eris.find(eri.id);
        if (before == published.eris.end() || before->second == sha256) return;
        findings.push_back({Severity::warning, placeOf(entry, eri),
                            "same ERI id, other file: machines that have it keep the old one",
                            "give it a new id"});
    });
    return findings;
}

void noteFiles(const Manifest& manifest, PublishState& state) {
    forEachFile(manifest, [&](const ContentEntry&, const ContentEri& eri, const std::string& sha256) {
        state.eris[eri.id] = sha256;
    });
}

}  // namespace zelor::authoring

#include "authoring/checks/NameChecks.h"

#include "agent/content/ContentDocument.h"
#include "base/Strings.h"
#include "platform/macos/InstallerKinds.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

namespace {

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

/// Why a patch of this name can never be fetched, with the remedy; empty texts when it can.
Finding unusableName(const std::string& place, const std::string& patchId) {
    const auto error = [&](const std::string& what, const std::string& remedy) {
        return Finding{Severity::error, place, "patch id " + quoted(patchId) + " " + what, remedy};
    };
    if (const std::string why = remediation::whyUnsafeFileName(patchId); !why.empty()) {
        return error("is refused by agents: " + why, "use a plain file name");
    }
    const auto name = remediation::splitAtLastDot(patchId);
    if (!name) return error("has no \".\", so agents report the request as invalid", "give it an extension");
    if (name->stem.empty() || name->extension == ".") {
        return error("lacks a name before or an extension after its last \".\"",
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
    const std::string kind = remediation::installerKind(patchId);
    const std::string extension = remediation::splitAtLastDot(patchId)->extension;
    if (kind.empty()) {
        return {{Severity::error, place,
                 "no installer takes patch " + quoted(patchId) + ", so it always fails",
                 "publish a " + platform::installableText()}};
    }
    if (extension == "." + kind) return {};
    return {{Severity::warning, place,
             "patch " + quoted(patchId) + " is installed as ." + kind +
                 ", because that occurs in its name; its extension is " + extension,
             "rename the patch so that ." + kind + " does not occur in it"}};
}

Findings scriptNameFindings(const std::string& place, const std::string& patchId) {
    const std::string extension = base::lowerCased(remediation::splitAtLastDot(patchId)->extension);
    if (platform::installerKindNamed(extension.substr(1)) == nullptr) return {};
    return {{Severity::error, place,
             "patch " + quoted(patchId) + " is named as something to install, but bash runs what a CCE names",
             "name a script like lock-screen.bsh, or give the entry a CVE identifier"}};
}

}  // namespace

Findings patchNameFindings(const std::string& place, const std::string& patchId, bool script) {
    if (Finding unusable = unusableName(place, patchId); !unusable.what.empty()) return {std::move(unusable)};
    Findings findings;
    const auto warn = [&](const std::string& what, const std::string& remedy) {
        findings.push_back({Severity::warning, place, "patch id " + quoted(patchId) + " " + what, remedy});
    };
    constexpr std::size_t bufferedExtension = 4;
    if (remediation::splitAtLastDot(patchId)->extension.size() != bufferedExtension) {
        warn("has no three-letter extension, so it is never found in the buffer",
             "rename it, for example to " + remediation::splitAtLastDot(patchId)->stem +
                 (script ? ".bsh" : ".pkg"));
    }
    if (base::contains(patchId, "=")) {
        warn("holds \"=\", so it is never found in the buffer", "rename it without \"=\"");
    }
    if (base::trimmed(patchId) != patchId) {
        warn("begins or ends with white space, which buffering drops and fetching keeps",
             "rename it without");
    }
    for (Finding& finding : script ? scriptNameFindings(place, patchId) : installerFindings(place, patchId))
        findings.push_back(std::move(finding));
    return findings;
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
                     "use letters, digits, \".\", \"_\" and \"-\" alone, 128 at most");
    }
    if (!base::hasBeginning(identifier, "CVE-") && !base::hasBeginning(identifier, "CCE-")) {
        return error("identifier " + quoted(identifier) + " begins with neither \"CVE-\" nor \"CCE-\"",
                     "use the identifier that requests name");
    }
    return {};
}

}  // namespace zelor::authoring

#include "controller/verify/Verifier.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "agent/archive/ArchiveExtractor.h"
#include "agent/content/KeptChecks.h"
#include "agent/content/PatchDigests.h"
#include "agent/trust/Signature.h"
#include "base/Directories.h"
#include "base/PrintableText.h"
#include "base/Strings.h"
#include "base/SystemRoot.h"
#include "collaborators/CacheStore.h"
#include "collaborators/Common.h"
#include "collaborators/CreCacher.h"
#include "collaborators/RemediationResourceDownloader.h"
#include "controller/status/Status.h"
#include "platform/Log.h"
#include "platform/ShellCommand.h"
#include "platform/macos/InstallCommands.h"
#include "remediation/CallReport.h"
#include "remediation/RecordAccess.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/ContentRules.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::controller {

namespace {

using agent::ContentCheck;

constexpr std::chrono::minutes kCheckLimit{10};  ///< when the settings give none
constexpr char kCancelled[] = "it was not checked: the command was cancelled, or reached its time limit";
constexpr std::size_t kPropertyListLimit = 1U << 20U;

bool isOsUpdate(const creEriParsedData& entry) {
    return remediation::isOsRemediation(RecordAccess::blocks(entry));
}

std::chrono::seconds timeLimit() {
    const std::chrono::seconds limit = platform::commandLimit();
    return limit.count() > 0 ? limit : kCheckLimit;
}

base::CommandResult runTool(const std::string& command, const std::string& argument) {
    return base::runCommand({"/bin/sh", "-c", command + " \"$0\" 2>&1", argument}, true, timeLimit());
}

/// Of the archive and the file of a check script; whatever the settings say, a check needs both: without them
/// any script with the repository's signature would pass for it.
ScriptDigests digestsOf(const std::string& script) {
    const agent::WantedPatches& wanted = agent::WantedPatches::instance();
    try {
        return {wanted.archive(remediation::archiveName(script), true).value(),
                wanted.file(script, true).value()};
    } catch (const std::exception&) {
        throw std::runtime_error(
            "the contents that name it do not all give both of its digests, or give different ones; publish "
            "them again");
    }
}

Proof notHad(const std::string& script, const std::string& why) {
    return {Truth::unknown,
            "the check " + base::printable(script) + " cannot be had: " + base::printable(why)};
}

/// In XML; tools of the system write most lists in binary.
std::string readPropertyList(const std::string& path) {
    std::string text = base::readBounded(path, kPropertyListLimit, base::Links::follow);
    if (!base::hasBeginning(text, "bplist")) return text;
    return runTool("plutil -convert xml1 -o - --", path).output;
}

}  // namespace

void keepContentToVerify() {
    agent::KeptChecks::instance().keepAlso(&isOsUpdate);
}

Verifier::Verifier(const Paths& paths, SystemIdentity system, std::function<bool()> stop)
    : paths_(paths), system_(std::move(system)), stop_(std::move(stop)) {
    record_.refresh(installedRecordFile());
}

Verifier::Wanted Verifier::wantedBy(const std::string& key, const std::string& identifier) const {
    const std::string trimmed = base::trimmed(identifier);
    const remediation::RequestKey parsed =
        remediation::parseRequestKey(base::trimmed(key), remediation::isConfiguration(trimmed));
    const remediation::RequestTarget target =
        remediation::requestTarget(parsed.cpes, system_.platformCpe, CacheStore::GetSplCaseCPEs());
    return {trimmed, target.platformCpe, target.productCpe, parsed.packageName};
}

VerifiedRequest Verifier::verify(const std::string& key, const std::string& identifier,
                                 const std::string& invalid) {
    VerifiedRequest request{key, identifier, Compliance::unknown, {}, false, {}, {}};
    const std::string unusable =
        invalid.empty() ? remediation::whyUnusable(remediation::cpeCount(remediation::parseRequestKey(
                              base::trimmed(key), remediation::isConfiguration(base::trimmed(identifier)))))
                        : invalid;
    if (!unusable.empty()) {
        request.proof.reason = base::printable(unusable);
        return request;
    }
    if (stop_()) {
        request.proof.reason = kCancelled;
        return request;
    }
    const Wanted wanted = wantedBy(key, identifier);
    CallReport report({}, stop_);
    parseOnlyMetadata content = CreCacher::GetInstance(paths_.installPath, system_.platformCpe)
                                    ->getCre(wanted.platform, wanted.product, wanted.identifier);
    if (content.getParsingFailed()) {
        request.proof.reason = !report.reason().empty() ? base::printable(report.reason())
                               : stop_()                ? kCancelled
                                                        : "there is no content";
        return request;
    }
    const agent::CheckedEntry kept =
        agent::KeptChecks::instance().of({Common::StripTrailingSeparators(paths_.installPath),
                                          wanted.identifier, wanted.platform, wanted.product});
    prove(request, wanted, RecordAccess::creEriData(content), kept.checks);
    return request;
}

VerifiedRequest Verifier::verifyAfterRun(const std::string& key, const std::string& identifier) {
    VerifiedRequest request{key, identifier, Compliance::unknown, {}, false, {}, {}};
    const Wanted wanted = wantedBy(key, identifier);
    const agent::CheckedEntry kept =
        agent::KeptChecks::instance().of({Common::StripTrailingSeparators(paths_.installPath),
                                          wanted.identifier, wanted.platform, wanted.product});
    prove(request, wanted, kept.entry, kept.checks);
    return request;
}

void Verifier::prove(VerifiedRequest& request, const Wanted& wanted, const creEriParsedData& entry,
                     const std::vector<ContentCheck>& checks) {
    const bool configuration = remediation::isConfiguration(wanted.identifier);
    const bool update = !configuration && isOsUpdate(entry);
    request.checked = update || !checks.empty();
    for (const std::string& eri : RecordAccess::eriIds(entry)) {
        if (record_.hasLine(eri)) request.recorded.push_back(eri);
    }
    if (!request.checked) {
        request.proof.reason = "its content has no check";
        return;
    }
    if (update) {
        request.blocks.push_back({"softwareupdate", proofOfUpdates(wanted.packageName)});
    }
    const std::vector<parsedEriData>& blocks = RecordAccess::blocks(entry);
    auto check = checks.begin();  // in the order of the blocks, of which some have none
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const std::string& eri = RecordAccess::eriIds(entry)[i];
        const ContentCheck* own = check != checks.end() && check->eriId == eri ? &*check++ : nullptr;
        if (!configuration && !remediation::isForThisPlatform(blocks[i])) continue;
        if (own != nullptr) {
            request.blocks.push_back({eri, proofOf(*own)});
        } else if (!update) {
            request.blocks.push_back({eri, {Truth::unknown, "it has no check"}});
        }
    }
    request.proof = proofOfAll(request.blocks);
    request.compliance = complianceOf(request.proof.truth, !request.recorded.empty());
}

Proof Verifier::proofOfUpdates(const std::string& packageName) {
    if (stop_()) return {Truth::unknown, kCancelled};
    if (!listing_) listing_ = platform::runShell(platform::kListUpdatesCommand);
    return proofOfListing(packageName, system_.productVersion, *listing_);
}

Proof Verifier::proofOf(const ContentCheck& check) {
    if (stop_()) return {Truth::unknown, kCancelled};
    std::vector<std::string> name = {std::to_string(static_cast<int>(check.kind)), check.name, check.version};
    ScriptDigests digests;
    if (check.kind == ContentCheck::Kind::script) {
        // Another content may mean another script by this name.
        try {
            digests = digestsOf(check.name);
        } catch (const std::exception& e) {
            return notHad(check.name, e.what());
        }
        name.insert(name.end(), {digests.archive.sha256, digests.file.sha256});
    }
    const auto known = known_.find(name);
    if (known != known_.end()) return known->second;
    Proof proof{Truth::unknown, "this version does not know the kind of its check; install a newer one"};
    switch (check.kind) {
        case ContentCheck::Kind::script:
            proof = runScript(check.name, digests);
            break;
        case ContentCheck::Kind::receipt:
            proof = proofOfReceipt(check, runTool("pkgutil --pkg-info", check.name));
            break;
        case ContentCheck::Kind::bundle:
            proof = lookAtBundle(check);
            break;
        case ContentCheck::Kind::other:
            break;
    }
    log::info("[Verify] ", proof.reason);
    return known_[name] = proof;
}

Proof Verifier::runScript(const std::string& script, const ScriptDigests& digests) const {
    try {
        const base::TemporaryDirectory directory(paths_.installPath, "verify");
        fetchScript(script, digests, directory.path());
        const base::CommandResult result = base::runScript(directory.path() + '/' + script, timeLimit());
        return proofOfScript(script, result);
    } catch (const std::exception& e) {
        return notHad(script, e.what());
    }
}

/// Puts the verified script into the directory; throws std::runtime_error that says why it cannot be had.
void Verifier::fetchScript(const std::string& script, const ScriptDigests& digests,
                           const std::string& directory) const {
    if (const base::Check usable = remediation::checkFetchable(script); !usable)
        throw std::runtime_error("its name is refused: " + usable.error().text);
    const remediation::PatchName name = *remediation::splitAtLastDot(script);
    const std::string archive = remediation::archiveName(script);
    std::string path = directory + '/' + archive;
    CallReport report({}, stop_);
    if (RemediationResourceDownloader::GetInstance()->getResource(name.stem, path, name.extension,
                                                                  paths_.installPath, false, 0) != 0)
        throw std::runtime_error(report.reason().empty() ? "its archive was not downloaded"
                                                         : report.reason());
    agent::ArchiveExtractor().extract(path, directory, digests.archive);
    const agent::SignatureVerdict verdict = agent::verifyPath(
        directory + '/' + script, directory + '/' + remediation::signaturePath(script, name.extension),
        paths_.settings->values().trustedKey);
    if (!verdict.good) throw std::runtime_error(verdict.reason);
    agent::requireDigest(script, verdict.digest, digests.file);
}

Proof Verifier::lookAtBundle(const ContentCheck& check) const {
    const std::string bundle = underSystemRoot(check.name), list = bundle + "/Contents/Info.plist";
    struct stat info {};
    if (::stat(list.c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR))
        return {Truth::fails, "there is no bundle " + base::printable(check.name)};
    try {
        return proofOfBundle(check, readPropertyList(list));
    } catch (const std::exception& e) {
        return {Truth::unknown, base::printable(e.what())};
    }
}

}  // namespace zelor::controller

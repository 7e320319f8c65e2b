#include "collaborators/FileSignVerifier.h"

#include <utility>

#include "agent/AgentSettings.h"
#include "agent/content/PatchDigests.h"
#include "agent/log/FailureLine.h"
#include "agent/trust/Signature.h"

namespace {

zelor::agent::SignatureVerdict check(const std::string& path, const std::string& signatureFile) {
    try {
        const auto settings = zelor::agent::AgentSettings::current();
        const std::string& key = settings->values().trustedKey;
        if (key.empty()) {
            return {false, "no trusted key: set TrustedKey in section Repository of " + settings->iniFile()};
        }
        auto verdict = zelor::agent::verifyPath(path, signatureFile, key);
        if (!verdict.good) return verdict;
        const std::string name = path.substr(path.rfind('/') + 1);
        const bool required = settings->values().requireDigests;
        const auto wanted = zelor::agent::WantedPatches::instance().file(name, required);
        if (wanted) zelor::agent::requireDigest(name, verdict.digest, *wanted);
        return verdict;
    } catch (const std::exception& e) {
        return {false, e.what()};
    }
}

}  // namespace

FileSignVerifier::FileSignVerifier() = default;
FileSignVerifier::~FileSignVerifier() = default;

void FileSignVerifier::SetFileName(std::string path) {
    fileName_ = std::move(path);
}

void FileSignVerifier::SetSigFileName(std::string path) {
    sigFileName_ = std::move(path);
}

int FileSignVerifier::verify() {
    const zelor::agent::SignatureVerdict verdict = check(fileName_, sigFileName_);
    if (!verdict.good) {
        zelor::agent::logFailure("[FileSignVerifier] " + fileName_ + " is not accepted: " + verdict.reason);
    }
    return verdict.good ? 1 : 0;
}

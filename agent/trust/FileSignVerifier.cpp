#include "collaborators/FileSignVerifier.h"

#include <utility>

#include "agent/AgentSettings.h"
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
        return zelor::agent::verifyPath(path, signatureFile, key);
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

#pragma once

#include <string>
#include <string_view>

namespace zelor::agent {

/// The outcome of a signature check; `reason` names the cause when it is not good.
struct SignatureVerdict {
    bool good = false;
    std::string reason;
};

/// Checks `data` against a detached SHA-256 signature made with the private half of the PEM public key (or
/// certificate) in `keyFile`; RSA and EC keys.
SignatureVerdict verifyBytes(std::string_view data, std::string_view signature, const std::string& keyFile);

/// The same for a file (streamed, never held in memory) or a bundle directory (by its manifest), with the
/// signature in `signatureFile`.
SignatureVerdict verifyPath(const std::string& path, const std::string& signatureFile,
                            const std::string& keyFile);

}  // namespace zelor::agent

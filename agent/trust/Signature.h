#pragma once

#include <string>
#include <string_view>

#include "agent/trust/Sha256.h"

namespace zelor::agent {

/// The outcome of a signature check; `reason` names the cause when it is not good.
struct SignatureVerdict {
    bool good = false;
    std::string reason;
    FileDigest digest{};  ///< of what was signed (bytes, a file, a bundle's manifest), when good
};

/// Checks `data` against a detached SHA-256 signature made with the private half of the PEM public key (or
/// certificate) in `keyFile`; RSA and EC keys.
SignatureVerdict verifyBytes(std::string_view data, std::string_view signature, const std::string& keyFile);

/// The same for a file (streamed, never in memory as a whole) or a bundle directory (by its manifest), with
/// the signature in `signatureFile`.
SignatureVerdict verifyPath(const std::string& path, const std::string& signatureFile,
                            const std::string& keyFile);

}  // namespace zelor::agent

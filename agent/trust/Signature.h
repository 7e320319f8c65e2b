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

/// The same for a file (streamed, never held in memory) or a bundle directory (by its manifest, of either
/// version), with the signature in `signatureFile`. A file that begins as a manifest does is refused: its
/// signature is a bundle's.
SignatureVerdict verifyPath(const std::string& path, const std::string& signatureFile,
                            const std::string& keyFile);

}  // namespace zelor::agent

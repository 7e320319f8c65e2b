#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"
#include "trust/Json.h"

namespace zelor::trust {

/// The public key in `pem` as metadata has it. Fails when it is of a kind that signs no metadata.
base::Result<Json> publicKeyFromPem(const std::string& pem);

/// The private half of a key that signs metadata. Copies share it; const operations on any thread.
class PrivateKey {
  public:
    /// A new key for one of the three schemes. Fails on another.
    static base::Result<PrivateKey> make(const std::string& scheme);
    /// The key in `pem`, without a pass phrase: RSA of at least 2048 bits, EC on P-256, or Ed25519.
    static base::Result<PrivateKey> fromPem(const std::string& pem);

    /// The public key as metadata has it, and its id.
    const Json& publicKey() const { return public_; }
    const std::string& id() const { return id_; }
    /// The key as PKCS #8 text: a secret. Fails only when memory is short.
    base::Result<std::string> pem() const;
    /// Its public half as PEM text. Fails only when memory is short.
    base::Result<std::string> publicPem() const;
    /// The signature of `bytes`.
    base::Result<std::string> sign(std::string_view bytes) const;
    /// A metadata file: `content` with the signature of each key. Fails on a number that is not an
    /// integer.
    static base::Result<std::string> signedFile(const Json& content, const std::vector<PrivateKey>& keys);

  private:
    struct Handle;
    static base::Result<PrivateKey> of(std::shared_ptr<Handle> handle);

    std::shared_ptr<Handle> handle_;
    Json public_;
    std::string id_;
};

}  // namespace zelor::trust

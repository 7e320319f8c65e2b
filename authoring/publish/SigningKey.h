#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <string_view>

#include "base/Deleter.h"

namespace zelor::authoring {

/// The private key of a repository. Its signatures are what `openssl dgst -sha256 -sign` writes.
class SigningKey {
  public:
    enum class Type { ec, rsa };

    /// A fresh EC P-256 or RSA 3072 key.
    static SigningKey generate(Type type);
    /// Reads a PEM private key without pass phrase. Throws UsageError naming the file and the remedy.
    static SigningKey load(const std::string& keyFile);

    std::string privatePem() const;
    std::string publicPem() const;
    /// Hexadecimal SHA-256 of the public key; identifies the key.
    std::string fingerprint() const;

    /// Signs what has this SHA-256 (32 raw bytes).
    std::string sign(std::string_view sha256) const;
    /// Whether `signature` is this key's for what has this SHA-256.
    bool accepts(std::string_view sha256, std::string_view signature) const;

  private:
    explicit SigningKey(EVP_PKEY* key) : key_(key) {}

    std::unique_ptr<EVP_PKEY, base::Deleter<EVP_PKEY_free>> key_;
};

/// Writes `directory`/repository.key (mode 0600) and `directory`/repository.pem, neither of which may be
/// there yet. Throws UsageError when one is, std::runtime_error when it cannot be written.
void writeKeyPair(const SigningKey& key, const std::string& directory);

}  // namespace zelor::authoring

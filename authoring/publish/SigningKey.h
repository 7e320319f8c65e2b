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
    /// EC on the curve P-256, or RSA of 3072 bits.
    enum class Type { ec, rsa };

    /// A new random key.
    static SigningKey generate(Type type);
    /// Reads an unencrypted private key in PEM. Throws UsageError that names the file and the remedy.
    static SigningKey load(const std::string& keyFile);

    /// The key in PEM: the private key unencrypted, or only the public key.
    std::string privatePem() const;
    std::string publicPem() const;
    /// Hexadecimal SHA-256 of the public key; identifies the key.
    std::string fingerprint() const;

    /// Signs data by its SHA-256 (32 raw bytes).
    std::string sign(std::string_view sha256) const;
    /// Whether `signature` is this key's for data with this SHA-256.
    bool accepts(std::string_view sha256, std::string_view signature) const;

  private:
    explicit SigningKey(EVP_PKEY* key) : key_(key) {}

    std::unique_ptr<EVP_PKEY, base::Deleter<EVP_PKEY_free>> key_;
};

/// Throws UsageError when `directory` has a NAME.key or a NAME.pem.
void requireNoKeyPair(const std::string& directory, const std::string& name);

/// Writes `directory`/NAME.key (mode 0600) and `directory`/NAME.pem. Throws UsageError when one of them
/// exists, std::runtime_error when it cannot be written.
void writeKeyPair(const std::string& directory, const std::string& name, const std::string& privatePem,
                  const std::string& publicPem);

}  // namespace zelor::authoring

#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/Deleter.h"

namespace zelor::agent {

/// What identifies bytes: how many there are, and their digest.
struct FileDigest {
    std::string sha256;  ///< 64 lower-case hexadecimal digits
    std::uint64_t length = 0;

    /// True when digest and length are the same.
    bool operator==(const FileDigest& other) const {
        return sha256 == other.sha256 && length == other.length;
    }
    bool operator!=(const FileDigest& other) const { return !(*this == other); }
};

/// "N bytes with SHA-256 X", for messages.
std::string describe(const FileDigest& digest);

/// Computes the digest of bytes as they come. Every failure (OpenSSL has no memory) is a std::runtime_error.
class Sha256 {
  public:
    Sha256();

    /// Appends to what is hashed.
    void add(std::string_view bytes);
    /// How many bytes were added.
    std::uint64_t length() const { return length_; }
    /// The digest of all that was added. Afterwards the object begins anew.
    FileDigest finish();

  private:
    void begin();

    std::unique_ptr<EVP_MD_CTX, base::Deleter<EVP_MD_CTX_free>> context_;
    std::uint64_t length_ = 0;
};

}  // namespace zelor::agent

#include "trust/Digests.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include "base/PrintableText.h"
#include "base/Strings.h"

namespace zelor::trust {

std::optional<std::string> digestOf(const std::string& algorithm, std::string_view bytes) {
    const EVP_MD* method = algorithm == "sha256"   ? EVP_sha256()
                           : algorithm == "sha512" ? EVP_sha512()
                           : algorithm == "sha384" ? EVP_sha384()
                           : algorithm == "sha224" ? EVP_sha224()
                                                   : nullptr;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (method == nullptr || EVP_Digest(bytes.data(), bytes.size(), digest, &size, method, nullptr) != 1) {
        ERR_clear_error();
        return std::nullopt;
    }
    return base::hexadecimal({reinterpret_cast<const char*>(digest), size});
}

std::optional<std::string> bytesOfHex(const std::string& digits) {
    if (digits.empty() || digits.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    bytes.reserve(digits.size() / 2);
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const int high = base::hexValue(digits[i]);
        const int low = base::hexValue(digits[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes += static_cast<char>(high * 16 + low);
    }
    return bytes;
}

bool isHex(const std::string& digits) {
    return bytesOfHex(digits).has_value();
}

base::Check checkBytes(std::string_view bytes, const std::optional<std::uint64_t>& length,
                       const Digests& digests) {
    if (length && bytes.size() != *length) {
        return base::failure("it has " + std::to_string(bytes.size()) + " bytes, and " +
                             std::to_string(*length) + " are listed");
    }
    for (const auto& [algorithm, expected] : digests) {
        const auto digest = digestOf(algorithm, bytes);
        if (!digest)
            return base::failure("its listed digest is of an unknown kind, " + base::printable(algorithm));
        if (*digest != expected)
            return base::failure("its " + algorithm + " digest is " + *digest + ", and another is listed");
    }
    return {};
}

}  // namespace zelor::trust

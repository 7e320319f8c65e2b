#include "trust/Keys.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "base/Deleter.h"
#include "base/PrintableText.h"
#include "trust/Digests.h"

namespace zelor::trust {

namespace {

constexpr std::size_t kKeysLimit = 1024;
constexpr std::size_t kKeyTextLimit = 16U << 10U;
constexpr int kLeastRsaBits = 2048;
constexpr int kMostRsaBits = 16384;
/// What comes before the 65 bytes of a point on P-256 and the 32 bytes of an Ed25519 key in their DER form.
constexpr const char* kPointPrefix = "3059301306072a8648ce3d020106082a8648ce3d030107034200";
constexpr const char* kEd25519Prefix = "302a300506032b6570032100";

using Bio = std::unique_ptr<BIO, base::Deleter<BIO_free>>;
using PublicKey = std::unique_ptr<EVP_PKEY, base::Deleter<EVP_PKEY_free>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, base::Deleter<EVP_MD_CTX_free>>;

const unsigned char* unsignedBytes(std::string_view bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

PublicKey decodePem(const std::string& pem) {
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return PublicKey(bio ? PEM_read_bio_PUBKEY(bio.get(), nullptr, noPassPhrase, nullptr) : nullptr);
}

PublicKey decodeHex(const std::string& hex, const char* prefix, std::size_t digits) {
    const auto der = hex.size() == digits ? bytesOfHex(prefix + hex) : std::nullopt;
    if (!der) return nullptr;
    const unsigned char* at = unsignedBytes(*der);
    return PublicKey(d2i_PUBKEY(nullptr, &at, static_cast<long>(der->size())));
}

bool isOnP256(const EVP_PKEY* key) {
    char group[64] = {};
    std::size_t size = 0;
    return EVP_PKEY_get_group_name(key, group, sizeof group, &size) == 1 &&
           std::string_view(group, size) == "prime256v1";
}

/// The key, if it is of the kind that its scheme needs.
PublicKey decode(const Key& key) {
    if (key.value.size() > kKeyTextLimit) return nullptr;
    const bool ecdsa = key.scheme == "ecdsa-sha2-nistp256";
    const bool pem = key.value.find("-----BEGIN") != std::string::npos;
    PublicKey decoded = pem     ? decodePem(key.value)
                        : ecdsa ? decodeHex(key.value, kPointPrefix, 130)
                                : decodeHex(key.value, kEd25519Prefix, 64);
    if (!decoded) return nullptr;
    const int bits = EVP_PKEY_get_bits(decoded.get());
    bool fits = false;
    if (ecdsa && (key.type == "ecdsa" || key.type == key.scheme))
        fits = EVP_PKEY_get_base_id(decoded.get()) == EVP_PKEY_EC && isOnP256(decoded.get());
    else if (key.scheme == "rsassa-pss-sha256" && key.type == "rsa")
        fits = EVP_PKEY_get_base_id(decoded.get()) == EVP_PKEY_RSA && bits >= kLeastRsaBits &&
               bits <= kMostRsaBits;
    else if (key.scheme == "ed25519" && key.type == "ed25519")
        fits = EVP_PKEY_get_base_id(decoded.get()) == EVP_PKEY_ED25519;
    return fits ? std::move(decoded) : nullptr;
}

/// The DER form of a key on a curve keeps how its point is written, so of that the point counts.
std::string identityOfDecoded(EVP_PKEY* key) {
    unsigned char* encoded = nullptr;
    std::size_t size = 0;
    if (EVP_PKEY_get_base_id(key) == EVP_PKEY_EC) {
        size = EVP_PKEY_get1_encoded_public_key(key, &encoded);
    } else {
        size = static_cast<std::size_t>(std::max(i2d_PUBKEY(key, &encoded), 0));
    }
    if (size == 0) return {};
    std::string bytes(reinterpret_cast<char*>(encoded), size);
    OPENSSL_free(encoded);
    return bytes;
}

bool judge(EVP_PKEY* key, std::string_view bytes, std::string_view signature) {
    const int type = EVP_PKEY_get_base_id(key);
    const EVP_MD* digest = type == EVP_PKEY_ED25519 ? nullptr : EVP_sha256();
    const DigestContext context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* parameters = nullptr;  // belongs to the context
    if (!context || EVP_DigestVerifyInit(context.get(), &parameters, digest, nullptr, key) != 1) return false;
    if (type == EVP_PKEY_RSA && (EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) != 1 ||
                                 EVP_PKEY_CTX_set_rsa_mgf1_md(parameters, EVP_sha256()) != 1 ||
                                 EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, RSA_PSS_SALTLEN_AUTO) != 1))
        return false;
    return EVP_DigestVerify(context.get(), unsignedBytes(signature), signature.size(), unsignedBytes(bytes),
                            bytes.size()) == 1;
}

bool hasDigest(const Json& key, const std::string& id) {
    const auto text = canonicalJson(key);
    return text && digestOf("sha256", *text) == id;
}

bool idIsRight(const Json& key, const std::string& id) {
    if (hasDigest(key, id) || (!id.empty() && keyId(key) == id)) return true;
    if (!key.at("keyval").contains("public")) return false;
    // Before "ecdsa" was a type, the scheme was the type, and the digests that may make an id were listed.
    Json old = {{"keytype", key.at("scheme")},
                {"scheme", key.at("scheme")},
                {"keyval", {{"public", key.at("keyval").at("public")}}},
                {"keyid_hash_algorithms", {"sha256", "sha512"}}};
    if (key.at("keytype") != "ecdsa" && key.at("keytype") != key.at("scheme")) return false;
    return hasDigest(old, id);
}

}  // namespace

int noPassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) {
    return -1;
}

std::string keyId(const Json& key) {
    JsonReader reader;
    const std::string type = reader.text(key, "keytype"), scheme = reader.text(key, "scheme"),
                      value = reader.text(reader.object(key, "keyval"), "public");
    const auto text = canonicalJson({{"keytype", type}, {"scheme", scheme}, {"keyval", {{"public", value}}}});
    return reader.fault.empty() && text ? digestOf("sha256", *text).value_or("") : "";
}

Keys readKeys(JsonReader& reader, const Json& keys) {
    Keys found;
    if (keys.size() > kKeysLimit) reader.fail("it has more than " + std::to_string(kKeysLimit) + " keys");
    for (const auto& [id, key] : keys.items()) {
        if (!reader.fault.empty()) return {};
        Key one{reader.text(key, "keytype"), reader.text(key, "scheme"), ""};
        const Json& value = reader.object(key, "keyval");
        // A kind that is not known may have another form.
        if (value.contains("public")) one.value = reader.text(value, "public");
        if (reader.fault.empty() && !idIsRight(key, id))
            reader.fail("the key id " + base::printable(id) + " is not the digest of its key");
        found.emplace(id, std::move(one));
    }
    return found;
}

bool isUsable(const Key& key) {
    const bool usable = decode(key) != nullptr;
    ERR_clear_error();
    return usable;
}

std::string identityOf(const Key& key) {
    const PublicKey decoded = decode(key);
    std::string identity = decoded ? identityOfDecoded(decoded.get()) : "";
    ERR_clear_error();
    return identity;
}

bool verifies(const Key& key, std::string_view bytes, std::string_view signature, std::string* identity) {
    const PublicKey decoded = decode(key);
    const bool good = decoded && !signature.empty() && judge(decoded.get(), bytes, signature);
    if (good && identity != nullptr) *identity = identityOfDecoded(decoded.get());
    ERR_clear_error();
    return good;
}

base::Check checkSignatures(std::string_view bytes, const std::vector<Signature>& signatures,
                            const RoleKeys& role, const Keys& keys) {
    std::set<std::string> signers;
    for (const Signature& signature : signatures) {
        const auto key = keys.find(signature.keyId);
        if (role.ids.count(signature.keyId) == 0 || key == keys.end()) continue;
        std::string identity;
        if (verifies(key->second, bytes, signature.bytes, &identity)) signers.insert(identity);
        if (static_cast<std::int64_t>(signers.size()) >= role.threshold) return {};
    }
    return base::failure("it has " + std::to_string(signers.size()) + " of " +
                         std::to_string(role.threshold) + " good signatures by distinct keys of the role");
}

}  // namespace zelor::trust

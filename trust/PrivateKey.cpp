#include "trust/PrivateKey.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include "base/Deleter.h"
#include "base/Strings.h"
#include "trust/Keys.h"

namespace zelor::trust {

namespace {

constexpr std::size_t kRsaBits = 3072;
constexpr const char* kNoKind = "the key is neither EC on P-256, nor Ed25519, nor RSA of 2048 to 16384 bits";

using Bio = std::unique_ptr<BIO, base::Deleter<BIO_free>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, base::Deleter<EVP_MD_CTX_free>>;

std::string contentOf(BIO* bio) {
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio, &text);
    return size > 0 ? std::string(text, static_cast<std::size_t>(size)) : std::string();
}

/// Type and scheme of a key.
std::pair<std::string, std::string> kindOf(const EVP_PKEY* key) {
    switch (EVP_PKEY_get_base_id(key)) {
        case EVP_PKEY_RSA:
            return {"rsa", "rsassa-pss-sha256"};
        case EVP_PKEY_EC:
            return {"ecdsa", "ecdsa-sha2-nistp256"};
        case EVP_PKEY_ED25519:
            return {"ed25519", "ed25519"};
        default:
            return {};
    }
}

std::string publicValue(const EVP_PKEY* key) {
    unsigned char raw[32];
    std::size_t size = sizeof raw;
    if (EVP_PKEY_get_base_id(key) == EVP_PKEY_ED25519)
        return EVP_PKEY_get_raw_public_key(key, raw, &size) == 1
                   ? base::hexadecimal({reinterpret_cast<const char*>(raw), size})
                   : "";
    const Bio bio(BIO_new(BIO_s_mem()));
    return bio && PEM_write_bio_PUBKEY(bio.get(), key) == 1 ? contentOf(bio.get()) : "";
}

}  // namespace

base::Result<Json> publicKeyFromPem(const std::string& pem) {
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    const std::unique_ptr<EVP_PKEY, base::Deleter<EVP_PKEY_free>> key(
        bio ? PEM_read_bio_PUBKEY(bio.get(), nullptr, noPassPhrase, nullptr) : nullptr);
    ERR_clear_error();
    if (!key) return base::failure("there is no public key in PEM form");
    const auto [type, scheme] = kindOf(key.get());
    const std::string value = publicValue(key.get());
    if (!isUsable({type, scheme, value})) return base::failure(kNoKind);
    return Json{{"keytype", type}, {"scheme", scheme}, {"keyval", {{"public", value}}}};
}

struct PrivateKey::Handle {
    std::unique_ptr<EVP_PKEY, base::Deleter<EVP_PKEY_free>> key;
};

base::Result<PrivateKey> PrivateKey::of(std::shared_ptr<Handle> handle) {
    PrivateKey made;
    made.handle_ = std::move(handle);
    const auto [type, scheme] = kindOf(made.handle_->key.get());
    const std::string value = publicValue(made.handle_->key.get());
    made.public_ = {{"keytype", type}, {"scheme", scheme}, {"keyval", {{"public", value}}}};
    made.id_ = keyId(made.public_);
    // What clients would not accept, such as a short RSA key, is refused here too.
    const auto probe = made.sign("probe");
    if (!probe || !verifies({type, scheme, value}, "probe", *probe)) {
        ERR_clear_error();
        return base::failure(kNoKind);
    }
    return made;
}

base::Result<PrivateKey> PrivateKey::make(const std::string& scheme) {
    auto handle = std::make_shared<Handle>();
    if (scheme == "ecdsa-sha2-nistp256")
        handle->key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    else if (scheme == "rsassa-pss-sha256")
        handle->key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", kRsaBits));
    else if (scheme == "ed25519")
        handle->key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    ERR_clear_error();
    if (!handle->key)
        return base::failure("no key is made for " + scheme +
                             ": use ecdsa-sha2-nistp256, rsassa-pss-sha256 or ed25519");
    return of(std::move(handle));
}

base::Result<PrivateKey> PrivateKey::fromPem(const std::string& pem) {
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    auto handle = std::make_shared<Handle>();
    if (bio) handle->key.reset(PEM_read_bio_PrivateKey(bio.get(), nullptr, noPassPhrase, nullptr));
    ERR_clear_error();
    if (!handle->key) return base::failure("there is no private key in PEM form without a pass phrase");
    return of(std::move(handle));
}

base::Result<std::string> PrivateKey::pem() const {
    const Bio bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_PKCS8PrivateKey(bio.get(), handle_->key.get(), nullptr, nullptr, 0, nullptr,
                                              nullptr) != 1) {
        ERR_clear_error();
        return base::failure("the private key cannot be written as text");
    }
    return contentOf(bio.get());
}

base::Result<std::string> PrivateKey::publicPem() const {
    const Bio bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_PUBKEY(bio.get(), handle_->key.get()) != 1) {
        ERR_clear_error();
        return base::failure("the public key cannot be written as text");
    }
    return contentOf(bio.get());
}

base::Result<std::string> PrivateKey::sign(std::string_view bytes) const {
    EVP_PKEY* key = handle_->key.get();
    const int type = EVP_PKEY_get_base_id(key);
    const DigestContext context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* parameters = nullptr;  // belongs to the context
    bool good =
        context && EVP_DigestSignInit(context.get(), &parameters,
                                      type == EVP_PKEY_ED25519 ? nullptr : EVP_sha256(), nullptr, key) == 1;
    if (good && type == EVP_PKEY_RSA)
        good = EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) == 1 &&
               EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, RSA_PSS_SALTLEN_DIGEST) == 1;
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    std::size_t size = 0;
    good = good && EVP_DigestSign(context.get(), nullptr, &size, data, bytes.size()) == 1;
    std::string signature(size, '\0');
    good = good && EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                                  data, bytes.size()) == 1;
    ERR_clear_error();
    if (!good) return base::failure("the private key does not sign");
    signature.resize(size);
    return signature;
}

base::Result<std::string> PrivateKey::signedFile(const Json& content, const std::vector<PrivateKey>& keys) {
    const auto bytes = canonicalJson(content);
    if (!bytes) return tl::unexpected<base::Failure>(bytes.error());
    Json file = {{"signed", content}, {"signatures", Json::array()}};
    for (const PrivateKey& key : keys) {
        const auto signature = key.sign(*bytes);
        if (!signature) return tl::unexpected<base::Failure>(signature.error());
        file["signatures"].push_back({{"keyid", key.id()}, {"sig", base::hexadecimal(*signature)}});
    }
    return file.dump() + "\n";
}

}  // namespace zelor::trust

#pragma once

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zelor::test {

/// A key pair made for one test.
class SigningKey {
  public:
    static SigningKey rsa(int bits = 2048) {
        return make(EVP_PKEY_RSA, [&](EVP_PKEY_CTX* c) { return EVP_PKEY_CTX_set_rsa_keygen_bits(c, bits); });
    }
    static SigningKey ec(int curve = NID_X9_62_prime256v1) {
        return make(EVP_PKEY_EC,
                    [&](EVP_PKEY_CTX* c) { return EVP_PKEY_CTX_set_ec_paramgen_curve_nid(c, curve); });
    }
    static SigningKey ed25519() {
        return make(EVP_PKEY_ED25519, [](EVP_PKEY_CTX*) { return 1; });
    }

    EVP_PKEY* get() const { return key_.get(); }

    std::string publicPem() const {
        return pem([&](BIO* bio) { return PEM_write_bio_PUBKEY(bio, key_.get()); });
    }
    std::string privatePem() const {
        return pem([&](BIO* bio) {
            return PEM_write_bio_PKCS8PrivateKey(bio, key_.get(), nullptr, nullptr, 0, nullptr, nullptr);
        });
    }

    /// The detached SHA-256 signature of `data`.
    std::string sign(std::string_view data) const {
        const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
        require(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key_.get()) == 1);
        const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
        std::size_t size = 0;
        require(EVP_DigestSign(context.get(), nullptr, &size, bytes, data.size()) == 1);
        std::string signature(size, '\0');
        auto* out = reinterpret_cast<unsigned char*>(signature.data());
        require(EVP_DigestSign(context.get(), out, &size, bytes, data.size()) == 1);
        signature.resize(size);
        return signature;
    }

  private:
    explicit SigningKey(EVP_PKEY* key) : key_(key, EVP_PKEY_free) {}

    static void require(bool good) {
        if (!good) throw std::runtime_error("OpenSSL failed in a test helper");
    }

    template <class Prepare>
    static SigningKey make(int type, const Prepare& prepare) {
        const std::unique_ptr<EVP_PKEY_CTX, void (*)(EVP_PKEY_CTX*)> context(
            EVP_PKEY_CTX_new_id(type, nullptr), EVP_PKEY_CTX_free);
        require(context && EVP_PKEY_keygen_init(context.get()) == 1 && prepare(context.get()) == 1);
        EVP_PKEY* key = nullptr;
        require(EVP_PKEY_keygen(context.get(), &key) == 1);
        return SigningKey(key);
    }

    template <class Write>
    static std::string pem(const Write& write) {
        const std::unique_ptr<BIO, int (*)(BIO*)> bio(BIO_new(BIO_s_mem()), BIO_free);
        require(bio && write(bio.get()) == 1);
        char* text = nullptr;
        const long size = BIO_get_mem_data(bio.get(), &text);
        return {text, static_cast<std::size_t>(size)};
    }

    std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key_;
};

}  // namespace zelor::test

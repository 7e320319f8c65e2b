#include "authoring/publish/SigningKey.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "authoring/UsageError.h"
#include "authoring/publish/Digests.h"
#include "base/Deleter.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kKeyBytesLimit = 64U << 10U;
constexpr int kNewRsaBits = 3072;
// Agents refuse weaker keys.
constexpr int kLeastRsaBits = 2048;
constexpr int kLeastEcBits = 224;

using Bio = std::unique_ptr<BIO, base::Deleter<BIO_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, base::Deleter<EVP_PKEY_CTX_free>>;

void require(bool good, const char* task) {
    if (good) return;
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
    throw std::runtime_error(std::string("OpenSSL cannot ") + task +
                             (reason ? std::string(": ") + reason : ""));
}

/// Without it OpenSSL would ask for a pass phrase on the terminal.
int noPassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) {
    return -1;
}

std::string contentOf(BIO* bio) {
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio, &text);
    return {text, static_cast<std::size_t>(size)};
}

KeyContext signatureContext(EVP_PKEY* key, int (*start)(EVP_PKEY_CTX*)) {
    KeyContext context(EVP_PKEY_CTX_new(key, nullptr));
    require(context && start(context.get()) == 1 &&
                EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) == 1,
            "use the key with SHA-256");
    return context;
}

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

void requireUsable(const EVP_PKEY* key, const std::string& keyFile) {
    const int type = EVP_PKEY_base_id(key);
    const bool rsa = type == EVP_PKEY_RSA;
    if ((!rsa && type != EVP_PKEY_EC) || EVP_PKEY_bits(key) < (rsa ? kLeastRsaBits : kLeastEcBits)) {
        throw UsageError("agents refuse signatures of the key in " + keyFile +
                         ": it must be EC of 224 bits or more, or RSA of 2048 bits or more; make one with "
                         "zelor-content keygen");
    }
}

/// Creates the file; an existing one is never touched, whatever it is.
void createFile(const std::string& path, const std::string& text, mode_t mode) {
    base::UniqueFd file = base::openFile(path, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (!file.valid()) throw std::runtime_error("cannot create " + path + ": " + base::errorText(errno));
    if (base::writeAll(file.get(), text) && base::flushToDisk(file.get()) && file.close()) return;
    const int error = errno;
    ::unlink(path.c_str());
    throw std::runtime_error("cannot write " + path + ": " + base::errorText(error));
}

}  // namespace

SigningKey SigningKey::generate(Type type) {
    const KeyContext context(EVP_PKEY_CTX_new_id(type == Type::ec ? EVP_PKEY_EC : EVP_PKEY_RSA, nullptr));
    require(context && EVP_PKEY_keygen_init(context.get()) == 1, "prepare a key");
    require((type == Type::ec ? EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1)
                              : EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), kNewRsaBits)) == 1,
            "prepare a key");
    EVP_PKEY* key = nullptr;
    require(EVP_PKEY_keygen(context.get(), &key) == 1, "make a key");
    return SigningKey(key);
}

SigningKey SigningKey::load(const std::string& keyFile) {
    std::string pem;
    try {
        pem = base::readBounded(keyFile, kKeyBytesLimit, base::Links::follow);
    } catch (const std::exception& e) {
        throw UsageError(std::string(e.what()) + "; name the private key that zelor-content keygen wrote");
    }
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    require(bio != nullptr, "read a key");
    SigningKey key(PEM_read_bio_PrivateKey(bio.get(), nullptr, noPassPhrase, nullptr));
    ERR_clear_error();
    if (!key.key_) {
        throw UsageError(keyFile +
                         " contains no PEM private key without a pass phrase; use repository.key of "
                         "zelor-content keygen, or remove the pass phrase with openssl pkey");
    }
    requireUsable(key.key_.get(), keyFile);
    return key;
}

std::string SigningKey::privatePem() const {
    const Bio bio(BIO_new(BIO_s_mem()));
    require(bio && PEM_write_bio_PKCS8PrivateKey(bio.get(), key_.get(), nullptr, nullptr, 0, nullptr,
                                                 nullptr) == 1,
            "write the private key");
    return contentOf(bio.get());
}

std::string SigningKey::publicPem() const {
    const Bio bio(BIO_new(BIO_s_mem()));
    require(bio && PEM_write_bio_PUBKEY(bio.get(), key_.get()) == 1, "write the public key");
    return contentOf(bio.get());
}

std::string SigningKey::fingerprint() const {
    const Bio bio(BIO_new(BIO_s_mem()));
    require(bio && i2d_PUBKEY_bio(bio.get(), key_.get()) == 1, "write the public key");
    return base::hexadecimal(digestsOfText(contentOf(bio.get())).sha256);
}

std::string SigningKey::sign(std::string_view sha256) const {
    const KeyContext context = signatureContext(key_.get(), EVP_PKEY_sign_init);
    std::size_t size = 0;
    require(EVP_PKEY_sign(context.get(), nullptr, &size, bytesOf(sha256), sha256.size()) == 1, "sign");
    std::string signature(size, '\0');
    auto* out = reinterpret_cast<unsigned char*>(signature.data());
    require(EVP_PKEY_sign(context.get(), out, &size, bytesOf(sha256), sha256.size()) == 1, "sign");
    signature.resize(size);
    return signature;
}

bool SigningKey::accepts(std::string_view sha256, std::string_view signature) const {
    const KeyContext context = signatureContext(key_.get(), EVP_PKEY_verify_init);
    const bool good = EVP_PKEY_verify(context.get(), bytesOf(signature), signature.size(), bytesOf(sha256),
                                      sha256.size()) == 1;
    ERR_clear_error();
    return good;
}

void requireNoKeyPair(const std::string& directory, const std::string& name) {
    for (const char* extension : {".key", ".pem"}) {
        const std::string path = directory + '/' + name + extension;
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0) continue;
        throw UsageError(path +
                         " exists, and keys are never overwritten; choose another --out, or move the old "
                         "pair away when no agent trusts it any more");
    }
}

void writeKeyPair(const std::string& directory, const std::string& name, const std::string& privatePem,
                  const std::string& publicPem) {
    requireNoKeyPair(directory, name);
    if (!base::makeDirectories(directory))
        throw UsageError("cannot make " + directory + ": " + base::errorText(errno));
    createFile(directory + '/' + name + ".pem", publicPem, 0644);
    createFile(directory + '/' + name + ".key", privatePem, 0600);
}

}  // namespace zelor::authoring

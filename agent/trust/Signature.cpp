#include "agent/trust/Signature.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <stdexcept>

#include "agent/trust/BundleManifest.h"
#include "base/Deleter.h"
#include "base/Files.h"
#include "base/Mutex.h"
#include "base/Strings.h"

namespace zelor::agent {

namespace {

constexpr std::size_t kKeyBytesLimit = 64U << 10U;
constexpr std::size_t kSignatureBytesLimit = 16U << 10U;
constexpr int kLeastRsaBits = 2048;
constexpr int kLeastEcBits = 224;

using Bio = std::unique_ptr<BIO, base::Deleter<BIO_free>>;
using Key = std::shared_ptr<EVP_PKEY>;
using Certificate = std::unique_ptr<X509, base::Deleter<X509_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, base::Deleter<EVP_PKEY_CTX_free>>;

/// Refuses to give a pass phrase; without this callback, OpenSSL would ask for it on the terminal.
int noPassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) {
    return -1;
}

Bio bioOver(const std::string& text) {
    Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (!bio) throw std::runtime_error("out of memory");
    return bio;
}

Key decodeKey(const std::string& pem) {
    const base::Deleter<EVP_PKEY_free> release;
    Key key(PEM_read_bio_PUBKEY(bioOver(pem).get(), nullptr, noPassPhrase, nullptr), release);
    if (!key) {
        const Certificate certificate(PEM_read_bio_X509(bioOver(pem).get(), nullptr, noPassPhrase, nullptr));
        if (certificate) key.reset(X509_get_pubkey(certificate.get()), release);
    }
    ERR_clear_error();
    return key;
}

/// The key that was used last: decoding a key takes OpenSSL several times as long as checking a signature.
class LastKey {
  public:
    static LastKey& instance() {
        // Never destroyed: a run's thread may outlive main().
        static LastKey& last = *new LastKey;
        return last;
    }

    Key get(const std::string& pem) {
        const base::MutexLock lock(mutex_);
        if (!key_ || pem != pem_) {
            key_ = decodeKey(pem);
            pem_ = pem;
        }
        return key_;
    }

  private:
    base::Mutex mutex_;
    std::string pem_ ZELOR_GUARDED_BY(mutex_);
    Key key_ ZELOR_GUARDED_BY(mutex_);
};

Key readKey(const std::string& keyFile) {
    struct stat status {};
    if (::lstat(keyFile.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        (status.st_mode & S_IWOTH) != 0) {
        throw std::runtime_error(
            "everybody can write to the key file " + keyFile +
            ", so nothing is trusted; make sure of it and take that right away (chmod o-w)");
    }
    // The file is read each time, so that a replaced key is used at once.
    Key key = LastKey::instance().get(base::readBounded(keyFile, kKeyBytesLimit));
    if (!key) throw std::runtime_error(keyFile + " holds neither a PEM public key nor a PEM certificate");
    return key;
}

void requireStrength(const EVP_PKEY* key, const std::string& keyFile) {
    const int type = EVP_PKEY_base_id(key);
    if (type != EVP_PKEY_RSA && type != EVP_PKEY_EC) {
        throw std::runtime_error("the key in " + keyFile + " is neither RSA nor EC");
    }
    const int bits = EVP_PKEY_bits(key);
    const int least = type == EVP_PKEY_RSA ? kLeastRsaBits : kLeastEcBits;
    if (bits < least) {
        throw std::runtime_error("the key in " + keyFile + " has " + std::to_string(bits) +
                                 " bits, fewer than " + std::to_string(least));
    }
}

/// The 32 bytes of a digest.
std::string bytesOf(const FileDigest& digest) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digest.sha256.size(); i += 2)
        bytes +=
            static_cast<char>(base::hexValue(digest.sha256[i]) << 4 | base::hexValue(digest.sha256[i + 1]));
    return bytes;
}

/// One text that may have been signed: bytes are added, then the signature is judged.
class Check {
  public:
    explicit Check(const std::string& keyFile) : key_(readKey(keyFile)) {
        requireStrength(key_.get(), keyFile);
        context_.reset(EVP_PKEY_CTX_new(key_.get(), nullptr));
        if (!context_ || EVP_PKEY_verify_init(context_.get()) != 1 ||
            EVP_PKEY_CTX_set_signature_md(context_.get(), EVP_sha256()) != 1) {
            ERR_clear_error();
            throw std::runtime_error("the key in " + keyFile + " cannot check SHA-256 signatures");
        }
    }

    void add(std::string_view bytes) { sha256_.add(bytes); }

    /// Whether it was signed; `digest` becomes the text's then.
    bool accepts(std::string_view signature, FileDigest& digest) {
        const FileDigest actual = sha256_.finish();
        const std::string bytes = bytesOf(actual);
        const int result = EVP_PKEY_verify(
            context_.get(), reinterpret_cast<const unsigned char*>(signature.data()), signature.size(),
            reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
        ERR_clear_error();
        if (result != 1) return false;
        digest = actual;
        return true;
    }

  private:
    Key key_;
    KeyContext context_;
    Sha256 sha256_;
};

bool acceptsFile(const std::string& path, std::string_view signature, const std::string& keyFile,
                 FileDigest& digest) {
    Check file(keyFile);
    bool first = true;
    base::readInPieces(base::openRegularFile(path), path, [&](std::string_view piece) {
        if (first && beginsAsManifest(piece))
            throw std::runtime_error("it is the manifest of a bundle, which is signed for that bundle only");
        first = false;
        file.add(piece);
    });
    return file.accepts(signature, digest);
}

bool acceptsBundle(const std::string& path, std::string_view signature, const std::string& keyFile,
                   FileDigest& digest) {
    Check current(keyFile);
    Check earlier(keyFile);
    current.add(kManifestFirstLine);
    earlier.add(kEarlierManifestFirstLine);
    forEachManifestLine(path, [&](const std::string& line) {
        current.add(line);
        earlier.add(line);
    });
    return current.accepts(signature, digest) || earlier.accepts(signature, digest);
}

SignatureVerdict judge(std::string_view signature, const std::string& keyFile,
                       const std::function<bool(FileDigest&)>& accepts) {
    if (signature.empty()) return {false, "the signature is empty"};
    if (signature.size() > kSignatureBytesLimit) return {false, "the signature is larger than any real one"};
    try {
        SignatureVerdict verdict{true, ""};
        if (accepts(verdict.digest)) return verdict;
        return {false, "the signature does not match the content and the key in " + keyFile};
    } catch (const std::exception& e) {
        return {false, e.what()};
    }
}

}  // namespace

SignatureVerdict verifyBytes(std::string_view data, std::string_view signature, const std::string& keyFile) {
    return judge(signature, keyFile, [&](FileDigest& digest) {
        Check check(keyFile);
        check.add(data);
        return check.accepts(signature, digest);
    });
}

SignatureVerdict verifyPath(const std::string& path, const std::string& signatureFile,
                            const std::string& keyFile) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0)
        return {false, "cannot find " + path + ": " + base::errorText(errno)};
    std::string signature;
    try {
        signature = base::readBounded(signatureFile, kSignatureBytesLimit);
    } catch (const std::exception& e) {
        return {false, e.what()};
    }
    return judge(signature, keyFile, [&](FileDigest& digest) {
        return S_ISDIR(status.st_mode) ? acceptsBundle(path, signature, keyFile, digest)
                                       : acceptsFile(path, signature, keyFile, digest);
    });
}

}  // namespace zelor::agent

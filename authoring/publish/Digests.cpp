#include "authoring/publish/Digests.h"

#include <openssl/evp.h>

#include <array>
#include <boost/filesystem/operations.hpp>
#include <memory>
#include <stdexcept>

#include "agent/trust/BundleManifest.h"
#include "base/Deleter.h"
#include "base/Files.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

class Digest {
  public:
    explicit Digest(const EVP_MD* kind) : context_(EVP_MD_CTX_new()) {
        require(context_ && EVP_DigestInit_ex(context_.get(), kind, nullptr) == 1);
    }
    void add(std::string_view bytes) {
        require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1);
    }
    std::string finish() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
        unsigned int length = 0;
        require(EVP_DigestFinal_ex(context_.get(), bytes.data(), &length) == 1);
        return {bytes.begin(), bytes.begin() + length};
    }

  private:
    static void require(bool good) {
        if (!good) throw std::runtime_error("OpenSSL cannot compute the digests");
    }
    std::unique_ptr<EVP_MD_CTX, base::Deleter<EVP_MD_CTX_free>> context_;
};

struct DigestPair {
    Digest sha256{EVP_sha256()};
    Digest md5{EVP_md5()};

    void add(std::string_view bytes) {
        sha256.add(bytes);
        md5.add(bytes);
    }
    Digests finish(std::uint64_t bytes) { return {sha256.finish(), base::hexadecimal(md5.finish()), bytes}; }
};

}  // namespace

agent::FileDigest fileDigest(const Digests& digests) {
    return {base::hexadecimal(digests.sha256), digests.bytes};
}

Digests digestsOfText(std::string_view text) {
    DigestPair pair;
    pair.add(text);
    return pair.finish(text.size());
}

Digests digestsOfFile(const std::string& path) {
    DigestPair pair;
    const std::uint64_t bytes = base::readInPieces(base::openRegularFile(path, base::Links::follow), path,
                                                   [&](std::string_view piece) { pair.add(piece); });
    return pair.finish(bytes);
}

Digests digestsOfSource(const std::string& path, bool* directory) {
    boost::system::error_code ignored;
    const bool isDirectory = boost::filesystem::is_directory(path, ignored);
    if (directory != nullptr) *directory = isDirectory;
    return isDirectory ? digestsOfText(agent::bundleManifest(path)) : digestsOfFile(path);
}

}  // namespace zelor::authoring

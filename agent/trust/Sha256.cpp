#include "agent/trust/Sha256.h"

#include <array>
#include <stdexcept>

#include "base/Strings.h"

namespace zelor::agent {

namespace {

void require(bool good) {
    if (!good) throw std::runtime_error("OpenSSL cannot compute SHA-256");
}

}  // namespace

std::string describe(const FileDigest& digest) {
    return std::to_string(digest.length) + " bytes with SHA-256 " + digest.sha256;
}

Sha256::Sha256() : context_(EVP_MD_CTX_new()) {
    require(context_ != nullptr);
    begin();
}

void Sha256::begin() {
    require(EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) == 1);
    length_ = 0;
}

void Sha256::add(std::string_view bytes) {
    require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1);
    length_ += bytes.size();
}

FileDigest Sha256::finish() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    require(EVP_DigestFinal_ex(context_.get(), digest.data(), &size) == 1);
    FileDigest result{base::hexadecimal({reinterpret_cast<const char*>(digest.data()), size}), length_};
    begin();
    return result;
}

}  // namespace zelor::agent

#include "agent/trust/BundleManifest.h"

#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "base/Deleter.h"
#include "base/Files.h"
#include "base/Strings.h"

namespace zelor::agent {

namespace {

constexpr const char* kFirstLine = "zelor-bundle-manifest 1\n";

/// Everything but printable ASCII without blank and backslash becomes \xHH.
std::string escapedName(const std::string& name) {
    std::string out;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 0x20 && byte < 0x7f && byte != '\\') {
            out += c;
        } else {
            out += "\\x";
            base::appendHex(out, byte);
        }
    }
    return out;
}

std::string octalMode(mode_t mode) {
    std::string digits = "0000";
    digits[1] = static_cast<char>('0' + ((mode >> 6U) & 7U));
    digits[2] = static_cast<char>('0' + ((mode >> 3U) & 7U));
    digits[3] = static_cast<char>('0' + (mode & 7U));
    return digits;
}

/// "SIZE SHA256" of a file.
std::string sizeAndDigest(const std::string& path) {
    const std::unique_ptr<EVP_MD_CTX, base::Deleter<EVP_MD_CTX_free>> context(EVP_MD_CTX_new());
    bool good = context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    const std::uint64_t size =
        base::readInPieces(base::openRegularFile(path), path, [&](std::string_view piece) {
            good = good && EVP_DigestUpdate(context.get(), piece.data(), piece.size()) == 1;
        });
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    good = good && EVP_DigestFinal_ex(context.get(), digest.data(), &length) == 1;
    if (!good) throw std::runtime_error("SHA-256 failed for " + path);
    std::string text = std::to_string(size) + ' ';
    for (unsigned int i = 0; i < length; ++i)
        base::appendHex(text, digest[i]);
    return text;
}

std::string manifestLine(const std::string& path, const std::string& name) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        throw std::runtime_error("cannot examine " + path + ": " + base::errorText(errno));
    }
    std::string line;
    if (S_ISDIR(status.st_mode)) {
        line = "folder " + octalMode(status.st_mode);
    } else if (S_ISLNK(status.st_mode)) {
        line = "link " + escapedName(boost::filesystem::read_symlink(path).string());
    } else if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error(path +
                                 " is neither file, directory nor symbolic link; remove it from the bundle");
    } else if ((status.st_mode & (S_ISUID | S_ISGID)) != 0) {
        throw std::runtime_error(path + " has its set-user-id or set-group-id bit; clear it (chmod ug-s)");
    } else {
        line = "file " + octalMode(status.st_mode) + ' ' + sizeAndDigest(path);
    }
    return line + ' ' + escapedName(name) + '\n';
}

std::vector<std::string> namesBelow(const std::string& prefix) {
    std::vector<std::string> names;
    for (boost::filesystem::recursive_directory_iterator it(prefix), end; it != end; ++it) {
        names.push_back(it->path().string().substr(prefix.size()));
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

std::string bundleManifest(const std::string& directory) {
    const auto last = directory.find_last_not_of('/');
    if (last == std::string::npos) throw std::runtime_error("a bundle needs a directory of its own");
    const std::string base = directory.substr(0, last + 1);
    const std::string prefix = base + '/';
    std::string manifest = kFirstLine;
    manifest += manifestLine(base, ".");
    for (const std::string& name : namesBelow(prefix))
        manifest += manifestLine(prefix + name, name);
    return manifest;
}

}  // namespace zelor::agent

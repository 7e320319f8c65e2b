#include "authoring/metadata/MetadataKeys.h"

#include <algorithm>
#include <boost/filesystem.hpp>

#include "authoring/UsageError.h"
#include "authoring/publish/SigningKey.h"
#include "base/Files.h"
#include "base/PrintableText.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kKeyBytesLimit = 64U << 10U;
constexpr std::size_t kShownDigits = 12;
constexpr std::size_t kHolderLimit = 64;
constexpr const char* kHolderNote = "x-holder";

/// Role and holder of a file's name without its extension; no role for another name.
std::pair<std::string, std::string> partsOf(const std::string& stem) {
    const auto dash = stem.find('-');
    const std::string role = stem.substr(0, dash);
    const auto& roles = roleNames();
    if (std::find(roles.begin(), roles.end(), role) == roles.end()) return {};
    return {role, dash == std::string::npos ? "" : stem.substr(dash + 1)};
}

std::string readKeyFile(const std::string& file) {
    try {
        return base::readBounded(file, kKeyBytesLimit, base::Links::follow);
    } catch (const std::exception& e) {
        throw UsageError(std::string(e.what()) + "; name a key that zelor-content keygen wrote");
    }
}

trust::Json withHolder(trust::Json key, const std::string& holder) {
    if (!holder.empty()) key[kHolderNote] = holder;
    return key;
}

bool isHolder(const std::string& text) {
    const auto fits = [](unsigned char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
               c == '_' || c == '-';
    };
    return text.size() <= kHolderLimit && std::all_of(text.begin(), text.end(), fits);
}

}  // namespace

const std::vector<std::string>& roleNames() {
    static const std::vector<std::string> kRoles = {trust::kRootRole, trust::kTargetsRole,
                                                    trust::kSnapshotRole, trust::kTimestampRole};
    return kRoles;
}

std::vector<MetadataKey> readMetadataKeys(const std::string& directory) {
    std::vector<MetadataKey> keys;
    std::vector<fs::path> files;
    boost::system::error_code error;
    for (fs::directory_iterator it(directory, error), end; it != end; ++it)
        files.push_back(it->path());
    if (error)
        throw UsageError(directory + ": " + error.message() +
                         "; name a directory with keys of metadata roles");
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        const auto [role, holder] = partsOf(file.stem().string());
        if (file.extension() != ".key" || role.empty()) continue;
        auto key = trust::PrivateKey::fromPem(readKeyFile(file.string()));
        if (!key) throw UsageError(file.string() + ": " + key.error().text + "; use zelor-content keygen");
        keys.push_back({*std::move(key), role, isHolder(holder) ? holder : ""});
    }
    if (keys.empty())
        throw UsageError(directory +
                         " has no private key of a metadata role (root.key, targets.key, snapshot.key, "
                         "timestamp.key); make one with zelor-content keygen --role");
    return keys;
}

std::vector<trust::PrivateKey> privateKeys(const std::vector<MetadataKey>& keys) {
    std::vector<trust::PrivateKey> found;
    found.reserve(keys.size());
    for (const MetadataKey& key : keys)
        found.push_back(key.key);
    return found;
}

trust::PublicKeys publicKeys(const std::vector<MetadataKey>& keys) {
    trust::PublicKeys found;
    for (const MetadataKey& key : keys)
        found[key.role].push_back(withHolder(key.key.publicKey(), key.holder));
    return found;
}

trust::Json readPublicKey(const std::string& file) {
    const std::string pem = readKeyFile(file), holder = partsOf(fs::path(file).stem().string()).second;
    if (const auto secret = trust::PrivateKey::fromPem(pem)) return withHolder(secret->publicKey(), holder);
    auto key = trust::publicKeyFromPem(pem);
    if (!key) throw UsageError(file + ": " + key.error().text + "; name a key of zelor-content keygen");
    return withHolder(*std::move(key), isHolder(holder) ? holder : "");
}

void writeMetadataKeys(const std::string& directory, const std::vector<std::string>& roles,
                       const std::string& holder, const std::string& scheme) {
    if (!isHolder(holder))
        throw UsageError(
            "\"" + base::printable(holder) +
            "\" cannot be a holder's name: use letters, digits, \".\", \"_\" and \"-\", at most 64");
    const auto nameOf = [&](const std::string& role) { return holder.empty() ? role : role + '-' + holder; };
    for (const std::string& role : roles)
        requireNoKeyPair(directory, nameOf(role));
    for (const std::string& role : roles) {
        const auto key = trust::PrivateKey::make(scheme);
        if (!key) throw std::runtime_error(key.error().text);
        const auto secret = key->pem(), open = key->publicPem();
        if (!secret || !open) throw std::runtime_error("OpenSSL cannot write the key as text");
        writeKeyPair(directory, nameOf(role), *secret, *open);
    }
}

std::string keyLabel(const trust::Json& rootContent, const std::string& id) {
    std::string label = base::printable(id.substr(0, kShownDigits));
    const auto key = rootContent.at("keys").find(id);
    if (key == rootContent.at("keys").end()) return label;
    const auto note = key->find(kHolderNote);
    if (note == key->end() || !note->is_string()) return label;
    return label + " (" + base::printable(note->get<std::string>().substr(0, kHolderLimit)) + ')';
}

}  // namespace zelor::authoring

#include "authoring/metadata/MetadataDirectory.h"

#include <sys/stat.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <map>
#include <set>
#include <stdexcept>

#include "base/Directories.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kFileLimit = 64U << 20U;
constexpr trust::Time kGraceSeconds = 24L * 60 * 60;
constexpr std::size_t kDigestDigits = 64;

/// "VERSION.ROLE.json".
struct VersionedName {
    std::int64_t version = 0;  ///< 0 for another name
    std::string role;
};

VersionedName versionedName(const std::string& name) {
    const auto dot = name.find('.');
    const std::string digits = name.substr(0, dot);
    const bool number =
        !digits.empty() && digits.size() <= 18 && digits.find_first_not_of("0123456789") == std::string::npos;
    if (!number || digits[0] == '0' || dot == std::string::npos || !base::hasEnding(name, ".json")) return {};
    if (name.size() <= dot + 6) return {};
    return {std::stoll(digits), name.substr(dot + 1, name.size() - dot - 6)};
}

template <class Value>
Value orThrow(base::Result<Value> result, const std::string& path) {
    if (!result) throw std::runtime_error(path + ": " + result.error().text + "; restore it from a backup");
    return *std::move(result);
}

trust::Time modifiedAt(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mtime : 0;
}

/// The target files of one metadata file, by the names that clients ask for.
void addListed(const std::string& bytes, std::set<std::string>& names) {
    const auto file = trust::readSignedFile(bytes, kFileLimit);
    if (!file) return;
    const auto targets = trust::readTargets(file->content);
    if (!targets) return;
    for (const auto& [path, target] : targets->files) {
        const auto digest = target.digests.find("sha256");
        if (digest != target.digests.end()) names.insert(trust::consistentName(path, digest->second));
    }
}

}  // namespace

bool isNamedByDigest(const std::string& name) {
    return name.size() > kDigestDigits && name[kDigestDigits] == '.' &&
           name.find_first_not_of("0123456789abcdef") == kDigestDigits;
}

MetadataDirectory::MetadataDirectory(const std::string& repository)
    : repository_(repository), directory_(repository + "/metadata") {}

std::string MetadataDirectory::read(const std::string& name) const {
    return base::readBounded(path(name), kFileLimit);
}

bool MetadataDirectory::exists() const {
    return newestRoot() != 0;
}

std::int64_t MetadataDirectory::newestRoot() const {
    std::int64_t version = 0;
    while (fs::exists(path(trust::metadataName(trust::kRootRole, version + 1))))
        ++version;
    return version;
}

std::string MetadataDirectory::root(std::int64_t version) const {
    return read(trust::metadataName(trust::kRootRole, version));
}

trust::RoleFiles MetadataDirectory::newest() const {
    trust::RoleFiles files;
    const std::int64_t version = newestRoot();
    if (version == 0)
        throw std::runtime_error(directory_ + " has no 1.root.json; publish with metadata keys");
    files[trust::kRootRole] = root(version);
    const std::string timestampPath = path("timestamp.json");
    // A first publication that was interrupted has none.
    if (!fs::exists(timestampPath)) return files;
    files[trust::kTimestampRole] = read("timestamp.json");
    const auto timestamp =
        orThrow(trust::readSignedFile(files[trust::kTimestampRole], kFileLimit), timestampPath);
    const std::string name =
        trust::metadataName(trust::kSnapshotRole,
                            orThrow(trust::readTimestamp(timestamp.content), timestampPath).snapshot.version);
    files[trust::kSnapshotRole] = read(name);
    const auto snapshot = orThrow(trust::readSignedFile(files[trust::kSnapshotRole], kFileLimit), path(name));
    for (const auto& [file, listed] : orThrow(trust::readSnapshot(snapshot.content), path(name)).files) {
        const std::string role = file.substr(0, file.size() - std::min<std::size_t>(file.size(), 5));
        files[role] = read(trust::metadataName(role, listed.version));
    }
    return files;
}

void MetadataDirectory::write(const std::vector<trust::NewFile>& files) const {
    if (!base::makeDirectories(directory_))
        throw std::runtime_error("cannot make " + directory_ + ": " + base::errorText(errno));
    base::StagedFiles staged;
    const trust::NewFile* timestamp = nullptr;
    for (const trust::NewFile& file : files) {
        if (file.name == "timestamp.json") {
            timestamp = &file;
            continue;
        }
        base::StagedFile& one = staged.add(path(file.name));
        one.write(file.bytes);
        one.close();
    }
    staged.commit();
    if (timestamp != nullptr) base::replaceFile(path(timestamp->name), timestamp->bytes);
}

void MetadataDirectory::writeRoot(std::int64_t version, const std::string& bytes) const {
    write({{trust::metadataName(trust::kRootRole, version), bytes}});
}

std::size_t MetadataDirectory::removeSuperseded(trust::Time now) const {
    std::map<std::string, std::set<std::int64_t>> versions;
    std::vector<fs::path> leftovers;
    for (fs::directory_iterator it(directory_), end; it != end; ++it) {
        if (base::isStagedName(it->path().filename().string())) leftovers.push_back(it->path());
        const VersionedName name = versionedName(it->path().filename().string());
        if (name.version != 0 && name.role != trust::kRootRole) versions[name.role].insert(name.version);
    }
    std::set<std::string> listed;
    std::size_t removed = 0;
    for (const auto& [role, all] : versions) {
        for (auto it = all.begin(); it != all.end(); ++it) {
            const std::string file = path(trust::metadataName(role, *it));
            const auto next = std::next(it);
            // Replaced when the next version was written.
            if (next != all.end() &&
                now - modifiedAt(path(trust::metadataName(role, *next))) > kGraceSeconds) {
                removed += fs::remove(file) ? 1 : 0;
            } else if (role != trust::kSnapshotRole) {
                addListed(base::readBounded(file, kFileLimit), listed);
            }
        }
    }
    boost::system::error_code none;
    for (fs::directory_iterator it(repository_ + "/content", none), end; it != end; ++it) {
        const std::string name = it->path().filename().string();
        if (isNamedByDigest(name) && listed.count("content/" + name) == 0) leftovers.push_back(it->path());
    }
    for (const fs::path& file : leftovers)
        removed += fs::remove(file) ? 1 : 0;
    return removed;
}

}  // namespace zelor::authoring

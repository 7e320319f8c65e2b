#include "trust/RepositoryWriter.h"

#include <algorithm>

#include "base/PrintableText.h"
#include "base/Strings.h"
#include "trust/PathPattern.h"
#include "trust/Rules.h"

namespace zelor::trust {

namespace {

constexpr const char* kFormat = "1.0.31";
constexpr const char* kBinPrefix = "bins-";
constexpr int kBins = 256;
/// The writer reads what it wrote itself.
constexpr std::size_t kReadLimit = 64U << 20U;

bool isBin(const std::string& role) {
    return base::hasBeginning(role, kBinPrefix);
}

Json targetJson(const TargetFile& file) {
    Json entry = {{"length", file.length}, {"hashes", file.digests}};
    if (!file.custom.empty()) entry["custom"] = Json::parse(file.custom);
    return entry;
}

base::Check readHeaderOf(const std::string& role, const Json& content, Header& header) {
    const auto keep = [&](const auto& read) -> base::Check {
        if (!read) return base::failure(read.error());
        header = *read;
        return {};
    };
    if (role == kTimestampRole) return keep(readTimestamp(content));
    if (role == kSnapshotRole) return keep(readSnapshot(content));
    return keep(readTargets(content));
}

/// `content` without what every new file has of its own.
Json bodyOf(Json content) {
    for (const char* name : {"version", "expires", "spec_version", "signed_at"})
        content.erase(name);
    return content;
}

}  // namespace

std::string binOf(const std::string& path) {
    return kBinPrefix + digestOf("sha256", path)->substr(0, 2);
}

std::vector<std::string> binNames() {
    std::vector<std::string> names;
    for (int i = 0; i < kBins; ++i) {
        names.emplace_back(kBinPrefix);
        base::appendHex(names.back(), static_cast<unsigned char>(i));
    }
    return names;
}

std::string metadataName(const std::string& role, std::int64_t version) {
    const std::string name = percentEncoded(role) + ".json";
    return role == kTimestampRole ? name : std::to_string(version) + "." + name;
}

std::string consistentName(const std::string& path, const std::string& sha256) {
    const auto name = path.rfind('/') + 1;
    return path.substr(0, name) + sha256 + "." + path.substr(name);
}

base::Result<RepositoryWriter> RepositoryWriter::open(const RoleFiles& files, WriterOptions options) {
    RepositoryWriter writer;
    writer.options_ = std::move(options);
    const auto root = files.find(kRootRole);
    if (root == files.end())
        return base::failure("there is no root; publish with the keys of all four roles");
    auto trusted = configuredRoot(root->second, {});
    if (!trusted) return base::failure(trusted.error());
    writer.root_ = *std::move(trusted);
    for (const auto& [role, bytes] : files) {
        if (role == kRootRole) continue;
        if (const auto taken = writer.take(role, bytes); !taken) return base::failure(taken.error());
    }
    return writer;
}

base::Check RepositoryWriter::take(const std::string& role, const std::string& bytes) {
    const bool known = role == kTargetsRole || role == kSnapshotRole || role == kTimestampRole || isBin(role);
    if (!known)
        return base::failure("the repository has a role " + base::printable(role) +
                             ", which this tool does not write; write the repository with the tool that did");
    File file;
    file.bytes = bytes;
    auto parsed = readSignedFile(bytes, kReadLimit);
    const base::Check read = parsed ? readHeaderOf(role, parsed->content, file.header)
                                    : base::Check(base::failure(parsed.error()));
    if (!read)
        return base::failure(roleFailure(role, 0, read.error().text,
                                         "restore metadata/ from the server or a backup, and try again"));
    file.parsed = *std::move(parsed);
    files_[role] = std::move(file);
    return {};
}

const RoleKeys& RepositoryWriter::keysOf(const std::string& role) const {
    return root_.keysOf(isBin(role) ? kTargetsRole : role);
}

bool RepositoryWriter::isSigned(const std::string& role) const {
    const auto found = files_.find(role);
    if (found == files_.end()) return false;
    const SignedFile& file = found->second.parsed;
    return checkSignatures(file.canonical, file.signatures, keysOf(role), root_.keys).has_value();
}

bool RepositoryWriter::isAcceptedBy(const Root& root) const {
    return std::all_of(files_.begin(), files_.end(), [&](const auto& entry) {
        if (isBin(entry.first)) return true;  // the targets file names their keys
        const SignedFile& file = entry.second.parsed;
        return checkSignatures(file.canonical, file.signatures, root.keysOf(entry.first), root.keys)
            .has_value();
    });
}

std::vector<PrivateKey> RepositoryWriter::signersOf(const std::string& role) const {
    const std::string owner = isBin(role) ? kTargetsRole : role;
    std::vector<PrivateKey> signers;
    std::set<std::string> ids;
    for (const PrivateKey& key : options_.keys) {
        const bool fits = keysOf(role).ids.count(key.id()) != 0 ||
                          (other_ && other_->keysOf(owner).ids.count(key.id()) != 0);
        if (fits && ids.insert(key.id()).second) signers.push_back(key);
    }
    return signers;
}

base::Check RepositoryWriter::requireKeysOf(const std::string& role) const {
    const RoleKeys& wanted = keysOf(role);
    std::set<std::string> ids;
    for (const PrivateKey& key : options_.keys) {
        if (wanted.ids.count(key.id()) != 0) ids.insert(key.id());
    }
    if (static_cast<std::int64_t>(ids.size()) >= wanted.threshold) return {};
    return base::failure(role + " needs " + std::to_string(wanted.threshold) +
                         " of its keys to be signed, and " + std::to_string(ids.size()) +
                         " are at hand; add the private keys of that role");
}

base::Check RepositoryWriter::requireKeys() const {
    for (const char* role : {kTargetsRole, kSnapshotRole, kTimestampRole}) {
        if (auto able = requireKeysOf(role); !able) return able;
    }
    return {};
}

base::Check RepositoryWriter::put(const std::string& role, Json body, bool always) {
    const auto present = files_.find(role);
    const Time life = options_.lifetimes.at(isBin(role) ? kTargetsRole : role);
    const bool same = present != files_.end() && bodyOf(present->second.parsed.content) == body;
    const bool needed = always || !same || !isSigned(role);
    if (!needed && present->second.header.expires - options_.now > life / 2) return {};
    if (auto able = requireKeysOf(role); !able) {
        if (needed) return able;
        overdue_.push_back(role);
        return {};
    }
    body["spec_version"] = kFormat;
    body["version"] = present == files_.end() ? 1 : present->second.header.version + 1;
    body["expires"] = timeText(options_.now + life);
    // Clients compare it with their clock.
    if (role == kTimestampRole) body["signed_at"] = timeText(options_.now);
    return sign(role, std::move(body));
}

base::Check RepositoryWriter::sign(const std::string& role, Json content) {
    const auto bytes = PrivateKey::signedFile(content, signersOf(role));
    if (!bytes) return base::failure(bytes.error());
    if (auto taken = take(role, *bytes); !taken) return taken;
    written_.push_back({metadataName(role, files_.at(role).header.version), *bytes});
    return {};
}

bool RepositoryWriter::hasBins() const {
    return std::any_of(files_.begin(), files_.end(), [](const auto& entry) { return isBin(entry.first); });
}

Json RepositoryWriter::delegations() const {
    const RoleKeys& role = keysOf(kTargetsRole);
    Json keys = Json::object(), roles = Json::array();
    for (const std::string& id : role.ids) {
        const Key& key = root_.keys.at(id);
        keys[id] = {{"keytype", key.type}, {"scheme", key.scheme}, {"keyval", {{"public", key.value}}}};
    }
    for (const std::string& bin : binNames()) {
        roles.push_back({{"name", bin},
                         {"keyids", role.ids},
                         {"threshold", role.threshold},
                         {"terminating", true},
                         {"path_hash_prefixes", Json::array({bin.substr(std::string(kBinPrefix).size())})}});
    }
    return {{"keys", keys}, {"roles", roles}};
}

base::Check RepositoryWriter::setTargets(const std::map<std::string, TargetFile>& targets) {
    Json top = {{"_type", "targets"}, {"targets", Json::object()}};
    if (hasBins() || targets.size() >= options_.binsFrom) {
        std::map<std::string, Json> bins;
        for (const std::string& bin : binNames())
            bins[bin] = top;
        for (const auto& [path, file] : targets)
            bins.at(binOf(path))["targets"][path] = targetJson(file);
        for (auto& [bin, body] : bins) {
            if (auto done = put(bin, std::move(body)); !done) return done;
        }
        top["delegations"] = delegations();
    } else {
        for (const auto& [path, file] : targets)
            top["targets"][path] = targetJson(file);
    }
    return put(kTargetsRole, std::move(top));
}

std::map<std::string, TargetFile> RepositoryWriter::targets() const {
    std::map<std::string, TargetFile> all;
    for (const auto& [role, file] : files_) {
        if (role != kTargetsRole && !isBin(role)) continue;
        // It was read before, when the file was taken.
        if (auto read = readTargets(file.parsed.content)) all.merge(read->files);
    }
    return all;
}

Json RepositoryWriter::listed(const std::string& role, bool withDigests) const {
    const File& file = files_.at(role);
    Json entry = {{"version", file.header.version}, {"length", file.bytes.size()}};
    if (withDigests) entry["hashes"] = {{"sha256", *digestOf("sha256", file.bytes)}};
    return entry;
}

base::Check RepositoryWriter::seal() {
    Json meta = Json::object();
    for (const auto& [role, file] : files_) {
        if (role != kTargetsRole && !isBin(role)) continue;
        if (!isSigned(role))
            return base::failure(role +
                                 " is not signed by the keys of its role; publish with those keys first");
        // The targets keys vouch for the bins, and 256 digests would make a new snapshot four times as large.
        meta[role + ".json"] = listed(role, !isBin(role));
    }
    if (meta.empty()) return base::failure("there are no targets yet; publish first");
    if (auto done = put(kSnapshotRole, {{"_type", "snapshot"}, {"meta", meta}}); !done) return done;
    return put(kTimestampRole,
               {{"_type", "timestamp"}, {"meta", {{"snapshot.json", listed(kSnapshotRole, true)}}}}, true);
}

std::vector<RoleStatus> RepositoryWriter::roles() const {
    std::vector<RoleStatus> found;
    const auto add = [&](const std::string& role) {
        const auto file = files_.find(role);
        if (file == files_.end()) return;
        found.push_back({role, file->second.header.version, file->second.header.expires, isSigned(role)});
    };
    for (const char* role : {kTargetsRole, kSnapshotRole, kTimestampRole})
        add(role);
    for (const std::string& bin : binNames())
        add(bin);
    return found;
}

std::string RepositoryWriter::bytesOf(const std::string& role) const {
    const auto found = files_.find(role);
    return found == files_.end() ? "" : found->second.bytes;
}

}  // namespace zelor::trust

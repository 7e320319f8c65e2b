#include "trust/Metadata.h"

#include <algorithm>
#include <set>

#include "base/PrintableText.h"
#include "base/Strings.h"
#include "trust/PathPattern.h"

namespace zelor::trust {

namespace {

constexpr std::size_t kSignaturesLimit = 1024;
constexpr std::size_t kDelegationsLimit = 65'536;
constexpr std::size_t kRoleNameLimit = 200;  ///< of the file name, without its ending

/// What was read, unless there was a fault.
template <class Value>
base::Result<Value> unlessFaulty(const JsonReader& reader, Value&& value) {
    if (!reader.fault.empty()) return base::failure(reader.fault);
    return std::forward<Value>(value);
}

Header readHeader(JsonReader& reader, const Json& content, const std::string& type) {
    if (reader.text(content, "_type") != type) reader.fail("it is not metadata of the kind \"" + type + "\"");
    const std::string format = reader.text(content, "spec_version");
    if (format.rfind("1.", 0) != 0 || format.find_first_not_of("0123456789.") != std::string::npos)
        reader.fail("its \"spec_version\" is " + base::printable(format) + ", not 1.x");
    Header header;
    header.version = reader.integer(content, "version", 1);
    if (const auto expires = parseTime(reader.text(content, "expires")))
        header.expires = *expires;
    else
        reader.fail(expires.error().text);
    return header;
}

RoleKeys readRoleKeys(JsonReader& reader, const Json& role) {
    RoleKeys keys;
    for (const Json& id : reader.array(role, "keyids"))
        keys.ids.insert(reader.textOf(id, "keyids"));
    keys.threshold = reader.integer(role, "threshold", 1);
    return keys;
}

Digests readDigests(JsonReader& reader, const Json& digests) {
    Digests found;
    for (const auto& [algorithm, digest] : digests.items()) {
        const std::string digits = reader.textOf(digest, "hashes");
        if (!isHex(digits)) reader.fail("a digest is not hexadecimal");
        found.emplace(algorithm, base::lowerCased(digits));
    }
    if (found.empty()) reader.fail("\"hashes\" is empty");
    return found;
}

ListedFile readListedFile(JsonReader& reader, const Json& entry) {
    ListedFile listed;
    listed.version = reader.integer(entry, "version", 1);
    if (!reader.fault.empty()) return listed;
    if (entry.contains("length"))
        listed.length = static_cast<std::uint64_t>(reader.integer(entry, "length", 0));
    if (entry.contains("hashes")) listed.digests = readDigests(reader, reader.object(entry, "hashes"));
    return listed;
}

TargetFile readTargetFile(JsonReader& reader, const std::string& path, const Json& entry) {
    TargetFile file;
    file.path = path;
    if (!isTargetPath(path)) reader.fail("the target path " + base::printable(path) + " is not allowed");
    file.length = static_cast<std::uint64_t>(reader.integer(entry, "length", 0));
    file.digests = readDigests(reader, reader.object(entry, "hashes"));
    if (entry.is_object() && entry.contains("custom")) file.custom = reader.object(entry, "custom").dump();
    return file;
}

std::vector<std::string> readTexts(JsonReader& reader, const Json& parent, const std::string& name) {
    std::vector<std::string> texts;
    for (const Json& text : reader.array(parent, name))
        texts.push_back(reader.textOf(text, name));
    return texts;
}

/// A role's file is kept under its name: the name of a top-level role, which file systems may know in any
/// case, would replace that one's.
bool isDelegatedName(const std::string& name) {
    const std::string lower = base::lowerCased(name);
    return !name.empty() && percentEncoded(name).size() <= kRoleNameLimit &&
           !base::hasControlCharacter(name) && lower != kRootRole && lower != kTimestampRole &&
           lower != kSnapshotRole && lower != kTargetsRole;
}

Delegation readDelegation(JsonReader& reader, const Json& role) {
    Delegation delegation;
    delegation.name = reader.text(role, "name");
    if (!isDelegatedName(delegation.name))
        reader.fail("a delegated role may not be named \"" + base::printable(delegation.name) + "\"");
    delegation.keys = readRoleKeys(reader, role);
    delegation.terminating = reader.flag(role, "terminating");
    if (!reader.fault.empty()) return delegation;
    if (role.contains("paths") == role.contains("path_hash_prefixes"))
        reader.fail("the delegation to " + base::printable(delegation.name) +
                    " needs one of \"paths\" and \"path_hash_prefixes\"");
    else if (role.contains("paths"))
        delegation.patterns = readTexts(reader, role, "paths");
    else
        delegation.digestPrefixes = readTexts(reader, role, "path_hash_prefixes");
    for (std::string& prefix : delegation.digestPrefixes)
        prefix = base::lowerCased(prefix);
    return delegation;
}

void readDelegations(JsonReader& reader, const Json& delegations, Targets& targets) {
    targets.keys = readKeys(reader, reader.object(delegations, "keys"));
    const Json& roles = reader.array(delegations, "roles");
    if (roles.size() > kDelegationsLimit)
        reader.fail("it delegates to more than " + std::to_string(kDelegationsLimit) + " roles");
    std::set<std::string> names;
    for (const Json& role : roles) {
        if (!reader.fault.empty()) return;
        targets.delegations.push_back(readDelegation(reader, role));
        if (!names.insert(targets.delegations.back().name).second)
            reader.fail("it delegates twice to " + base::printable(targets.delegations.back().name));
    }
}

}  // namespace

const ListedFile* Snapshot::fileOf(const std::string& role) const {
    const auto found = files.find(role + ".json");
    return found == files.end() ? nullptr : &found->second;
}

bool Delegation::covers(const std::string& path, const std::string& digest) const {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& pattern) { return pathMatches(pattern, path); }) ||
           std::any_of(digestPrefixes.begin(), digestPrefixes.end(),
                       [&](const std::string& prefix) { return digest.rfind(prefix, 0) == 0; });
}

base::Result<SignedFile> readSignedFile(std::string_view bytes, std::size_t limit) {
    const auto json = parseJson(bytes, limit);
    if (!json) return tl::unexpected<base::Failure>(json.error());
    JsonReader reader;
    SignedFile file;
    file.content = reader.object(*json, "signed");
    const Json& signatures = reader.array(*json, "signatures");
    if (signatures.size() > kSignaturesLimit)
        reader.fail("it has more than " + std::to_string(kSignaturesLimit) + " signatures");
    std::set<std::string> ids;
    for (const Json& entry : signatures) {
        if (!reader.fault.empty()) break;
        Signature signature{reader.text(entry, "keyid"), ""};
        signature.bytes = bytesOfHex(reader.text(entry, "sig")).value_or("");
        if (!ids.insert(signature.keyId).second) reader.fail("it has two signatures with one key id");
        file.signatures.push_back(std::move(signature));
    }
    if (!reader.fault.empty()) return base::failure(reader.fault);
    auto canonical = canonicalJson(file.content);
    if (!canonical) return tl::unexpected<base::Failure>(canonical.error());
    file.canonical = *std::move(canonical);
    JsonReader versionReader;
    const std::int64_t version = versionReader.integer(file.content, "version", 1);
    file.version = versionReader.fault.empty() ? version : 0;
    return file;
}

base::Result<Root> readRoot(const Json& content) {
    JsonReader reader;
    Root root;
    static_cast<Header&>(root) = readHeader(reader, content, kRootRole);
    root.consistentSnapshot = reader.flag(content, "consistent_snapshot");
    root.keys = readKeys(reader, reader.object(content, "keys"));
    const Json& roles = reader.object(content, "roles");
    for (const char* role : {kRootRole, kTimestampRole, kSnapshotRole, kTargetsRole})
        root.roles.emplace(role, readRoleKeys(reader, reader.object(roles, role)));
    return unlessFaulty(reader, std::move(root));
}

base::Result<Timestamp> readTimestamp(const Json& content) {
    JsonReader reader;
    Timestamp timestamp;
    static_cast<Header&>(timestamp) = readHeader(reader, content, kTimestampRole);
    const Json& files = reader.object(content, "meta");
    timestamp.snapshot = readListedFile(reader, reader.object(files, "snapshot.json"));
    const auto signedAt = content.find("signed_at");
    if (signedAt != content.end() && signedAt->is_string()) {
        // A later time than the expiry would let no timestamp after this one count.
        const auto time = parseTime(signedAt->get<std::string>());
        if (time && *time < timestamp.expires) timestamp.signedAt = *time;
    }
    return unlessFaulty(reader, std::move(timestamp));
}

base::Result<Snapshot> readSnapshot(const Json& content) {
    JsonReader reader;
    Snapshot snapshot;
    static_cast<Header&>(snapshot) = readHeader(reader, content, kSnapshotRole);
    for (const auto& [name, entry] : reader.object(content, "meta").items()) {
        snapshot.files.emplace(name, readListedFile(reader, entry));
        if (!reader.fault.empty()) break;
    }
    if (snapshot.fileOf(kTargetsRole) == nullptr) reader.fail("it does not list targets.json");
    return unlessFaulty(reader, std::move(snapshot));
}

base::Result<Targets> readTargets(const Json& content) {
    JsonReader reader;
    Targets targets;
    static_cast<Header&>(targets) = readHeader(reader, content, kTargetsRole);
    for (const auto& [path, entry] : reader.object(content, "targets").items()) {
        targets.files.emplace(path, readTargetFile(reader, path, entry));
        if (!reader.fault.empty()) break;
    }
    if (content.contains("delegations"))
        readDelegations(reader, reader.object(content, "delegations"), targets);
    return unlessFaulty(reader, std::move(targets));
}

}  // namespace zelor::trust

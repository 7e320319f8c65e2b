#include <algorithm>
#include <set>

#include "base/PrintableText.h"
#include "trust/RepositoryWriter.h"
#include "trust/Rules.h"

namespace zelor::trust {

namespace {

constexpr const char* kFormat = "1.0.31";
constexpr std::size_t kRootLimit = 512U << 10U;

tl::unexpected<base::Failure> failed(const base::Failure& failure) {
    return tl::unexpected<base::Failure>(failure);
}

/// Keys that no role names any more are no part of the next root.
void removeUnusedKeys(Json& root) {
    std::set<std::string> used;
    for (const auto& role : root["roles"]) {
        for (const Json& id : role["keyids"])
            used.insert(id.get<std::string>());
    }
    Json kept = Json::object();
    for (const auto& [id, key] : root["keys"].items()) {
        if (used.count(id) != 0) kept[id] = key;
    }
    root["keys"] = kept;
}

/// Whether two of the ids name one key: a threshold that needs both could never be met.
bool hasOneKeyTwice(const Json& keys, const std::set<std::string>& ids) {
    std::set<std::string> known;
    for (const std::string& id : ids) {
        if (!keys.contains(id)) continue;
        const Json& key = keys.at(id);
        const std::string identity =
            identityOf({key.at("keytype"), key.at("scheme"), key.at("keyval").value("public", "")});
        if (!identity.empty() && !known.insert(identity).second) return true;
    }
    return false;
}

base::Check applyTo(Json& root, const RootChange& change) {
    Json& role = root["roles"][change.role];
    std::set<std::string> ids = role["keyids"];
    for (const std::string& id : change.remove) {
        if (ids.erase(id) == 0)
            return base::failure("the role " + change.role + " has no key " + base::printable(id) +
                                 "; zelor-content status lists its keys");
    }
    for (const Json& key : change.add) {
        const std::string id = keyId(key);
        ids.insert(id);
        root["keys"][id] = key;
    }
    if (change.threshold) role["threshold"] = *change.threshold;
    const auto threshold = role["threshold"].get<std::int64_t>();
    if (threshold < 1 || threshold > static_cast<std::int64_t>(ids.size()))
        return base::failure("the role " + change.role + " would have " + std::to_string(ids.size()) +
                             " keys, of which " + std::to_string(threshold) +
                             " must sign; give it more keys or another threshold");
    if (hasOneKeyTwice(root["keys"], ids))
        return base::failure("the role " + change.role +
                             " would have one key in two forms, which counts once; give another key");
    role["keyids"] = ids;
    removeUnusedKeys(root);
    return {};
}

}  // namespace

base::Result<std::string> firstRoot(const PublicKeys& keys, const WriterOptions& options) {
    Json root = {{"_type", "root"},
                 {"spec_version", kFormat},
                 {"version", 1},
                 {"consistent_snapshot", true},
                 {"expires", timeText(options.now + options.lifetimes.at(kRootRole))},
                 {"keys", Json::object()},
                 {"roles", Json::object()}};
    std::vector<PrivateKey> signers;
    for (const char* role : {kRootRole, kTargetsRole, kSnapshotRole, kTimestampRole}) {
        const auto found = keys.find(role);
        if (found == keys.end() || found->second.empty())
            return base::failure(std::string("there is no key for the role ") + role +
                                 ", which the first publication needs; make one with zelor-content keygen");
        root["roles"][role] = {{"keyids", Json::array()}, {"threshold", 1}};
        if (const auto added = applyTo(root, {role, found->second, {}, {}}); !added)
            return failed(added.error());
    }
    for (const PrivateKey& key : options.keys) {
        const auto& ids = root["roles"][kRootRole]["keyids"];
        if (std::find(ids.begin(), ids.end(), key.id()) != ids.end()) signers.push_back(key);
    }
    return PrivateKey::signedFile(root, signers);
}

base::Result<std::string> changedRoot(const std::string& root, const RootChange& change,
                                      const WriterOptions& options) {
    auto file = readSignedFile(root, kRootLimit);
    if (!file) return failed(file.error());
    const auto old = readRoot(file->content);
    if (!old) return failed(old.error());
    Json next = file->content;
    if (const auto changed = applyTo(next, change); !changed) return failed(changed.error());
    next["version"] = old->version + 1;
    next["spec_version"] = kFormat;
    next["expires"] = timeText(options.now + options.lifetimes.at(kRootRole));
    const auto bytes = PrivateKey::signedFile(next, {});
    if (!bytes) return failed(bytes.error());
    return withRootSignatures(root, *bytes, options.keys);
}

base::Result<std::string> withRootSignatures(const std::string& root, const std::string& next,
                                             const std::vector<PrivateKey>& keys) {
    const auto oldFile = readSignedFile(root, kRootLimit), nextFile = readSignedFile(next, kRootLimit);
    if (!oldFile) return failed(oldFile.error());
    if (!nextFile) return failed(nextFile.error());
    const auto oldRoot = readRoot(oldFile->content), nextRoot = readRoot(nextFile->content);
    if (!oldRoot) return failed(oldRoot.error());
    if (!nextRoot) return failed(nextRoot.error());
    std::vector<PrivateKey> signers;
    std::set<std::string> ids;
    for (const PrivateKey& key : keys) {
        const bool isRootKey = oldRoot->keysOf(kRootRole).ids.count(key.id()) != 0 ||
                               nextRoot->keysOf(kRootRole).ids.count(key.id()) != 0;
        if (isRootKey && ids.insert(key.id()).second) signers.push_back(key);
    }
    const auto added = PrivateKey::signedFile(nextFile->content, signers);
    if (!added) return failed(added.error());
    Json file = Json::parse(*added);
    const Json present = Json::parse(next);
    for (const Json& signature : present["signatures"]) {
        if (ids.count(signature["keyid"]) == 0) file["signatures"].push_back(signature);
    }
    return file.dump() + "\n";
}

base::Check requireNextRoot(const std::string& root, const std::string& next) {
    const auto trusted = configuredRoot(root, {});
    if (!trusted) return failed(trusted.error());
    if (const auto good = nextRoot(*trusted, next, {}); !good) return failed(good.error());
    return {};
}

}  // namespace zelor::trust

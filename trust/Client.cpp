#include "trust/Client.h"

#include <algorithm>
#include <limits>
#include <set>

#include "base/PrintableText.h"
#include "trust/PathPattern.h"

namespace zelor::trust {

namespace {

constexpr const char* kNoAnswer =
    "what is kept stays in force; look at the repository's address, the network and the server";
constexpr const char* kNoDisk = "look at the directory of the kept metadata and its file system";
constexpr const char* kWrongRoot = "if the repository is the same, configure its newest root";
constexpr const char* kStartAgain = "begin again from the configured root";

tl::unexpected<base::Failure> failed(const std::string& role, std::int64_t version, const std::string& cause,
                                     const std::string& remedy) {
    return base::failure(roleFailure(role, version, cause, remedy));
}

std::string fileName(const std::string& role) {
    return percentEncoded(role) + ".json";
}

std::string versionedName(const std::string& role, std::int64_t version) {
    return std::to_string(version) + "." + fileName(role);
}

/// What is lost with the kept root.
std::string givenUp(const Root& kept) {
    return "it is not known to be of the repository of the kept root, version " +
           std::to_string(kept.version) + ", so all begins anew and earlier versions are accepted again";
}

/// Whether other keys sign timestamps or snapshots under `next` than under `before`.
bool rotatesKeys(const Root& before, const Root& next) {
    return before.keysOf(kTimestampRole).ids != next.keysOf(kTimestampRole).ids ||
           before.keysOf(kSnapshotRole).ids != next.keysOf(kSnapshotRole).ids;
}

/// The digest that is part of a target's name on the server.
const std::string& digestForName(const TargetFile& target) {
    const auto sha256 = target.digests.find("sha256");
    return sha256 == target.digests.end() ? target.digests.begin()->second : sha256->second;
}

}  // namespace

base::Result<std::string> Client::initialise(const std::string& root) {
    const auto configured = configuredRoot(root, options_.limits);
    if (!configured) return base::failure(configured.error());
    RootHistory history(store_.rootHistory());
    const auto kept = loadRoot();
    if (!kept || !history.has(*kept)) history = RootHistory();
    if (kept) history.add(*kept);
    const RootRelation relation =
        kept ? relationOf(*configured, root, *root_, *kept, history, options_.limits) : RootRelation::none;
    std::string notice;
    base::Check good;
    if (relation == RootRelation::keptLeadsOn) {
        good = remember(root, std::move(history));
    } else if (relation == RootRelation::configuredLeadsOn) {
        good = startFrom(*configured, root, rotatesKeys(*root_, *configured), std::move(history));
    } else {
        if (kept) notice = roleFailure(kRootRole, configured->version, givenUp(*root_), kWrongRoot).text;
        good = startFrom(*configured, root, true, {});
    }
    if (!good) return base::failure(good.error());
    return notice;
}

/// Makes `bytes` the kept root, after those of `history`.
base::Check Client::startFrom(const Root& root, const std::string& bytes, bool forget, RootHistory history) {
    // The files of another root first: a crash must not leave them beside this one.
    base::Check good = forget ? forgetWhatOldKeysSigned() : base::Check();
    if (good) good = remember(bytes, std::move(history));
    if (good) good = keep(kRootRole, root.version, bytes);
    return good;
}

/// Keeps `history` with `root`, before that is kept: what leads to the kept root is never missing.
base::Check Client::remember(const std::string& root, RootHistory history) {
    history.add(root);
    const std::string text = history.text();
    if (text == store_.rootHistory()) return {};
    if (const auto done = store_.replaceRootHistory(text); !done)
        return failed(kRootRole, 0, done.error().text, kNoDisk);
    return {};
}

base::Check Client::load() {
    refreshed_ = false;
    if (const auto loaded = loadRoot(); !loaded) return base::failure(loaded.error());
    loadTheRest();
    return {};
}

/// The bytes of the kept root.
base::Result<std::string> Client::loadRoot() {
    root_.reset();
    auto bytes = store_.read(kRootRole, options_.limits.root);
    if (!bytes) return failed(kRootRole, 0, bytes.error().text, kStartAgain);
    if (!*bytes) return failed(kRootRole, 0, "there is none", kStartAgain);
    auto root = configuredRoot(**bytes, options_.limits);
    if (!root) return base::failure(root.error());
    root_ = *std::move(root);
    return **std::move(bytes);
}

void Client::loadTheRest() {
    timestamp_.reset();
    snapshot_.reset();
    targets_.reset();
    delegated_.clear();
    const Limits& limits = options_.limits;
    if (auto bytes = kept(kTargetsRole, limits.targets)) {
        auto targets = checkTargets(kTargetsRole, root_->keysOf(kTargetsRole), root_->keys, *bytes, nullptr,
                                    std::nullopt, limits);
        if (targets) targets_ = std::make_shared<const Targets>(*std::move(targets));
        targetsBytes_ = *std::move(bytes);
    }
    if (auto bytes = kept(kSnapshotRole, limits.snapshot)) {
        auto snapshot = checkSnapshot(*root_, *bytes, nullptr, nullptr, std::nullopt, limits);
        // Signed by keys that were replaced: then the timestamp that names it goes too, as in a rotation that
        // was interrupted.
        if (!snapshot) return;
        snapshot_ = Kept<Snapshot>{*std::move(snapshot), *std::move(bytes)};
    }
    if (const auto bytes = kept(kTimestampRole, limits.timestamp)) {
        auto timestamp = checkTimestamp(*root_, *bytes, nullptr, limits);
        if (!timestamp) return;
        learnTime(*timestamp);
        timestamp_ = *std::move(timestamp);
    }
}

void Client::learnTime(const Timestamp& timestamp) {
    if (options_.signedTime) signedAt_ = std::max(signedAt_, timestamp.signedAt);
}

base::Check Client::refresh() {
    base::Check good = load();
    if (good) good = updateRoot();
    if (good) good = updateTimestamp();
    if (good) good = updateSnapshot();
    if (good) good = updateTargets();
    refreshed_ = good.has_value();
    return good;
}

base::Check Client::updateRoot() {
    const std::int64_t first = root_->version;
    bool rotated = false;
    for (int i = 0; i < options_.limits.roots; ++i) {
        const Root before = *root_;
        const auto taken = takeNextRoot();
        if (!taken) {
            if (root_->version != first) loadTheRest();
            return base::failure(taken.error());
        }
        if (!*taken) break;
        if (!rotatesKeys(before, *root_)) continue;
        rotated = true;
        signedAt_ = 0;  // a thief of the old keys may have signed for any time
    }
    base::Check good = requireFresh(kRootRole, *root_, now());
    if (root_->version == first) return good;
    if (good && rotated) good = forgetWhatOldKeysSigned();
    loadTheRest();
    return good;
}

/// False when there is no newer root.
base::Result<bool> Client::takeNextRoot() {
    if (root_->version == std::numeric_limits<std::int64_t>::max()) return false;
    const std::int64_t version = root_->version + 1;
    auto fetched = fetcher_.fetch(versionedName(kRootRole, version), options_.limits.root);
    if (!fetched) return failed(kRootRole, version, fetched.error().text, kNoAnswer);
    if (!fetched->found) return false;
    auto root = nextRoot(*root_, fetched->bytes, options_.limits);
    if (!root) return base::failure(root.error());
    base::Check kept = remember(fetched->bytes, RootHistory(store_.rootHistory()));
    if (kept) kept = keep(kRootRole, version, fetched->bytes);
    if (!kept) return base::failure(kept.error());
    root_ = *std::move(root);
    return true;
}

/// Recovery from versions that a thief of the old keys made arbitrarily high.
base::Check Client::forgetWhatOldKeysSigned() {
    signedAt_ = 0;
    for (const char* role : {kTimestampRole, kSnapshotRole}) {
        if (const auto removed = store_.remove(role); !removed)
            return failed(role, 0, removed.error().text, kNoDisk);
    }
    return {};
}

base::Check Client::updateTimestamp() {
    const auto bytes = fetch(kTimestampRole, 0, fileName(kTimestampRole), options_.limits.timestamp);
    if (!bytes) return base::failure(bytes.error());
    auto timestamp = checkTimestamp(*root_, *bytes, timestamp_ ? &*timestamp_ : nullptr, options_.limits);
    if (!timestamp) return base::failure(timestamp.error());
    if (timestamp_ && timestamp->version == timestamp_->version)
        return requireFresh(kTimestampRole, *timestamp_, now());
    learnTime(*timestamp);
    base::Check good = requireFresh(kTimestampRole, *timestamp, now());
    if (good) good = keep(kTimestampRole, timestamp->version, *bytes);
    if (good) timestamp_ = *std::move(timestamp);
    return good;
}

base::Check Client::updateSnapshot() {
    const ListedFile& listed = timestamp_->snapshot;
    if (snapshot_ && requireListed(kSnapshotRole, snapshot_->content, snapshot_->bytes, listed, now()))
        return {};
    auto bytes = fetchListed(kSnapshotRole, listed, options_.limits.snapshot);
    if (!bytes) return base::failure(bytes.error());
    auto snapshot = checkSnapshot(*root_, *bytes, &listed, snapshot_ ? &snapshot_->content : nullptr, now(),
                                  options_.limits);
    if (!snapshot) return base::failure(snapshot.error());
    if (auto done = keep(kSnapshotRole, snapshot->version, *bytes); !done) return done;
    snapshot_ = Kept<Snapshot>{*std::move(snapshot), *std::move(bytes)};
    return {};
}

base::Check Client::updateTargets() {
    const ListedFile& listed = *snapshot_->content.fileOf(kTargetsRole);
    if (targets_ && requireListed(kTargetsRole, *targets_, targetsBytes_, listed, now())) return {};
    auto bytes = fetchListed(kTargetsRole, listed, options_.limits.targets);
    if (!bytes) return base::failure(bytes.error());
    auto targets = checkTargets(kTargetsRole, root_->keysOf(kTargetsRole), root_->keys, *bytes, &listed,
                                now(), options_.limits);
    if (!targets) return base::failure(targets.error());
    if (auto done = keep(kTargetsRole, targets->version, *bytes); !done) return done;
    delegated_.clear();
    targets_ = std::make_shared<const Targets>(*std::move(targets));
    targetsBytes_ = *std::move(bytes);
    return {};
}

base::Result<std::optional<TargetFile>> Client::find(const std::string& path) {
    if (!refreshed_)
        return failed(kTargetsRole, 0, "the metadata was not brought up to date", "refresh it first");
    return search(path, From::network);
}

base::Result<std::optional<TargetFile>> Client::findKept(const std::string& path) {
    if (!targets_) return failed(kTargetsRole, 0, "none is kept", "refresh the metadata");
    return search(path, From::store);
}

base::Result<std::optional<TargetFile>> Client::search(const std::string& path, From from) {
    struct Visit {
        SharedTargets parent;  ///< null for the top-level role
        const Delegation* delegation;
    };
    const std::string digest = digestOf("sha256", path).value_or("");
    std::set<std::string> visited;
    std::vector<Visit> pending{{nullptr, nullptr}};
    while (!pending.empty() && static_cast<int>(visited.size()) < options_.limits.roles) {
        const Visit visit = pending.back();
        pending.pop_back();
        if (!visited.insert(visit.delegation != nullptr ? visit.delegation->name : kTargetsRole).second)
            continue;
        SharedTargets role = targets_;
        if (visit.delegation != nullptr) {
            auto loaded = delegated(*visit.parent, *visit.delegation, from);
            if (!loaded) return base::failure(loaded.error());
            role = *std::move(loaded);
        }
        if (const auto found = role->files.find(path); found != role->files.end())
            return std::optional<TargetFile>(found->second);
        std::vector<Visit> next;
        for (const Delegation& delegation : role->delegations) {
            if (!delegation.covers(path, digest)) continue;
            next.push_back({role, &delegation});
            if (!delegation.terminating) continue;
            // What comes after it, here and in the roles above, has no say.
            pending.clear();
            break;
        }
        pending.insert(pending.end(), next.rbegin(), next.rend());
    }
    return std::optional<TargetFile>();
}

base::Result<Client::SharedTargets> Client::delegated(const Targets& parent, const Delegation& delegation,
                                                      From from) {
    const auto key = std::make_pair(&parent, delegation.name);
    if (const auto known = delegated_.find(key); known != delegated_.end()) return known->second;
    auto targets = readDelegated(parent, delegation, from);
    if (!targets) return base::failure(targets.error());
    auto shared = std::make_shared<const Targets>(*std::move(targets));
    if (from == From::network) delegated_.emplace(key, shared);
    return shared;
}

base::Result<Targets> Client::readDelegated(const Targets& parent, const Delegation& delegation, From from) {
    const std::string& role = delegation.name;
    const Limits& limits = options_.limits;
    const auto check = [&](const std::string& bytes, const ListedFile* listed, std::optional<Time> now) {
        return checkTargets(role, delegation.keys, parent.keys, bytes, listed, now, limits);
    };
    const auto known = kept(role, limits.targets);
    if (from == From::store) {
        if (!known) return failed(role, 0, "none is kept", "refresh the metadata");
        return check(*known, nullptr, std::nullopt);
    }
    const ListedFile* listed = snapshot_->content.fileOf(role);
    if (listed == nullptr)
        return failed(role, 0, "the snapshot does not list it", "have the repository's files written again");
    if (known) {
        if (auto targets = check(*known, listed, now())) return targets;
    }
    const auto bytes = fetchListed(role, *listed, limits.targets);
    if (!bytes) return base::failure(bytes.error());
    auto targets = check(*bytes, listed, now());
    if (!targets) return targets;
    if (const auto done = keep(role, targets->version, *bytes); !done) return base::failure(done.error());
    return targets;
}

std::string Client::downloadPath(const TargetFile& target) const {
    if (!root_ || !root_->consistentSnapshot || target.digests.empty())
        return percentEncodedPath(target.path);
    const auto name = target.path.rfind('/') + 1;  // 0 when there is no slash
    return percentEncodedPath(target.path.substr(0, name) + digestForName(target) + "." +
                              target.path.substr(name));
}

base::Result<std::string> Client::download(const TargetFile& target, Fetcher& targets) const {
    const auto refuse = [&](const std::string& cause) {
        return base::failure("target " + base::printable(target.path) + ": " + cause +
                             "; the mirror may lag: try again later or another one");
    };
    if (target.digests.empty()) return refuse("no digest is listed");
    if (target.length > options_.limits.download)
        return refuse("it is larger than " + std::to_string(options_.limits.download) + " bytes");
    auto fetched = targets.fetch(downloadPath(target), static_cast<std::size_t>(target.length));
    if (!fetched) return refuse(fetched.error().text);
    if (!fetched->found) return refuse("the server does not have it");
    if (const auto same = checkBytes(fetched->bytes, target.length, target.digests); !same)
        return refuse(same.error().text);
    return std::move(fetched->bytes);
}

std::vector<RoleState> Client::roles() const {
    std::vector<RoleState> states;
    const auto add = [&](const char* role, const Header& header) {
        states.push_back({role, header.version, header.expires, 0});
    };
    if (root_) add(kRootRole, *root_);
    if (timestamp_) {
        add(kTimestampRole, *timestamp_);
        states.back().signedAt = timestamp_->signedAt;
    }
    if (snapshot_) add(kSnapshotRole, snapshot_->content);
    if (targets_) add(kTargetsRole, *targets_);
    return states;
}

std::optional<std::string> Client::kept(const std::string& role, std::size_t maximum) {
    auto bytes = store_.read(role, maximum);
    return bytes ? *std::move(bytes) : std::nullopt;
}

base::Result<std::string> Client::fetch(const std::string& role, std::int64_t version,
                                        const std::string& path, std::size_t maximum) {
    auto fetched = fetcher_.fetch(path, maximum);
    if (!fetched) return failed(role, version, fetched.error().text, kNoAnswer);
    if (!fetched->found) return failed(role, version, "the server has no " + path, kNoAnswer);
    if (fetched->bytes.size() > maximum)
        return failed(role, version, "it is larger than " + std::to_string(maximum) + " bytes", kNoAnswer);
    return std::move(fetched->bytes);
}

base::Result<std::string> Client::fetchListed(const std::string& role, const ListedFile& listed,
                                              std::size_t limit) {
    const std::string path = root_->consistentSnapshot ? versionedName(role, listed.version) : fileName(role);
    const auto maximum = std::min<std::uint64_t>(listed.length.value_or(limit), limit);
    return fetch(role, listed.version, path, static_cast<std::size_t>(maximum));
}

base::Check Client::keep(const std::string& role, std::int64_t version, const std::string& bytes) {
    if (const auto done = store_.replace(role, bytes); !done)
        return failed(role, version, done.error().text, kNoDisk);
    return {};
}

}  // namespace zelor::trust

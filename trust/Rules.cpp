#include "trust/Rules.h"

#include "base/PrintableText.h"

namespace zelor::trust {

namespace {

constexpr const char* kForm = "what is kept stays in force; have the repository's files written again";
constexpr const char* kSigners =
    "what is kept stays in force; ask the publisher whether keys were replaced, and through which root";
constexpr const char* kOlder =
    "what is kept stays in force; the mirror may lag or replay old files: try another, or ask the publisher";
constexpr const char* kExpired =
    "ask the publisher to sign anew, or the mirror to catch up; and check this machine's clock";
constexpr const char* kMixed =
    "what is kept stays in force; the mirror has files of different publications: try again later or "
    "elsewhere";

tl::unexpected<base::Failure> refused(const std::string& role, std::int64_t version, const std::string& cause,
                                      const std::string& remedy) {
    return tl::unexpected<base::Failure>(roleFailure(role, version, cause, remedy));
}

std::string versionsText(std::int64_t offered, std::int64_t known) {
    return std::to_string(offered) + " is older than " + std::to_string(known);
}

std::string ageText(Time seconds) {
    const std::pair<Time, const char*> units[] = {{86400, "day"}, {3600, "hour"}, {60, "minute"}};
    for (const auto& [length, name] : units) {
        const Time count = seconds / length;
        if (count > 0) return std::to_string(count) + ' ' + name + (count == 1 ? " ago" : "s ago");
    }
    return "just now";
}

/// Reads a file and its content; the signatures are not looked at.
template <class Content>
base::Result<Content> open(const std::string& role, std::string_view bytes, std::size_t limit,
                           base::Result<Content> (*read)(const Json&), SignedFile& file) {
    auto opened = readSignedFile(bytes, limit);
    if (!opened) return refused(role, 0, opened.error().text, kForm);
    file = *std::move(opened);
    auto content = read(file.content);
    if (!content) return refused(role, file.version, content.error().text, kForm);
    return content;
}

base::Check requireSignatures(const std::string& role, const SignedFile& file, const RoleKeys& roleKeys,
                              const Keys& keys) {
    if (const auto good = checkSignatures(file.canonical, file.signatures, roleKeys, keys); !good)
        return refused(role, file.version, good.error().text, kSigners);
    return {};
}

base::Check requireFreshAt(const std::string& role, const Header& header, std::optional<Time> now) {
    return now ? requireFresh(role, header, *now) : base::Check();
}

base::Check requireListedBytes(const std::string& role, std::string_view bytes, const ListedFile* listed) {
    if (listed == nullptr) return {};
    if (const auto same = checkBytes(bytes, listed->length, listed->digests); !same)
        return refused(role, listed->version, same.error().text, kMixed);
    return {};
}

base::Check requireListedVersion(const std::string& role, std::int64_t version, const ListedFile* listed) {
    if (listed == nullptr || version == listed->version) return {};
    return refused(role, version, "version " + std::to_string(listed->version) + " is listed", kMixed);
}

base::Check requireNoOlderFiles(const Snapshot& snapshot, const Snapshot* trusted) {
    if (trusted == nullptr) return {};
    for (const auto& [name, known] : trusted->files) {
        const auto found = snapshot.files.find(name);
        if (found == snapshot.files.end())
            return refused(kSnapshotRole, snapshot.version, base::printable(name) + " is no longer listed",
                           kOlder);
        if (found->second.version < known.version)
            return refused(kSnapshotRole, snapshot.version,
                           "the listed version of " + base::printable(name) + ", " +
                               versionsText(found->second.version, known.version) + ", which is known",
                           kOlder);
    }
    return {};
}

base::Check requireNotOlder(const Timestamp& timestamp, const Timestamp* trusted) {
    if (trusted == nullptr || timestamp.version == trusted->version) return {};
    if (timestamp.version < trusted->version)
        return refused(kTimestampRole, timestamp.version,
                       "version " + versionsText(timestamp.version, trusted->version) + ", which is known",
                       kOlder);
    if (timestamp.snapshot.version < trusted->snapshot.version)
        return refused(kTimestampRole, timestamp.version,
                       "the listed version of the snapshot, " +
                           versionsText(timestamp.snapshot.version, trusted->snapshot.version) +
                           ", which is known",
                       kOlder);
    return {};
}

}  // namespace

base::Failure roleFailure(const std::string& role, std::int64_t version, const std::string& cause,
                          const std::string& remedy) {
    const std::string which = version > 0 ? ", version " + std::to_string(version) : "";
    return {"metadata role " + base::printable(role) + which + ": " + cause + "; " + remedy, 0};
}

base::Result<Root> configuredRoot(std::string_view bytes, const Limits& limits) {
    SignedFile file;
    auto root = open(kRootRole, bytes, limits.root, readRoot, file);
    if (!root) return root;
    if (const auto good = requireSignatures(kRootRole, file, root->keysOf(kRootRole), root->keys); !good)
        return tl::unexpected<base::Failure>(good.error());
    return root;
}

base::Result<Root> nextRoot(const Root& trusted, std::string_view bytes, const Limits& limits) {
    SignedFile file;
    auto root = open(kRootRole, bytes, limits.root, readRoot, file);
    if (!root) return root;
    for (const Root* signer : {&trusted, static_cast<const Root*>(&*root)}) {
        const auto good = requireSignatures(kRootRole, file, signer->keysOf(kRootRole), signer->keys);
        if (!good) return tl::unexpected<base::Failure>(good.error());
    }
    // Not trusted.version + 1, which the largest version does not have.
    if (root->version <= trusted.version || root->version - trusted.version != 1)
        return refused(kRootRole, root->version,
                       "it is not the version after " + std::to_string(trusted.version), kOlder);
    return root;
}

bool isSignedByRoot(const Root& signer, std::string_view bytes, const Limits& limits) {
    const auto file = readSignedFile(bytes, limits.root);
    return file && requireSignatures(kRootRole, *file, signer.keysOf(kRootRole), signer.keys);
}

base::Check requireFresh(const std::string& role, const Header& header, Time now) {
    if (header.expires > now) return {};
    return refused(role, header.version,
                   "it expired at " + timeText(header.expires) + ", " + ageText(now - header.expires),
                   kExpired);
}

base::Check requireListed(const std::string& role, const Header& header, std::string_view bytes,
                          const ListedFile& listed, Time now) {
    base::Check good = requireListedBytes(role, bytes, &listed);
    if (good) good = requireListedVersion(role, header.version, &listed);
    if (good) good = requireFresh(role, header, now);
    return good;
}

base::Result<Timestamp> checkTimestamp(const Root& root, std::string_view bytes, const Timestamp* trusted,
                                       const Limits& limits) {
    SignedFile file;
    auto timestamp = open(kTimestampRole, bytes, limits.timestamp, readTimestamp, file);
    if (!timestamp) return timestamp;
    auto good = requireSignatures(kTimestampRole, file, root.keysOf(kTimestampRole), root.keys);
    if (good) good = requireNotOlder(*timestamp, trusted);
    if (!good) return tl::unexpected<base::Failure>(good.error());
    return timestamp;
}

base::Result<Snapshot> checkSnapshot(const Root& root, std::string_view bytes, const ListedFile* listed,
                                     const Snapshot* trusted, std::optional<Time> now, const Limits& limits) {
    if (const auto same = requireListedBytes(kSnapshotRole, bytes, listed); !same)
        return tl::unexpected<base::Failure>(same.error());
    SignedFile file;
    auto snapshot = open(kSnapshotRole, bytes, limits.snapshot, readSnapshot, file);
    if (!snapshot) return snapshot;
    auto good = requireSignatures(kSnapshotRole, file, root.keysOf(kSnapshotRole), root.keys);
    if (good) good = requireListedVersion(kSnapshotRole, snapshot->version, listed);
    if (good) good = requireNoOlderFiles(*snapshot, trusted);
    if (good) good = requireFreshAt(kSnapshotRole, *snapshot, now);
    if (!good) return tl::unexpected<base::Failure>(good.error());
    return snapshot;
}

base::Result<Targets> checkTargets(const std::string& role, const RoleKeys& roleKeys, const Keys& keys,
                                   std::string_view bytes, const ListedFile* listed, std::optional<Time> now,
                                   const Limits& limits) {
    if (const auto same = requireListedBytes(role, bytes, listed); !same)
        return tl::unexpected<base::Failure>(same.error());
    SignedFile file;
    auto targets = open(role, bytes, limits.targets, readTargets, file);
    if (!targets) return targets;
    auto good = requireSignatures(role, file, roleKeys, keys);
    if (good) good = requireListedVersion(role, targets->version, listed);
    if (good) good = requireFreshAt(role, *targets, now);
    if (!good) return tl::unexpected<base::Failure>(good.error());
    return targets;
}

}  // namespace zelor::trust

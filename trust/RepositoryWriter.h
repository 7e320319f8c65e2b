#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/Result.h"
#include "trust/Metadata.h"
#include "trust/PrivateKey.h"

namespace zelor::trust {

/// The files of a repository by role, each the newest: "root", "timestamp", "snapshot", "targets" and bins.
using RoleFiles = std::map<std::string, std::string>;
/// Public keys as metadata has them, by role.
using PublicKeys = std::map<std::string, std::vector<Json>>;

/// One metadata file to put on the server.
struct NewFile {
    std::string name;  ///< such as "3.targets.json"
    std::string bytes;
};

/// Version and expiry of one role, and whether its keys sign it.
struct RoleStatus {
    std::string role;
    std::int64_t version = 0;
    Time expires = 0;
    bool isSigned = false;
};

/// How a repository is written.
struct WriterOptions {
    Time now = 0;
    /// How long a new file is good, in seconds by role; bins are as good as targets.
    std::map<std::string, Time> lifetimes = {{kRootRole, 365L * 86'400},
                                             {kTargetsRole, 180L * 86'400},
                                             {kSnapshotRole, 30L * 86'400},
                                             {kTimestampRole, 7L * 86'400}};
    std::vector<PrivateKey> keys;  ///< each signs where the root names it, and nowhere else
    std::size_t binsFrom = 2000;   ///< so many targets are divided into bins; they stay divided
};

/// The first root: these keys, each role with the threshold 1, signed by the root keys among
/// `options.keys`. Fails when a role has no key.
base::Result<std::string> firstRoot(const PublicKeys& keys, const WriterOptions& options);

/// A change of the keys of one role. Nothing to change: the root is only renewed.
struct RootChange {
    std::string role;
    std::vector<Json> add;         ///< public keys
    std::set<std::string> remove;  ///< key ids
    std::optional<std::int64_t> threshold;
};

/// The root after `root`, with the signatures of the root keys among `options.keys`, which may not be
/// enough. Fails on an unknown key id, and when fewer keys remain than the threshold.
base::Result<std::string> changedRoot(const std::string& root, const RootChange& change,
                                      const WriterOptions& options);

/// `next` with the signatures of those of `keys` that are root keys of `root` or of `next`.
base::Result<std::string> withRootSignatures(const std::string& root, const std::string& next,
                                             const std::vector<PrivateKey>& keys);

/// Whether clients that trust `root` take `next`.
base::Check requireNextRoot(const std::string& root, const std::string& next);

/// Writes the metadata of one repository, with consistent snapshots. Reaches neither disk nor network nor a
/// clock. Only what changes, what the root's keys do not sign, and what is in the second half of its life is
/// written again; the timestamp always is. A failure is one line that says what to do; after one, use
/// nothing of `written`. One thread at a time.
///
///     auto writer = RepositoryWriter::open(newestFiles, options);
///     writer->setTargets(files);
///     writer->seal();
///     for (const NewFile& file : writer->written()) ...   // the timestamp is the last one
class RepositoryWriter {
  public:
    /// Goes on from `files`, which hold at least a root. Fails when one of them is malformed; signatures of
    /// all but the root are looked at when it matters.
    static base::Result<RepositoryWriter> open(const RoleFiles& files, WriterOptions options);

    /// Whether the keys at hand are enough for a publication: those of targets, snapshot and timestamp.
    base::Check requireKeys() const;

    /// Makes `targets`, by path, the files of the repository. Fails without keys enough to sign them.
    base::Check setTargets(const std::map<std::string, TargetFile>& targets);

    /// The files of the repository as the targets role and the bins have them.
    std::map<std::string, TargetFile> targets() const;

    /// Signs the snapshot if it is due, and a new timestamp. Fails when the targets are not signed, or
    /// without keys enough. A snapshot that is due by its age alone, without its keys, is left as it is and
    /// named by `overdue`.
    base::Check seal();

    /// Signs also with keys that `root`, which clients may still have, names for a role.
    void signForToo(Root root) { other_ = std::move(root); }

    /// Whether a client that has `root` accepts the signatures of timestamp, snapshot and targets.
    bool isAcceptedBy(const Root& root) const;

    /// The root that the files are signed for.
    const Root& root() const { return root_; }
    /// Every role but the root, bins last.
    std::vector<RoleStatus> roles() const;
    /// The roles that should have been signed, and whose keys are not at hand.
    const std::vector<std::string>& overdue() const { return overdue_; }
    /// The files to put on the server, in that order.
    const std::vector<NewFile>& written() const { return written_; }
    /// The bytes of a role's newest file; "" when there is none.
    std::string bytesOf(const std::string& role) const;

  private:
    /// The newest file of a role.
    struct File {
        std::string bytes;
        SignedFile parsed;
        Header header;
    };
    /// A role's keys, and who they belong to.
    struct Signers {
        RoleKeys role;
        const Keys* keys;
    };

    base::Check take(const std::string& role, const std::string& bytes);
    base::Check put(const std::string& role, Json body, bool always = false);
    base::Check sign(const std::string& role, Json content);
    base::Check requireKeysOf(const std::string& role) const;
    bool isSigned(const std::string& role) const;
    std::vector<PrivateKey> signersOf(const std::string& role) const;
    const RoleKeys& keysOf(const std::string& role) const;
    Json listed(const std::string& role, bool withDigests) const;
    Json delegations() const;
    bool hasBins() const;

    Json rootContent_;
    Root root_;
    std::optional<Root> other_;
    WriterOptions options_;
    std::map<std::string, File> files_;
    std::vector<NewFile> written_;
    std::vector<std::string> overdue_;
};

/// The name of the bin that a target is in: "bins-" and the first two digits of the digest of its path.
std::string binOf(const std::string& path);
/// The same of the names of all bins, in order.
std::vector<std::string> binNames();

/// The name of a role's file on a server with consistent snapshots.
std::string metadataName(const std::string& role, std::int64_t version);

/// The name of a target's file on such a server: the SHA-256 digest before the last part of the path.
std::string consistentName(const std::string& path, const std::string& sha256);

}  // namespace zelor::trust

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"
#include "trust/Digests.h"
#include "trust/Json.h"
#include "trust/Keys.h"
#include "trust/Time.h"

/// The four kinds of metadata, read from bytes that nobody has checked. Reading checks only the form; who
/// signed and what is newer is decided in trust/Rules.h.
namespace zelor::trust {

/// The names of the top-level roles.
constexpr const char* kRootRole = "root";
constexpr const char* kTimestampRole = "timestamp";
constexpr const char* kSnapshotRole = "snapshot";
constexpr const char* kTargetsRole = "targets";

/// What every kind has.
struct Header {
    std::int64_t version = 1;  ///< 1 and up
    Time expires = 0;
};

/// The keys of the four roles.
struct Root : Header {
    bool consistentSnapshot = false;  ///< file names on the server have a version or a digest before them
    Keys keys;
    std::map<std::string, RoleKeys> roles;  ///< the four roles at least

    /// Those of one of the four roles.
    const RoleKeys& keysOf(const std::string& role) const { return roles.at(role); }
};

/// What one metadata file says of another.
struct ListedFile {
    std::int64_t version = 1;
    std::optional<std::uint64_t> length;  ///< bytes
    Digests digests;                      ///< may be empty
};

/// Which snapshot is the newest.
struct Timestamp : Header {
    ListedFile snapshot;
    Time signedAt = 0;  ///< what "signed_at" says, an addition to the format; 0 without one before the expiry
};

/// Which targets files belong together.
struct Snapshot : Header {
    std::map<std::string, ListedFile> files;  ///< by file name, such as "targets.json"

    /// The entry of a role; null when there is none.
    const ListedFile* fileOf(const std::string& role) const;
};

/// One file that can be downloaded.
struct TargetFile {
    std::string path;  ///< relative, with slashes; never leads upwards
    std::uint64_t length = 0;
    Digests digests;     ///< at least one
    std::string custom;  ///< the "custom" object as JSON text, "" when there is none
};

/// Another role, trusted with some of the targets.
struct Delegation {
    std::string name;
    RoleKeys keys;
    std::vector<std::string> patterns;        ///< for pathMatches
    std::vector<std::string> digestPrefixes;  ///< of the SHA-256 digest of the path
    bool terminating = false;

    /// Whether the role is trusted with `path`, whose SHA-256 digest is `digest`.
    bool covers(const std::string& path, const std::string& digest) const;
};

/// The files of one role and the roles that it trusts, in the order of their precedence.
struct Targets : Header {
    std::map<std::string, TargetFile> files;
    Keys keys;
    std::vector<Delegation> delegations;
};

/// A metadata file: what is signed, and the signatures.
struct SignedFile {
    Json content;
    std::string canonical;  ///< the bytes that are signed
    std::vector<Signature> signatures;
    std::int64_t version = 0;  ///< for messages; 0 when the file does not say
};

/// Reads a file of at most `limit` bytes. Fails when it is no such JSON, or has two signatures by one key id.
base::Result<SignedFile> readSignedFile(std::string_view bytes, std::size_t limit);

/// Each fails when the content is of another kind, of another major version of the format, or malformed.
base::Result<Root> readRoot(const Json& content);
base::Result<Timestamp> readTimestamp(const Json& content);
base::Result<Snapshot> readSnapshot(const Json& content);
base::Result<Targets> readTargets(const Json& content);

}  // namespace zelor::trust

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "trust/Metadata.h"

/// What is trusted: pure functions from what is trusted already and the bytes that somebody served. A failure
/// is one line with role, version, cause and remedy.
namespace zelor::trust {

/// The most bytes of each kind of file, for one whose length is not listed.
struct Limits {
    std::size_t root = 512U << 10U;
    std::size_t timestamp = 64U << 10U;
    std::size_t snapshot = 4U << 20U;
    std::size_t targets = 16U << 20U;
    std::size_t download = 64U << 20U;  ///< a target that the client itself downloads
    int roots = 1024;                   ///< new versions of the root in one refresh
    int roles = 32;                     ///< roles that the search for one target visits
};

/// A failure for the log: the role, its version unless 0, the cause, and what to do.
base::Failure roleFailure(const std::string& role, std::int64_t version, const std::string& cause,
                          const std::string& remedy);

/// A root that is trusted because of where it comes from: signed by its own keys, of any age.
base::Result<Root> configuredRoot(std::string_view bytes, const Limits& limits);

/// The root after `trusted`: signed by the root keys of both, and of the next version. It may have expired.
base::Result<Root> nextRoot(const Root& trusted, std::string_view bytes, const Limits& limits);

/// Whether as many root keys of `signer` as it asks for signed the root in `bytes`.
bool isSignedByRoot(const Root& signer, std::string_view bytes, const Limits& limits);

/// Fails when the file of `role` has expired at `now`.
base::Check requireFresh(const std::string& role, const Header& header, Time now);

/// Whether a file of `role` that was accepted before, made of `bytes`, is the one that is listed, and fresh.
base::Check requireListed(const std::string& role, const Header& header, std::string_view bytes,
                          const ListedFile& listed, Time now);

/// A signed timestamp of any age. When `trusted` is given it may not be older than that, nor may the snapshot
/// that it names, unless both are the same version: then `trusted` is the one to use.
base::Result<Timestamp> checkTimestamp(const Root& root, std::string_view bytes, const Timestamp* trusted,
                                       const Limits& limits);

/// A snapshot that is signed and, at `now` if given, has not expired; with `listed`, the one that the
/// timestamp names. When `trusted` is given, it names all files of that, none in an older version.
base::Result<Snapshot> checkSnapshot(const Root& root, std::string_view bytes, const ListedFile* listed,
                                     const Snapshot* trusted, std::optional<Time> now, const Limits& limits);

/// A targets file of `role` that is signed by those keys and, at `now` if given, has not expired; with
/// `listed`, the one that the snapshot names.
base::Result<Targets> checkTargets(const std::string& role, const RoleKeys& roleKeys, const Keys& keys,
                                   std::string_view bytes, const ListedFile* listed, std::optional<Time> now,
                                   const Limits& limits);

}  // namespace zelor::trust

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace zelor::authoring {

/// How one archive was published: from what, with which key, and which files that left in the repository.
struct PublishedPatch {
    std::string source;        ///< hexadecimal SHA-256 of what was signed
    std::string key;           ///< fingerprint
    std::string archiveStamp;  ///< as `fileStamp` gives it
    std::string signatureStamp;
    std::string archiveSha256{};    ///< hexadecimal; "" when it was published by an earlier version
    std::int64_t unnamedSince = 0;  ///< seconds since 1970; 0 while content names it

    /// Compares what was published; ignores `unnamedSince`.
    bool operator==(const PublishedPatch& other) const;
};

/// Published archives by patch id.
using PublishedPatches = std::map<std::string, PublishedPatch>;

/// What a repository holds, as its publications left it.
struct PublishState {
    PublishedPatches patches;                    ///< by patch id
    std::map<std::string, std::string> entries;  ///< identifier to the path of the manifest that published it
    /// ERI id to the hexadecimal SHA-256 of its file. Ids stay when their entry is withdrawn, as they stay in
    /// the records of machines.
    std::map<std::string, std::string> eris;
};

/// The path of a repository's state file.
std::string publishStateFile(const std::string& repository);

/// "BYTES-SECONDS.NANOSECONDS" of size and modification time; "" when there is no such regular file.
std::string fileStamp(const std::string& path);

/// Reads a state file; a missing or damaged one gives an empty state, and everything is written again.
PublishState readPublishState(const std::string& path);
/// Replaces the state file. Throws std::runtime_error that names it.
void writePublishState(const std::string& path, const PublishState& state);

/// Notes which published archives no content names any more, and removes those that nobody has named for a
/// day (with `atOnce`: all of them) and that are there as they were published. Nothing is removed while
/// some content cannot be read. Returns how many were; `removed` is called with the path of each.
std::size_t removeRetiredPatches(const std::string& repository, bool atOnce, PublishedPatches& patches,
                                 const std::function<void(const std::string&)>& removed);

}  // namespace zelor::authoring

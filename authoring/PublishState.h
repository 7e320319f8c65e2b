#pragma once

#include <map>
#include <string>

namespace zelor {

/// How one archive was published: from what, with which key, and what then stood in the repository.
struct PublishedPatch {
    std::string source;        ///< hexadecimal SHA-256 of what was signed
    std::string key;           ///< fingerprint
    std::string archiveStamp;  ///< as `fileStamp` gives it
    std::string signatureStamp;

    bool operator==(const PublishedPatch& other) const;
};

/// Patch id to how it was published.
using PublishState = std::map<std::string, PublishedPatch>;

/// "BYTES-SECONDS.NANOSECONDS" of size and modification time; "" when there is no such regular file.
std::string fileStamp(const std::string& path);

/// A missing or damaged state reads as an empty one: everything is then written anew.
PublishState readPublishState(const std::string& path);
void writePublishState(const std::string& path, const PublishState& state);

}  // namespace zelor

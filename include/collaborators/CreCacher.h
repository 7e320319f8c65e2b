#pragma once

#include <string>

#include "base/Export.h"
#include "remediation/parseOnlyMetadata.h"

/// The agent's cache of remediation content (CREs with their ERI blocks).
class ZELOR_API CreCacher {
  public:
    /// The cache of the agent installed in `installPath`; never null, valid until the process ends. Any
    /// thread.
    static CreCacher* GetInstance(std::string installPath, std::string platformCpe);

    /// The content for one identifier on one platform and product. On any failure the result's
    /// `getParsingFailed()` is true; nothing is thrown. May block on the network.
    parseOnlyMetadata getCre(std::string platformCpe, std::string productCpe, std::string cveOrCceId);

    /// Removes the content from memory, so that the next `getCre` reads it again.
    void removeCreFromCache(std::string platformCpe, std::string productCpe, std::string cveOrCceId);

    /// Deletes the content's file on disk. An agent with a signed index of the repository may keep the bytes,
    /// which then count only while the index lists them. A missing file is not a failure.
    void removeCreFile(std::string platformCpe, std::string productCpe, std::string cveOrCceId);

  private:
    std::string installPath_;
};

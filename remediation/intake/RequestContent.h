#pragma once

#include <string>

#include "remediation/parseOnlyMetadata.h"
#include "remediation/remediateMetadata.h"

namespace zelor::remediation {

/// The remediation content of requests, in the agent's cache. One thread at a time.
class RequestContent {
  public:
    /// Both outlive the object: the agent's install directory, and the system's platform CPE.
    RequestContent(const std::string& installPath, const std::string& platformCpe)
        : installPath_(installPath), platformCpe_(platformCpe) {}
    RequestContent(const RequestContent&) = delete;
    RequestContent& operator=(const RequestContent&) = delete;

    /// The content for the CPEs and identifier of a row; may fetch it, and so block. Its parsing flag says
    /// whether there is any; if not, the call report has the reason.
    parseOnlyMetadata get(const std::string& platformCpe, const std::string& productCpe,
                          const std::string& identifier);
    /// Frees the content of a row that has been applied and needs it no more.
    void drop(remediateMetadata& row);

  private:
    const std::string& installPath_;
    const std::string& platformCpe_;
};

}  // namespace zelor::remediation

#pragma once

#include <string>

#include "base/Export.h"

/// Measures the bandwidth between this machine and the remediation repository.
class ZELOR_API DownloadManager {
  public:
    /// For the agent installed in `installPath`. `useProxy`: through the agent's
    /// proxy, if it has one.
    DownloadManager(std::string installPath, bool useProxy);

    /// The measured download speed in bytes per second. `status` becomes the HTTP status of the measuring
    /// transfer: 200 when the speed is usable, another value (0: no answer) when it is not.
    unsigned long GetDownloadSpeed(int& status);
};

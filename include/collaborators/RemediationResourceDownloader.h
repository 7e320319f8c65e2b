#pragma once

#include <string>

#include "base/Export.h"

/// The agent's downloader of patches and scripts from the remediation repository.
class ZELOR_API RemediationResourceDownloader {
  public:
    /// The process-wide downloader; never null, valid until the process ends. Any thread.
    static RemediationResourceDownloader* GetInstance();

    /// Fetches the archive of the resource `stem` + `extension`.
    /// `archivePath`: in, where the archive should be stored; out, where it is.
    /// `bytesPerSecond`: the rate to keep when `rateLimited`, else ignored.
    /// Returns 0 when the complete archive is at `archivePath`, another value when it is not. Blocks; called
    /// on a boost::thread it may stop early when that thread is interrupted.
    int getResource(std::string stem, std::string& archivePath, std::string extension,
                    std::string installPath, bool rateLimited, unsigned long bytesPerSecond);
};

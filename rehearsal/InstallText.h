#pragma once

#include <string>

#include "rehearsal/UpdateText.h"

/// What installer prints: texts from values, nothing here touches a file.
namespace zelor::rehearsal {

/// How an installation ended.
enum class InstallEnd { success, failed, scriptFailed, extractionFailed };

/// What to report about an installation.
struct InstallReport {
    std::string title;
    bool upgrade = false;
    bool restart = false;
    InstallEnd end = InstallEnd::success;
    std::string component;  ///< the package that failed
};

/// The output of an installation, with status 0 or 1; that for a file which is not a package.
ToolText installText(const InstallReport& report);
ToolText notAPackageText(const std::string& path);

}  // namespace zelor::rehearsal

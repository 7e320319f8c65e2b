#pragma once

#include <string>

#include "rehearsal/UpdateText.h"

/// What installer prints.
namespace zelor::rehearsal {

/// What became of an installation.
enum class InstallEnd { success, failed, scriptFailed, extractionFailed };

struct InstallReport {
    std::string title;
    bool upgrade = false;
    bool restart = false;
    InstallEnd end = InstallEnd::success;
    std::string component;  ///< the package that failed
};

ToolText installText(const InstallReport& report);
ToolText notAPackageText(const std::string& path);

}  // namespace zelor::rehearsal

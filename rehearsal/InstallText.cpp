#include "rehearsal/InstallText.h"

namespace zelor::rehearsal {

namespace {

std::string reason(const InstallReport& report) {
    std::string text =
        "The Installer encountered an error that caused the installation to fail. Contact the software "
        "manufacturer for assistance.";
    const std::string quoted = "\u201c" + report.component + "\u201d.";
    if (report.end == InstallEnd::scriptFailed) {
        text += " An error occurred while running scripts from the package " + quoted;
    } else if (report.end == InstallEnd::extractionFailed) {
        text += " An error occurred while extracting files from the package " + quoted;
    }
    return text;
}

}  // namespace

ToolText installText(const InstallReport& report) {
    ToolText text;
    text.out =
        "installer: Package name is " + report.title + "\n" +
        (report.upgrade ? "installer: Upgrading at base path /\n" : "installer: Installing at base path /\n");
    const std::string kind = report.upgrade ? "upgrade" : "install";
    if (report.end != InstallEnd::success) {
        text.out += "installer: The " + kind + " failed. (" + reason(report) + ")\n";
        text.status = 1;
        return text;
    }
    text.out += "installer: The " + kind + " was successful.\n";
    if (report.restart) text.out += "installer: The install requires restarting now.\n";
    return text;
}

ToolText notAPackageText(const std::string& path) {
    return {"", "installer: Error - the package path specified was invalid: '" + path + "'.\n", 1};
}

}  // namespace zelor::rehearsal

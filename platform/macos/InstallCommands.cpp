#include "platform/macos/InstallCommands.h"

#include "base/Strings.h"

namespace zelor::platform {

std::string scriptCommand(const std::string& path) {
    return "/bin/bash " + base::shellWord(path);
}

std::string installUpdateCommand(const std::string& label) {
    return "softwareupdate -i '" + base::insideSingleQuotes(label) + "' 2>&1";
}

std::string installPackageCommand(const std::string& packagePath) {
    return "installer -pkg '" + base::insideSingleQuotes(packagePath) + "' -target / 2>&1";
}

std::string attachCommand(const std::string& mountPoint, const std::string& imagePath) {
    return "hdiutil attach -nobrowse -mountPoint " + base::shellWord(mountPoint) + " '" +
           base::insideSingleQuotes(imagePath) + "' 2>&1 > /dev/null";
}

std::string detachCommand(const std::string& mountPoint) {
    return "hdiutil detach " + base::shellWord(mountPoint) + " 2>&1";
}

std::string silentInstallerCommand(const std::string& bundlePath, const std::string& option) {
    return "'" + base::insideSingleQuotes(bundlePath) + "'/" + option + " 2>&1 && echo \"Success\"";
}

std::string bundleInstallerCommand(const std::string& installerPath) {
    // The closing quote has no opening one. Published content relies on exactly this text.
    return base::shellWord(installerPath) + "' -install 2>&1";
}

bool packageWasInstalled(const std::string& output) {
    return base::contains(output, "successful");
}

bool bundleInstallerSucceeded(const std::string& output) {
    return output.empty() || base::contains(output, "Success");
}

bool imageWasEjected(const std::string& output) {
    return base::contains(output, "ejected");
}

std::string nothingOnImage(const std::string& found, bool wasThere, const std::string& attachOutput) {
    const std::string said = base::lastLine(attachOutput);
    const std::string why = "the image was not attached" + (said.empty() ? "" : ": " + said);
    if (wasThere)
        return why + "; '" + found + "' of another image, which cannot be detached, was taken in its place";
    if (!found.empty()) return "";
    return said.empty() ? "there is no .app and no .pkg on the image" : why;
}

}  // namespace zelor::platform

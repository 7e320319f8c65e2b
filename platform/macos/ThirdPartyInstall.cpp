#include <sys/stat.h>

#include <algorithm>

#include "base/Mutex.h"
#include "base/Strings.h"
#include "base/SystemRoot.h"
#include "base/TrustedDirectory.h"
#include "platform/Log.h"
#include "platform/ShellCommand.h"
#include "platform/macos/InstallCommands.h"
#include "platform/macos/InstallerKinds.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/CallReport.h"

namespace zlog = zelor::log;

namespace {

using zelor::platform::InstallMethod;

// All managers share one mount point: locked from the first detach to the last.
zelor::base::Mutex& mountPointMutex() {
    static zelor::base::Mutex mutex;
    return mutex;
}

// Files there would be installed instead of those of an image that cannot be attached.
zelor::base::Check checkMountPoint(const std::string& mountPoint) {
    struct stat here {};
    struct stat above {};
    const bool known =
        lstat(mountPoint.c_str(), &here) == 0 && stat((mountPoint + "/..").c_str(), &above) == 0;
    if (known && S_ISDIR(here.st_mode) && here.st_dev != above.st_dev) return {};  // an image still in use
    return zelor::base::prepareDirectory(mountPoint);
}

/// The entry of a mount point that is installed, and which file that is; no name: there is none.
struct Installable {
    std::string name;
    dev_t device = 0;
    ino_t inode = 0;
};

Installable installableOf(const std::vector<std::string>& names, const std::string& mountPoint) {
    const auto found = std::find_if(names.begin(), names.end(), zelor::platform::kindOnImage);
    if (found == names.end()) return {};
    struct stat info {};
    if (lstat((mountPoint + "/" + *found).c_str(), &info) != 0) return {*found};
    return {*found, info.st_dev, info.st_ino};
}

void warnOfNothing(const std::string& why) {
    zlog::info("[MacPatchManager] (Install3rdParty) Nothing was installed: ", why);
    zelor::CallReport::addWarning(why);
}

void reportFailure(const std::string& output) {
    const std::string said = zelor::base::lastLine(output);
    zelor::CallReport::addReason(said.empty() ? "the installer said nothing" : said);
    zelor::CallReport::setOutput(output);
}

}  // namespace

int MacPatchManager::install3rdPartyPatch(std::string path, std::string packageName, std::string kind) {
    zlog::info("[MacPatchManager] (Install3rdParty) Application name = ", path, " Type = ", kind);
    const zelor::platform::InstallerKind* const known = zelor::platform::installerKindNamed(kind);
    if (known == nullptr) return -1;
    switch (known->method) {
        case InstallMethod::installPackage:
            return pkgInstallation(path);
        case InstallMethod::mountImage:
            return dmgInstallation(path, packageName);
        case InstallMethod::copyBundle:
            break;
    }
    return appInstallation(path, underSystemRoot(APPFOLDER));
}

int MacPatchManager::pkgInstallation(std::string pkgPath) {
    zlog::info("[MacPatchManager] (Install3rdParty) Installing pkg Application");
    const std::string output = getCmdlineOutput(zelor::platform::installPackageCommand(pkgPath));
    if (zelor::platform::packageWasInstalled(output)) {
        zlog::info("[MacPatchManager] The pkg remediation succeeded !!");
        return 0;
    }
    reportFailure(output);
    if (zelor::base::contains(output, "No such update")) {
        zlog::info("[MacPatchManager] No updates are available.");
        return -1;
    }
    zlog::error("[MacPatchManager] The pkg remediation failed = ", output);
    return -1;
}

int MacPatchManager::dmgInstallation(std::string dmgPath, std::string packageName) {
    (void)packageName;
    const zelor::base::MutexLock lock(mountPointMutex());
    const std::string mountPoint = underSystemRoot(zelor::platform::kDiskImageMountPoint);
    const std::string detach = zelor::platform::detachCommand(mountPoint);
    getCmdlineOutput(detach);  // detaches an image that an earlier run left mounted
    if (const zelor::base::Check usable = checkMountPoint(mountPoint); !usable) {
        const std::string& problem = usable.error().text;
        zlog::error("[MacPatchManager] (Install3rdParty) The mount point '", mountPoint,
                    "' is refused: ", problem);
        zelor::CallReport::addReason("the mount point '" + mountPoint + "' is refused: " + problem);
        return -1;
    }
    const Installable before = installableOf(listFilesInDirectory(mountPoint), mountPoint);
    const std::string said = getCmdlineOutput(zelor::platform::attachCommand(mountPoint, dmgPath));
    zlog::debug("[MacPatchManager] (Install3rdParty) Application mount point  = ", mountPoint);
    const Installable found = installableOf(listFilesInDirectory(mountPoint), mountPoint);
    if (!found.name.empty()) {
        const std::string path = mountPoint + "/" + found.name;
        const int result = zelor::platform::kindOnImage(found.name)->method == InstallMethod::copyBundle
                               ? absAppInstallation(path, found.name)
                               : pkgInstallation(path);
        if (result != 0) {
            getCmdlineOutput(detach);
            return -1;
        }
    }
    const bool wasThere = found.inode != 0 && found.inode == before.inode && found.device == before.device;
    const std::string nothing = zelor::platform::nothingOnImage(found.name, wasThere, said);
    if (!nothing.empty()) warnOfNothing(nothing);
    if (zelor::platform::imageWasEjected(getCmdlineOutput(detach))) {
        zlog::info("[MacPatchManager] Installation SUCCESS!! Disk unmounted successfully!!");
    } else {
        zlog::info("[MacPatchManager] Installation SUCCESS!! Error in disk unmounting!!");
    }
    return 0;
}

int MacPatchManager::absAppInstallation(std::string appPath, std::string appName) {
    zlog::debug("[MacPatchManager] (Install3rdParty) Application Path  = ", appPath);
    if (useInstallOption_) return appInstaller(appPath);
    return appInstallation(appPath, underSystemRoot(APPFOLDER) + appName);
}

int MacPatchManager::appInstallation(std::string source, std::string destination) {
    zlog::info("[MacPatchManager] (Install3rdParty) Installing .app Application");
    if (source.empty() && destination.empty()) return -1;
    if (!copyDir(source, destination)) {
        zlog::error("[MacPatchManager] Error occured while remediating!!");
        zelor::CallReport::addReason("the bundle was not copied to " + destination);
        return -1;
    }
    zlog::info("[MacPatchManager] The application is successfully remediated!!");
    return 0;
}

int MacPatchManager::appInstaller(std::string appPath) {
    zlog::info("[MacPatchManager] (Install3rdParty) Installing .app Application");
    std::string command;
    if (silentModeOption_.empty()) {
        const std::string directory = appPath + "/Contents/MacOS/";
        const std::vector<std::string> names = listFilesInDirectory(directory);
        const auto first = std::find_if(names.begin(), names.end(),
                                        [](const std::string& name) { return name != "." && name != ".."; });
        if (first == names.end()) {
            zlog::error("[MacPatchManager] (Install3rdParty) The bundle has no installer in ", directory);
            zelor::CallReport::addReason("the bundle has no installer in " + directory);
            return -1;
        }
        command = zelor::platform::bundleInstallerCommand(directory + *first);
    } else {
        command = zelor::platform::silentInstallerCommand(appPath, silentModeOption_);
    }
    zlog::debug("[MacPatchManager] Executing ", command);
    const std::string output = getCmdlineOutput(command);
    if (!zelor::platform::bundleInstallerSucceeded(output)) {
        zlog::debug("[MacPatchManager] The application error log = ", output);
        reportFailure(output);
        return -1;
    }
    if (output.empty() && zelor::platform::isSyntaxError(command))
        warnOfNothing("the shell cannot parse the command of the bundle's installer, so it ran nothing");
    zlog::debug("[MacPatchManager] The application is successfully remediated !!");
    return 0;
}

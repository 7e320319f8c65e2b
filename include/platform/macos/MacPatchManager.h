#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/property_tree/ptree.hpp>
#include <boost/thread/mutex.hpp>
#include <string>
#include <vector>

#include "base/Export.h"

/// The agent's ini file and the key of the current OS name in it.
inline constexpr char MPMZELORINIFILE[] = "/etc/zelor/zelor.ini";
inline constexpr char MPMPROFILEID[] = "ScanManager.ProfileId";
/// The agent's build file (INI syntax) and the key of the current platform in it.
inline constexpr char MPMBUILDFILE[] = "/etc/zelor/build";
inline constexpr char MPMPLATFORM[] = "platform";
/// Where application bundles are copied to.
inline constexpr char APPFOLDER[] = "/Applications/";
inline constexpr bool isAppInstaller = false;

/// Installs on macOS: OS updates, application bundles, packages, disk images, hardening scripts; and knows
/// the machine's identity. One thread at a time; its commands block. No operation throws. Operations that
/// return an int give 0 on success and -1 on failure.
class ZELOR_API MacPatchManager {
  public:
    /// Reads the current OS name and platform from the agent's files.
    MacPatchManager();
    ~MacPatchManager();
    MacPatchManager(const MacPatchManager&) = delete;
    MacPatchManager& operator=(const MacPatchManager&) = delete;

    /// The platform CPE of the running system by its product name; "" when the name cannot be read.
    static std::string getSystemPlatformCpe();
    /// Reads both agent files again; a missing file or key gives "".
    void queryAndStoreCurrentOsName();
    /// The value under a dotted key ("Section.Key", or "Key" outside any section), or "". A malformed file
    /// reads as one without keys.
    std::string readValueFromIniFile(std::string iniFile, std::string key);
    std::string getValueFromIni(std::string key, boost::property_tree::ptree tree);
    /// The path, with arguments, of the unattended installer inside the next bundle.
    void setSilentModeOption(std::string option);
    /// True: a bundle on a disk image is installed by its own installer instead of being copied.
    void setInstallOption(bool useInstaller);

    /// Runs the hardening script at `path`.
    int applyConfig(std::string path);
    /// Installs the listed OS updates that belong to the package name.
    int installOSPatch(std::string packageName);
    /// Installs a verified patch file; `kind` is that of its installer, like "pkg".
    int install3rdPartyPatch(std::string path, std::string packageName, std::string kind);
    int pkgInstallation(std::string pkgPath);
    /// Mounts, installs and unmounts. The images of a process take turns, since they share the mount point.
    int dmgInstallation(std::string dmgPath, std::string packageName);
    /// Copies the bundle directory `source` to `destination`.
    int appInstallation(std::string source, std::string destination);
    /// Installs the bundle `appName` that was found at `appPath` on a disk image.
    int absAppInstallation(std::string appPath, std::string appName);
    /// Runs the bundle's own installer.
    int appInstaller(std::string appPath);
    /// Copies a directory tree with modes, times and symbolic links, replacing files that exist and leaving
    /// all others in the destination as they are. A symbolic link at the destination is replaced, and a
    /// directory in the place of a copied link removed; directly in the applications directory neither is
    /// done, and the copy fails. False on the first failure.
    bool copyDir(boost::filesystem::path source, boost::filesystem::path destination);
    /// Names of the directory's entries in the file system's order, "." and ".." included; empty on failure.
    std::vector<std::string> listFilesInDirectory(std::string dir);
    /// Deletes files and empty directories directly inside `dir`; what cannot be deleted is logged and stays.
    void emptyTheContentDirectory(std::string dir);

    /// The whole standard output of a shell command, "" when it cannot be started.
    std::string getCmdlineOutput(std::string command);
    /// The lines of a shell command's standard output that contain "*", line ends included. A line of 2,000
    /// bytes or more comes in pieces.
    std::vector<std::string> getOsCmdline(std::string command);

  private:
    bool useInstallOption_ = false;
    std::string currentOsName_;
    std::string currentPlatform_;
    std::string silentModeOption_;
    boost::mutex mutex_;
};

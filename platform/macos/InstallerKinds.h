#pragma once

#include <string>
#include <vector>

/// What can be installed: one table for runs, for plans and for checks of published patches.
namespace zelor::platform {

/// How a file is installed.
enum class InstallMethod {
    copyBundle,      ///< copied to the applications directory
    installPackage,  ///< by the system's installer
    mountImage       ///< mounted; the first bundle or package on it is installed
};

/// A row of the table. Rows live as long as the process.
struct InstallerKind {
    const char* name;    ///< as `MacPatchManager::install3rdPartyPatch` takes it
    const char* marker;  ///< a path of this kind contains it anywhere
    InstallMethod method;
    bool isCompressed;  ///< an archive cannot make it smaller
};

/// The kind of the first row whose marker occurs anywhere in the path; null when no installer takes it.
const InstallerKind* installerKindOf(const std::string& path);
/// True when the path is of a kind that is installed so.
bool isInstalledBy(InstallMethod method, const std::string& path);
/// Null for a name that no kind has.
const InstallerKind* installerKindNamed(const std::string& name);
/// The kind of a file on a mounted image, by its ending; null for what is not installed from there.
const InstallerKind* kindOnImage(const std::string& fileName);

/// ".app, .pkg or .dmg"
std::string installableText();
/// ".app or .pkg"
std::string installableOnImageText();
/// ".pkg or .dmg": what is a file, not a bundle's directory.
std::string installableFileText();

/// An installation that a plan shows.
struct Installation {
    std::string path;
    std::string mountPoint;
    std::string applications;  ///< where bundles go
    bool usesBundleInstaller = false;
    std::string silentOption;  ///< the bundle's own installer with its arguments
};

/// What an installation does, for a plan to show.
struct InstallerSteps {
    std::vector<std::string> commands;  ///< in order
    std::string note;                   ///< what happens besides the commands
    bool readsSuccessUnseen = false;    ///< reports success even when there was nothing to install
};

/// The steps that a run takes for this installation; runs none of them.
InstallerSteps installerSteps(const InstallerKind& kind, const Installation& installation);

}  // namespace zelor::platform

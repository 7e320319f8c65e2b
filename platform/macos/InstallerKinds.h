#pragma once

#include <string>
#include <vector>

/// What can be installed: one table for a run, for a plan of it and for checks of what is published.
namespace zelor::platform {

enum class InstallMethod {
    copyBundle,      ///< copied to the applications directory
    installPackage,  ///< by the system's installer
    mountImage       ///< mounted; the first bundle or package on it is installed
};

struct InstallerKind {
    const char* name;    ///< as `MacPatchManager::install3rdPartyPatch` takes it
    const char* marker;  ///< what a path of this kind holds, anywhere
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

/// What a plan is to show of an installation.
struct Installation {
    std::string path;
    std::string mountPoint;
    std::string applications;  ///< where bundles go
    bool usesBundleInstaller = false;
    std::string silentOption;  ///< the bundle's own installer with its arguments
};

struct InstallerSteps {
    std::vector<std::string> commands;  ///< in their order
    std::string note;                   ///< what happens beside them
    bool readsSuccessUnseen = false;    ///< also when nothing was there to be installed
};

InstallerSteps installerSteps(const InstallerKind& kind, const Installation& installation);

}  // namespace zelor::platform

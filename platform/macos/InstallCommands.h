#pragma once

#include <string>

/// The shell commands of an installation, as text, and how to read their output.
namespace zelor::platform {

/// Lists the updates that the system is offered; prints the system's version, such as "10.10.5".
inline constexpr char kListUpdatesCommand[] = "softwareupdate -l 2>&1";
inline constexpr char kProductVersionCommand[] = "sw_vers -productVersion";
/// Where disk images are mounted, below the system root.
inline constexpr char kDiskImageMountPoint[] = "/var/zelor/mountpoint";

/// As a shell would run a hardening script.
std::string scriptCommand(const std::string& path);
std::string installUpdateCommand(const std::string& label);
std::string installPackageCommand(const std::string& packagePath);
std::string attachCommand(const std::string& mountPoint, const std::string& imagePath);
std::string detachCommand(const std::string& mountPoint);
/// Runs the unattended installer inside a bundle: `option` is its path there, with arguments, and is not
/// quoted.
std::string silentInstallerCommand(const std::string& bundlePath, const std::string& option);
/// Runs the installer that was found in a bundle.
std::string bundleInstallerCommand(const std::string& installerPath);

/// Whether a command succeeded, by its output: the exit statuses do not say.
bool packageWasInstalled(const std::string& output);
bool bundleInstallerSucceeded(const std::string& output);
bool imageWasEjected(const std::string& output);

/// Why nothing of a disk image was installed, though that counts as a success; "" when something was.
/// `found`: the entry of the mount point that was installed, "" for none. `wasThere`: it lay there before the
/// image was attached. `attachOutput`: what the attach command wrote.
std::string nothingOnImage(const std::string& found, bool wasThere, const std::string& attachOutput);

}  // namespace zelor::platform

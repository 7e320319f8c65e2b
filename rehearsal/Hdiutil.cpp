#include <strings.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <optional>
#include <stdexcept>

#include "base/Directories.h"
#include "base/Files.h"
#include "rehearsal/Tools.h"
#include "rehearsal/Unpacking.h"

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

namespace {

constexpr int kBusyStatus = 16;

struct ImageCommand {
    std::string verb;
    std::string subject;  ///< image, mount point or device
    std::string mountPoint;
    bool force = false;
};

bool same(const std::string& text, const char* option) {
    return strcasecmp(text.c_str(), option) == 0;
}

std::optional<ImageCommand> parseImage(const Arguments& arguments) {
    if (arguments.empty()) return std::nullopt;
    ImageCommand command;
    command.verb = arguments.front();
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (same(word, "-mountpoint") && i + 1 < arguments.size()) {
            command.mountPoint = arguments[++i];
        } else if (same(word, "-force")) {
            command.force = true;
        } else if (!word.empty() && word.front() != '-') {
            if (!command.subject.empty()) return std::nullopt;
            command.subject = word;
        }
    }
    const bool known = command.verb == "attach" || command.verb == "mount" || command.verb == "detach" ||
                       command.verb == "eject" || command.verb == "unmount";
    if (!known || command.subject.empty()) return std::nullopt;
    return command;
}

ToolText attachFailed(const std::string& why) {
    return {"", "hdiutil: attach failed - " + why + "\n", 1};
}

/// Nothing is ever mounted, and so later removed, outside of the root.
std::string requireBelowRoot(const std::string& mountPoint, const std::string& root) {
    const fs::path path = fs::weakly_canonical(fs::absolute(mountPoint));
    const fs::path relative = path.lexically_relative(fs::canonical(root));
    if (relative.empty() || relative == "." || *relative.begin() == "..") {
        throw std::runtime_error("hdiutil: " + mountPoint + " is not below the rehearsal's root " + root);
    }
    return path.string();
}

/// Adds the mount to the state, so that no other process takes its number or mount point. Disks 0 and 1 are
/// the Mac's.
std::optional<Mount> reserve(const StateDirectory& directory, Mount mount) {
    bool taken = false;
    directory.update([&](MacState& state) {
        mount.disk = 2;
        for (const Mount& other : state.mounts) {
            mount.disk = std::max(mount.disk, other.disk + 1);
            taken |= other.mounted && other.mountPoint == mount.mountPoint;
        }
        if (!taken) state.mounts.push_back(mount);
    });
    if (taken) return std::nullopt;
    return mount;
}

void forget(const StateDirectory& directory, int disk) {
    directory.update([&](MacState& state) {
        auto& mounts = state.mounts;
        mounts.erase(std::remove_if(mounts.begin(), mounts.end(),
                                    [&](const Mount& mount) { return mount.disk == disk; }),
                     mounts.end());
    });
}

/// "" for an image that can be mounted, else the tool's error text.
std::string imageProblem(const std::string& image) {
    if (!fs::exists(image)) return "No such file or directory";
    if (!fs::is_regular_file(image)) return "image not recognized";
    if (!volumeNameOf(image).empty()) return "";
    // A file of whole sectors passes for a raw image.
    const auto size = fs::file_size(image);
    return size > 0 && size % 512 == 0 ? "no mountable file systems" : "image not recognized";
}

int attach(const StateDirectory& directory, const MacState& state, const ImageCommand& command,
           Outcome toolFault) {
    const std::string problem = imageProblem(command.subject);
    if (!problem.empty()) return say(attachFailed(problem));
    Mount mount;
    mount.image = fs::canonical(command.subject).string();
    mount.volume = volumeNameOf(mount.image);
    Outcome fault = faultFor(state, FaultScope::image, mount.volume);
    if (fault == Outcome::ok)
        fault = faultFor(state, FaultScope::image, fs::path(mount.image).filename().string());
    disturb(fault);
    if (fault == Outcome::fail || toolFault == Outcome::fail)
        return say(attachFailed("no mountable file systems"));
    mount.mountPoint = requireBelowRoot(
        command.mountPoint.empty() ? state.root + "/Volumes/" + mount.volume : command.mountPoint,
        state.root);
    const bool occupied = fs::exists(mount.mountPoint) &&
                          (!fs::is_directory(mount.mountPoint) || !fs::is_empty(mount.mountPoint));
    const auto reserved = occupied ? std::nullopt : reserve(directory, mount);
    if (!reserved) return say(attachFailed("Resource busy"));
    try {
        unpack(ArchiveReader::Kind::iso9660, mount.image, mount.mountPoint, verbatimLinks());
    } catch (const std::exception& e) {
        forget(directory, reserved->disk);
        ToolText text = attachFailed("no mountable file systems");
        text.err = std::string("zelor-rehearsal: ") + e.what() + "\n" + text.err;
        return say(text);
    }
    return say(
        {attachedLine(reserved->disk, command.mountPoint.empty() ? mount.mountPoint : command.mountPoint), "",
         0});
}

std::optional<Mount> findMount(const MacState& state, const std::string& subject) {
    const std::string path = fs::weakly_canonical(fs::absolute(subject)).string();
    std::optional<Mount> found;
    for (const Mount& mount : state.mounts) {
        const std::string name = "disk" + std::to_string(mount.disk);
        const bool meant = subject == name || subject == "/dev/" + name || path == mount.mountPoint;
        if (meant && (!found || mount.mounted)) found = mount;
    }
    return found;
}

/// 0, or the errno value of what failed.
int emptyMountPoint(const Mount& mount, const std::string& root) {
    const std::string directory = requireBelowRoot(mount.mountPoint, root);
    base::removeTree(directory);
    boost::system::error_code error;
    fs::remove(directory, error);
    if (error) return error.value();
    return base::makeDirectories(directory) ? 0 : errno;
}

void markUnmounted(const StateDirectory& directory, int disk) {
    directory.update([&](MacState& state) {
        for (Mount& mount : state.mounts) {
            if (mount.disk == disk) mount.mounted = false;
        }
    });
}

Outcome busyFault(const MacState& state, const Mount& mount, Outcome toolFault) {
    for (const std::string& name : {mount.volume, fs::path(mount.image).filename().string()}) {
        const Outcome fault = faultFor(state, FaultScope::image, name);
        if (fault != Outcome::ok) return fault;
    }
    return toolFault;
}

int detach(const StateDirectory& directory, const MacState& state, const ImageCommand& command,
           Outcome toolFault) {
    const auto mount = findMount(state, command.subject);
    if (!mount) return say({"", "hdiutil: " + command.verb + " failed - No such file or directory\n", 1});
    const std::string disk = "\"disk" + std::to_string(mount->disk) + "\"";
    const Outcome fault = command.force ? Outcome::ok : busyFault(state, *mount, toolFault);
    if (fault == Outcome::busy) {
        return say({"", "hdiutil: couldn't unmount " + disk + " - Resource busy\n", kBusyStatus});
    }
    const int error = mount->mounted ? emptyMountPoint(*mount, state.root) : 0;
    if (error != 0)
        throw std::runtime_error("hdiutil: cannot empty " + mount->mountPoint + ": " +
                                 base::errorText(error));
    if (fault == Outcome::busyEject) {
        markUnmounted(directory, mount->disk);
        return say(
            {disk + " unmounted.\n", "hdiutil: couldn't eject " + disk + " - Resource busy\n", kBusyStatus});
    }
    forget(directory, mount->disk);
    return say({disk + " ejected.\n", "", 0});
}

}  // namespace

int runHdiutil(const StateDirectory& directory, const Arguments& arguments) {
    const auto command = parseImage(arguments);
    if (!command) {
        return say(
            {"", "Usage: hdiutil attach [-nobrowse] [-mountPoint DIR] IMAGE | detach [-force] DEVICE\n", 1});
    }
    const MacState state = directory.load();
    const Outcome fault = faultFor(state, FaultScope::tool, nameOf(Tool::hdiutil));
    disturb(fault);
    if (command->verb == "attach" || command->verb == "mount")
        return attach(directory, state, *command, fault);
    return detach(directory, state, *command, fault);
}

}  // namespace zelor::rehearsal

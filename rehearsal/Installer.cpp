#include <boost/filesystem.hpp>
#include <ctime>
#include <optional>

#include "agent/archive/ArchivePolicy.h"
#include "base/Directories.h"
#include "rehearsal/FlatPackage.h"
#include "rehearsal/InstallText.h"
#include "rehearsal/Tools.h"
#include "rehearsal/Unpacking.h"

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

namespace {

struct InstallCommand {
    std::string package;
    std::string target;
};

std::optional<InstallCommand> parseInstall(const Arguments& arguments) {
    InstallCommand command;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if ((option == "-pkg" || option == "-package") && hasValue) {
            command.package = arguments[++i];
        } else if ((option == "-target" || option == "-tgt") && hasValue) {
            command.target = arguments[++i];
        } else if (option != "-verbose" && option != "-dumplog" && option != "-allowUntrusted") {
            return std::nullopt;
        }
    }
    if (command.package.empty() || command.target.empty()) return std::nullopt;
    return command;
}

/// Installs the packages of one file below the root.
class Installation {
  public:
    Installation(const StateDirectory& directory, const MacState& state, std::string packagePath)
        : directory_(directory),
          root_(fs::canonical(state.root).string()),
          packagePath_(std::move(packagePath)),
          work_(directory.path(), "work") {}

    int run(const MacState& state) {
        FlatPackage package;
        try {
            package = openPackage(packagePath_, work_.path());
        } catch (const std::exception& e) {
            explain(e.what());
            return say(notAPackageText(packagePath_));
        }
        report_.title = package.title;
        report_.restart = package.restart;
        report_.upgrade = hasReceipt(state, package.components.front().info.id);
        const Outcome fault = faultOf(state, package);
        disturb(fault);
        if (fault == Outcome::notRoot) {
            return say({"", "installer: Must be run as root to install this package.\n", 1});
        }
        if (fault == Outcome::fail) {
            report_.end = InstallEnd::failed;
        } else {
            installAll(package);
        }
        return say(installText(report_));
    }

  private:
    Outcome faultOf(const MacState& state, const FlatPackage& package) const {
        for (const PackageComponent& component : package.components) {
            const Outcome fault = faultFor(state, FaultScope::package, component.info.id);
            if (fault != Outcome::ok) return fault;
        }
        return faultFor(state, FaultScope::package, fs::path(packagePath_).filename().string());
    }

    void installAll(const FlatPackage& package) {
        for (const PackageComponent& component : package.components) {
            if (!isSound(component)) return fail(InstallEnd::extractionFailed, component);
        }
        for (const PackageComponent& component : package.components) {
            const InstallEnd end = installOne(component);
            if (end != InstallEnd::success) return fail(end, component);
            const PackageInfo& info = component.info;
            directory_.update([&](MacState& state) {
                recordReceipt(state, {info.id, info.version, info.installLocation, std::time(nullptr)});
            });
        }
    }

    void fail(InstallEnd end, const PackageComponent& component) {
        report_.end = end;
        report_.component = component.name;
    }

    UnpackRules payloadRules(const PackageComponent& component) const {
        return linksInside(root_, agent::pathComponents(component.info.installLocation));
    }

    /// Nothing changes below the root unless every part of the package can be read.
    bool isSound(const PackageComponent& component) {
        try {
            if (!component.payload.empty()) {
                checkArchive(ArchiveReader::Kind::cpio, component.payload, payloadRules(component));
            }
            if (!component.scripts.empty()) {
                checkArchive(ArchiveReader::Kind::cpio, component.scripts, linksInside("", {}));
            }
            return true;
        } catch (const std::exception& e) {
            explain(component.name + ": " + e.what());
            return false;
        }
    }

    InstallEnd installOne(const PackageComponent& component) {
        try {
            if (!component.scripts.empty()) {
                unpack(ArchiveReader::Kind::cpio, component.scripts, scriptDirectory(component),
                       linksInside("", {}));
            }
            if (!runScript(component.info.preinstall, component)) return InstallEnd::scriptFailed;
            if (!component.payload.empty()) {
                unpack(ArchiveReader::Kind::cpio, component.payload, root_, payloadRules(component));
            }
            return runScript(component.info.postinstall, component) ? InstallEnd::success
                                                                    : InstallEnd::scriptFailed;
        } catch (const std::exception& e) {
            explain(component.name + ": " + e.what());
            return InstallEnd::extractionFailed;
        }
    }

    static std::string scriptDirectory(const PackageComponent& component) {
        return component.scripts + "-unpacked";
    }

    bool runScript(const std::string& name, const PackageComponent& component) const {
        if (name.empty()) return true;
        std::string location = root_;
        for (const std::string& directory : agent::pathComponents(component.info.installLocation))
            location += "/" + directory;
        return runPackageScript(
            {scriptDirectory(component), name, fs::absolute(packagePath_).string(), location, root_},
            logFile());
    }

    std::string logFile() const { return directory_.path() + "/install.log"; }
    /// As on a Mac, the log has more details than the tool's output.
    void explain(const std::string& what) const { base::appendLine(logFile(), what); }

    const StateDirectory& directory_;
    std::string root_;
    std::string packagePath_;
    base::TemporaryDirectory work_;
    InstallReport report_;
};

}  // namespace

int runInstaller(const StateDirectory& directory, const Arguments& arguments) {
    const auto command = parseInstall(arguments);
    if (!command) return say({"", "Usage: installer -pkg <path> -target <volume>\n", 1});
    const MacState state = directory.load();
    const Outcome fault = faultFor(state, FaultScope::tool, nameOf(Tool::installer));
    disturb(fault);
    if (fault == Outcome::notRoot) {
        return say({"", "installer: Must be run as root to install this package.\n", 1});
    }
    if (fault == Outcome::fail) return say({"", "installer: The install failed.\n", 1});
    if (command->target != "/" && command->target != "LocalSystem") {
        return say(
            {"", "installer: Error - the target volume is not known here: '" + command->target + "'.\n", 1});
    }
    return Installation(directory, state, command->package).run(state);
}

}  // namespace zelor::rehearsal

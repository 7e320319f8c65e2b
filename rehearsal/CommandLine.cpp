
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <boost/filesystem.hpp>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <stdexcept>

#include "rehearsal/Builders.h"
#include "rehearsal/Setup.h"
#include "rehearsal/Tools.h"
#include "remediation/Version.h"

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

namespace {

std::string ownDirectory(const std::string& name) {
    const char* searchPath = std::getenv("PATH");
    return directoryOfName(name, searchPath == nullptr ? "" : searchPath);
}

/// The options of all subcommands; each subcommand's callback sets `action`.
struct Options {
    std::string program;
    std::string tools;
    std::string directory;
    std::string root;
    std::string version = "10.10.5";
    std::string build;
    std::string product;
    std::string outcome = "ok";
    std::string faultPackage;
    std::string faultImage;
    std::string faultTool;
    std::string faultLabel;
    Update update;
    std::string proxy;
    NetworkProxies proxies;
    PackageOptions package;
    ImageOptions image;
    std::function<void()> action;

    StateDirectory state() const { return StateDirectory(tools.empty() ? ownDirectory(program) : tools); }
};

CLI::App* addCommand(CLI::App& app, Options& options, const char* name, const char* what,
                     std::function<void()> action) {
    CLI::App* command = app.add_subcommand(name, what);
    command->callback([&options, action = std::move(action)] { options.action = action; });
    return command;
}

void addToolsOption(CLI::App* command, Options& options) {
    command->add_option("--tools", options.tools,
                        "The Mac's tools directory (default: the directory of this program's name)");
}

void addOsOptions(CLI::App* command, Options& options) {
    command->add_option("--build", options.build, "Build version (default: the one of the version)");
    command->add_option("--product", options.product,
                        "Product name (default: \"Mac OS X\" to 10.15, \"macOS\" from 11)");
}

void addMacCommands(CLI::App& app, Options& options) {
    CLI::App* init = addCommand(app, options, "init", "Make a tools directory with a new Mac", [&options] {
        makeMac(
            options.directory,
            fs::canonical(ownDirectory(options.program) + "/" + fs::path(options.program).filename().string())
                .string(),
            {options.root, options.version, options.build, options.product});
    });
    init->add_option("DIR", options.directory, "The tools directory")->required();
    init->add_option("--root", options.root,
                     "The Mac's disk, below which everything is installed (default: DIR/root)");
    init->add_option("--os", options.version, "Version, 10.9 or later")->capture_default_str();
    addOsOptions(init, options);

    CLI::App* os = addCommand(app, options, "os", "Change the version of the system", [&options] {
        options.state().update([&](MacState& state) {
            setSystem(state, {"", options.version, options.build, options.product});
        });
    });
    os->add_option("VERSION", options.version, "Version, 10.9 or later")->required();
    addOsOptions(os, options);
    addToolsOption(os, options);

    CLI::App* show = addCommand(app, options, "show", "Print the Mac's state as JSON", [&options] {
        std::cout
            << toJson(options.state().load()).dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
            << "\n";
    });
    addToolsOption(show, options);

    CLI::App* reset =
        addCommand(app, options, "reset",
                   "Forget updates, faults, receipts and mounts; the root keeps what was installed",
                   [&options] { resetMac(options.state()); });
    addToolsOption(reset, options);
}

void addUpdateCommand(CLI::App& app, Options& options) {
    CLI::App* add = addCommand(app, options, "add-update", "Make an update available", [&options] {
        options.update.outcome = requireOutcome(Tool::softwareupdate, options.outcome);
        requireUpdate(options.update);
        options.state().update([&](MacState& state) { state.updates.push_back(options.update); });
    });
    add->add_option("--label", options.update.label, "Label that installs it")->required();
    add->add_option("--title", options.update.title, "Title in listings (default: the label)");
    add->add_option("--version", options.update.version, "Version in listings")->required();
    add->add_option("--size", options.update.sizeK, "Size in K")->required();
    add->add_flag("--restart", options.update.restart, "Needs a restart");
    add->add_flag("--recommended,!--no,!--not-recommended", options.update.recommended,
                  "Recommended, and so listed with a star (the default); or not");
    add->add_flag("--os-update", options.update.osUpdate,
                  "An update of the system itself: installing it prints only \"Done.\" at the end");
    add->add_option(
           "--outcome", options.outcome,
           "What installing it does: ok, fail, hang, done-then-error, no-network, not-found, not-root, "
           "flood, binary, signal")
        ->capture_default_str();
    add->add_option("--payload", options.update.payload, "A file below the root that installing it writes");
    addToolsOption(add, options);
}

void addProxyCommand(CLI::App& app, Options& options) {
    CLI::App* proxy =
        addCommand(app, options, "proxy", "Set the web proxy of the network settings, or none", [&options] {
            options.state().update([&](MacState& state) {
                state.proxies = options.proxies;
                setProxy(state, options.proxy);
            });
        });
    proxy->add_option("HOST:PORT", options.proxy, "The proxy for http and https (default: none)");
    proxy
        ->add_option("--except", options.proxies.exceptions,
                     "Hosts asked directly, separated by commas: names, *.example.com, 169.254/16")
        ->delimiter(',');
    proxy->add_option("--script", options.proxies.script, "Address of a script that chooses the proxy");
    addToolsOption(proxy, options);
}

void addFaultCommand(CLI::App& app, Options& options) {
    CLI::App* fault = addCommand(app, options, "fault", "Switch a fault on, or off with \"ok\"", [&options] {
        options.state().update([&](MacState& state) {
            if (!options.faultPackage.empty()) {
                setFault(state, {FaultScope::package, options.faultPackage,
                                 requireOutcome(Tool::installer, options.outcome)});
            } else if (!options.faultImage.empty()) {
                setFault(state, {FaultScope::image, options.faultImage,
                                 requireOutcome(Tool::hdiutil, options.outcome)});
            } else if (!options.faultLabel.empty()) {
                setUpdateOutcome(state, options.faultLabel,
                                 requireOutcome(Tool::softwareupdate, options.outcome));
            } else {
                setToolFault(state, options.faultTool, options.outcome);
            }
        });
    });
    auto* subject = fault->add_option_group("subject");
    subject->add_option("--package", options.faultPackage, "Package identifier or file name");
    subject->add_option("--image", options.faultImage, "Volume name or file name of a disk image");
    subject->add_option("--label", options.faultLabel, "Label of an available update");
    subject->add_option(
        "--tool", options.faultTool,
        "softwareupdate, sw_vers, installer, hdiutil, pkgutil, defaults, launchctl, pwpolicy or scutil");
    subject->require_option(1);
    fault
        ->add_option("OUTCOME", options.outcome,
                     "ok, fail, hang, done-then-error, no-effect, no-network, not-found, not-root, busy, "
                     "busy-eject, flood, "
                     "binary, signal")
        ->required();
    addToolsOption(fault, options);
}

void addBuilders(CLI::App& app, Options& options) {
    PackageOptions& order = options.package;
    CLI::App* package = addCommand(app, options, "build-pkg", "Make a flat package of a directory",
                                   [&order] { buildPackage(order); });
    package->add_option("--id", order.info.id, "Package identifier, such as com.example.editor")->required();
    package->add_option("--version", order.info.version, "Package version")->required();
    package->add_option("--name", order.name,
                        "Title; makes a product (default: a single package, named like its file)");
    package
        ->add_option("--install-location", order.info.installLocation, "Where the directory's content goes")
        ->capture_default_str();
    package->add_flag("--restart", order.info.restart, "Require a restart");
    package->add_option("--scripts", order.scripts, "Directory with preinstall, postinstall or both");
    package->add_option("DIRECTORY", order.directory, "What to install")->required();
    package->add_option("OUT", order.output, "The package file")->required();

    ImageOptions& image = options.image;
    CLI::App* disk = addCommand(app, options, "build-dmg", "Make a disk image (ISO 9660) of a directory",
                                [&image] { buildImage(image); });
    disk->add_option("--volume", image.volume, "Volume name")->required();
    disk->add_option("DIRECTORY", image.directory, "What the volume holds")->required();
    disk->add_option("OUT", image.output, "The image file")->required();
}

}  // namespace

int runCommandLine(int count, char** words) {
    CLI::App app(
        "A rehearsal Mac: softwareupdate, sw_vers, installer and hdiutil that work on real packages and disk "
        "images\n"
        "below a root directory, with faults on demand.",
        "zelor-rehearsal");
    Options options;
    options.program = count > 0 ? words[0] : "zelor-rehearsal";
    app.set_version_flag("--version", "zelor-rehearsal " ZELOR_VERSION_STRING);
    app.require_subcommand(1);
    addMacCommands(app, options);
    addUpdateCommand(app, options);
    addProxyCommand(app, options);
    addFaultCommand(app, options);
    addBuilders(app, options);
    try {
        app.parse(count, words);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    try {
        options.action();
    } catch (const std::invalid_argument& e) {
        std::cerr << "zelor-rehearsal: " << e.what() << "\n";
        return 2;
    }
    return 0;
}

std::string directoryOfName(const std::string& name, const std::string& searchPath) {
    if (name.find('/') != std::string::npos) return fs::absolute(name).parent_path().string();
    for (std::size_t begin = 0; begin <= searchPath.size();) {
        const std::size_t end = std::min(searchPath.find(':', begin), searchPath.size());
        const fs::path directory = fs::absolute(searchPath.substr(begin, end - begin));
        const fs::path candidate = directory / name;
        boost::system::error_code ignored;
        if (fs::is_regular_file(candidate, ignored) && ::access(candidate.c_str(), X_OK) == 0) {
            return fs::absolute(directory).string();
        }
        begin = end + 1;
    }
    throw std::runtime_error("cannot find " + name + " in PATH");
}

}  // namespace zelor::rehearsal

#include "rehearsal/Setup.h"

#include <fcntl.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <stdexcept>

#include "agent/archive/ArchivePolicy.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "rehearsal/OsVersion.h"

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

namespace {

std::string usableRoot(const std::string& root) {
    if (!base::makeDirectories(root)) throw std::runtime_error("cannot make the root directory " + root);
    std::string path = fs::canonical(root).string();
    if (path == "/") throw std::invalid_argument("the root of a rehearsal cannot be this machine's own root");
    return path;
}

void makeName(const fs::path& link, const std::string& program) {
    boost::system::error_code error;
    if (fs::is_symlink(link, error)) fs::remove(link);
    fs::create_symlink(program, link, error);
    if (error) throw std::runtime_error("cannot make " + link.string() + ": " + error.message());
}

/// Writes the files that describe the Mac to its agent; existing ones are kept.
void describeMac(const MacState& state) {
    const std::string directory = state.root + "/etc/zelor";
    if (!base::makeDirectories(directory)) throw std::runtime_error("cannot make the directory " + directory);
    const auto place = [&](const std::string& name, const std::string& text) {
        const std::string path = directory + '/' + name;
        const base::UniqueFd file = base::openFile(path, O_WRONLY | O_CREAT | O_EXCL);
        if (file ? !base::writeAll(file.get(), text) : errno != EEXIST)
            throw std::runtime_error("cannot write " + path + ": " + base::errorText(errno));
    };
    place("build", "platform = macos\n");
    place("zelor.ini", "[ScanManager]\nProfileId = " + state.productName + ' ' + state.productVersion + '\n');
}

}  // namespace

void makeMac(const std::string& toolsDirectory, const std::string& program, const MacOptions& options) {
    MacState state;
    setSystem(state, options);
    if (!base::makeDirectories(toolsDirectory))
        throw std::runtime_error("cannot make the directory " + toolsDirectory);
    const std::string tools = fs::canonical(toolsDirectory).string();
    state.root = usableRoot(options.root.empty() ? tools + "/root" : options.root);
    StateDirectory(tools).create(state);
    describeMac(state);
    for (const Tool tool : allTools())
        makeName(fs::path(tools) / nameOf(tool), program);
    makeName(fs::path(tools) / "zelor-rehearsal", program);
}

void setSystem(MacState& state, const MacOptions& options) {
    const OsVersion version = parseOsVersion(options.version);
    state.productVersion = options.version;
    state.productName = options.product.empty() ? productNameOf(version) : options.product;
    state.buildVersion = options.build.empty() ? buildOf(options.version) : options.build;
}

void resetMac(const StateDirectory& directory) {
    directory.update([](MacState& state) {
        for (const Mount& mount : state.mounts) {
            if (mount.mounted && !base::removeTree(mount.mountPoint)) {
                throw std::runtime_error("cannot empty " + mount.mountPoint);
            }
        }
        state.updates.clear();
        state.installedUpdates.clear();
        state.mounts.clear();
        state.faults.clear();
        state.receipts.clear();
        state.preferences.clear();
        state.services.clear();
        state.accountPolicies.clear();
        state.proxies = {};
    });
    for (const fs::directory_entry& entry : fs::directory_iterator(directory.path())) {
        if (base::hasBeginning(entry.path().filename().string(), "work-"))
            base::removeTree(entry.path().string());
    }
}

void requireUpdate(Update& update) {
    if (update.title.empty()) update.title = update.label;
    for (const std::string& text : {update.label, update.title, update.version}) {
        if (text.empty() || base::hasControlCharacter(text)) {
            throw std::invalid_argument("an update needs a label and a version without control characters");
        }
    }
    const auto path = agent::pathComponents(update.payload);
    if (std::find(path.begin(), path.end(), "..") != path.end()) {
        throw std::invalid_argument("the payload path has \"..\": " + update.payload);
    }
}

void setProxy(MacState& state, const std::string& address) {
    state.proxies.host.clear();
    state.proxies.port = 0;
    if (address.empty()) return;
    const auto colon = address.rfind(':');
    const int port = colon == std::string::npos ? 0 : base::leadingInt(address.substr(colon + 1));
    if (colon == 0 || port < 1 || port > 65535 || base::hasControlCharacter(address))
        throw std::invalid_argument("a proxy is written as HOST:PORT, not \"" + address + "\"");
    state.proxies.host = address.substr(0, colon);
    state.proxies.port = port;
}

void setUpdateOutcome(MacState& state, const std::string& label, Outcome outcome) {
    bool found = false;
    for (Update& update : state.updates) {
        if (update.label != label) continue;
        update.outcome = outcome;
        found = true;
    }
    if (!found) throw std::invalid_argument("no available update has the label \"" + label + "\"");
}

void setToolFault(MacState& state, const std::string& tool, const std::string& outcome) {
    const auto known = toolNamed(tool);
    if (!known) {
        std::string names;
        for (const Tool one : allTools())
            names += (names.empty() ? "" : ", ") + nameOf(one);
        throw std::invalid_argument("there is no tool \"" + tool + "\"; use one of: " + names);
    }
    setFault(state, {FaultScope::tool, tool, requireOutcome(*known, outcome)});
}

}  // namespace zelor::rehearsal

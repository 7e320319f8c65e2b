#include "platform/macos/MacPatchManager.h"

#include <boost/filesystem/operations.hpp>
#include <boost/optional/optional.hpp>
#include <utility>

#include "base/CommandRunner.h"
#include "base/Strings.h"
#include "base/SystemRoot.h"
#include "platform/AgentIni.h"
#include "platform/Log.h"
#include "platform/ShellCommand.h"
#include "platform/macos/LinuxHardeningFacilitator.h"
#include "platform/macos/UpdateSelection.h"

namespace zlog = zelor::log;

MacPatchManager::MacPatchManager() {
    queryAndStoreCurrentOsName();
}

MacPatchManager::~MacPatchManager() = default;

std::string MacPatchManager::getSystemPlatformCpe() {
    const zelor::base::CommandResult result = zelor::platform::runShell("sw_vers -productName");
    if (!result.started) {
        zlog::debug("[MacPatchManager] (getSystemPlatformCpe) Invalid Command");
        return "";
    }
    const std::string productName = zelor::base::trimmed(result.output);
    if (productName.empty()) return "";
    zlog::debug("[MacPatchManager] Platform Cpe = ", productName);
    return productName == "Mac OS X" ? "cpe:/o:apple:mac_os_x" : "cpe:/o:apple:mac_os_x_server";
}

void MacPatchManager::queryAndStoreCurrentOsName() {
    currentOsName_ = readValueFromIniFile(underSystemRoot(MPMZELORINIFILE), MPMPROFILEID);
    currentPlatform_ = readValueFromIniFile(underSystemRoot(MPMBUILDFILE), MPMPLATFORM);
    zlog::debug("[MacPatchManager] currentOSName = ", currentOsName_,
                ", and currentPlatform = ", currentPlatform_);
}

std::string MacPatchManager::readValueFromIniFile(std::string iniFile, std::string key) {
    auto tree = zelor::platform::readIniFile(iniFile);
    if (!tree) {
        zlog::error("[MacPatchManager] Inside readValueFromIniFile, ini file '", iniFile,
                    "' doesn't exist!!");
        return "";
    }
    return getValueFromIni(std::move(key), *tree);
}

std::string MacPatchManager::getValueFromIni(std::string key, boost::property_tree::ptree tree) {
    const auto value = tree.get_optional<std::string>(key);
    if (!value) {
        zlog::error("[MacPatchManager] Inside getValueFromIni, Error while getting for the key ", key);
        return "";
    }
    return *value;
}

void MacPatchManager::setSilentModeOption(std::string option) {
    silentModeOption_ = std::move(option);
}

void MacPatchManager::setInstallOption(bool useInstaller) {
    useInstallOption_ = useInstaller;
}

int MacPatchManager::applyConfig(std::string path) {
    zlog::debug("[MacPatchManager] Inside applyConfig");
    return LinuxHardeningFacilitator().complianceRemediation(std::move(path));
}

std::string MacPatchManager::getCmdlineOutput(std::string command) {
    zelor::base::CommandResult result = zelor::platform::runShell(command);
    if (!result.started) zlog::debug("[MacPatchManager] (getCmdlineOutput) Invalid Command");
    return std::move(result.output);
}

std::vector<std::string> MacPatchManager::getOsCmdline(std::string command) {
    const zelor::base::CommandResult result = zelor::platform::runShell(command);
    if (!result.started) zlog::debug("[MacPatchManager] (getOsCmdline) Invalid Command");
    return zelor::platform::starredLines(result.output, zelor::platform::kListingPiece);
}

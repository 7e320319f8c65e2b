#include "collaborators/ConfigurationManager.h"

#include <map>
#include <memory>
#include <mutex>

#include "agent/AgentSettings.h"

namespace {

std::string setting(const std::string& configFile, const std::string& key) {
    const auto settings = configFile.empty() ? zelor::agent::AgentSettings::current()
                                             : zelor::agent::AgentSettings::cached(configFile);
    return settings->get(key);
}

struct Instances {
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<ConfigurationManager>> byFile;
};

}  // namespace

ConfigurationManager* ConfigurationManager::GetInstance(std::string configFile) {
    // Kept to the very end of the process: a run's thread may outlive main().
    static Instances& instances = *new Instances;
    const std::lock_guard<std::mutex> lock(instances.mutex);
    auto& instance = instances.byFile[configFile];
    if (!instance) {
        instance = std::make_unique<ConfigurationManager>();
        instance->configFile_ = configFile;
    }
    return instance.get();
}

std::string ConfigurationManager::getUnzipFileFolder() {
    return setting(configFile_, "Buffer.UnzipFolder");
}

std::string ConfigurationManager::getBufferPatchesDir() {
    return setting(configFile_, "Buffer.PatchesDir");
}

std::string ConfigurationManager::getBufferPatchesDirSize() {
    return setting(configFile_, "Buffer.PatchesDirSizeMB");
}

std::string ConfigurationManager::getBufferSpeedPercent() {
    return setting(configFile_, "Buffer.SpeedPercent");
}

std::string ConfigurationManager::getVendorProductInstallationType() {
    return setting(configFile_, "Installation.VendorProducts");
}

std::string ConfigurationManager::getThirdPartyProductInstallationType() {
    return setting(configFile_, "Installation.ThirdPartyProducts");
}

#include "collaborators/ConfigurationManager.h"

#include <map>
#include <memory>

#include "agent/AgentSettings.h"
#include "base/Mutex.h"

namespace {

std::shared_ptr<const zelor::agent::AgentSettings> settingsOf(const std::string& configFile) {
    return configFile.empty() ? zelor::agent::AgentSettings::current()
                              : zelor::agent::AgentSettings::cached(configFile);
}

struct Instances {
    zelor::base::Mutex mutex;
    std::map<std::string, std::unique_ptr<ConfigurationManager>> byFile ZELOR_GUARDED_BY(mutex);
};

}  // namespace

ConfigurationManager* ConfigurationManager::GetInstance(std::string configFile) {
    // Never destroyed: a run's thread may outlive main().
    static Instances& instances = *new Instances;
    const zelor::base::MutexLock lock(instances.mutex);
    auto& instance = instances.byFile[configFile];
    if (!instance) {
        instance = std::make_unique<ConfigurationManager>();
        instance->configFile_ = configFile;
    }
    return instance.get();
}

std::string ConfigurationManager::getUnzipFileFolder() {
    return settingsOf(configFile_)->values().unzipDirectory;
}

std::string ConfigurationManager::getBufferPatchesDir() {
    return settingsOf(configFile_)->values().patchesDir;
}

std::string ConfigurationManager::getBufferPatchesDirSize() {
    return std::to_string(settingsOf(configFile_)->values().patchesDirSizeMB);
}

std::string ConfigurationManager::getBufferSpeedPercent() {
    return std::to_string(settingsOf(configFile_)->values().speedPercent);
}

std::string ConfigurationManager::getVendorProductInstallationType() {
    return settingsOf(configFile_)->values().vendorProducts;
}

std::string ConfigurationManager::getThirdPartyProductInstallationType() {
    return settingsOf(configFile_)->values().thirdPartyProducts;
}

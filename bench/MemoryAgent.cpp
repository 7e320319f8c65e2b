#include "bench/MemoryAgent.h"

#include <log4cpp/Priority.hh>

#include "collaborators/CacheStore.h"
#include "collaborators/Common.h"
#include "collaborators/ConfigurationManager.h"
#include "collaborators/CreCacher.h"
#include "collaborators/DownloadManager.h"
#include "collaborators/FileSignVerifier.h"
#include "collaborators/Logger.h"
#include "collaborators/RemediationResourceDownloader.h"
#include "collaborators/ZipUtils.h"

namespace zelor::bench {

MemoryAgent& MemoryAgent::get() {
    static MemoryAgent agent;
    return agent;
}

}  // namespace zelor::bench

Logger* Logger::GetInstance() {
    static Logger logger;
    return &logger;
}

log4cpp::Category& Logger::GetLogger() {
    static log4cpp::Category& category = []() -> log4cpp::Category& {
        log4cpp::Category& silent = log4cpp::Category::getInstance("bench");
        silent.setPriority(log4cpp::Priority::FATAL);
        return silent;
    }();
    return category;
}

std::string Common::StripTrailingSeparators(const std::string& path) {
    return path;
}

std::set<std::string> CacheStore::GetSplCaseCPEs() {
    return {};
}

ConfigurationManager* ConfigurationManager::GetInstance(std::string /*configFile*/) {
    static ConfigurationManager manager;
    return &manager;
}
std::string ConfigurationManager::getUnzipFileFolder() {
    return "";
}
std::string ConfigurationManager::getBufferPatchesDir() {
    return "";
}
std::string ConfigurationManager::getBufferPatchesDirSize() {
    return "0";
}
std::string ConfigurationManager::getBufferSpeedPercent() {
    return "25";
}
std::string ConfigurationManager::getVendorProductInstallationType() {
    return "silent";
}
std::string ConfigurationManager::getThirdPartyProductInstallationType() {
    return "quiet";
}

CreCacher* CreCacher::GetInstance(std::string /*installPath*/, std::string /*platformCpe*/) {
    static CreCacher cacher;
    return &cacher;
}
parseOnlyMetadata CreCacher::getCre(std::string /*platformCpe*/, std::string /*productCpe*/,
                                    std::string cveOrCceId) {
    return zelor::bench::MemoryAgent::get().content(cveOrCceId);
}
void CreCacher::removeCreFromCache(std::string, std::string, std::string) {}
void CreCacher::removeCreFile(std::string, std::string, std::string) {}

RemediationResourceDownloader* RemediationResourceDownloader::GetInstance() {
    static RemediationResourceDownloader downloader;
    return &downloader;
}
int RemediationResourceDownloader::getResource(std::string, std::string&, std::string, std::string, bool,
                                               unsigned long) {
    return -1;
}

DownloadManager::DownloadManager(std::string, bool) {}
unsigned long DownloadManager::GetDownloadSpeed(int& status) {
    status = 0;
    return 0;
}

ZipUtils::ZipUtils() = default;
ZipUtils::~ZipUtils() = default;
bool ZipUtils::Unzip(char*, char*) {
    return false;
}

FileSignVerifier::FileSignVerifier() = default;
FileSignVerifier::~FileSignVerifier() = default;
void FileSignVerifier::SetFileName(std::string path) {
    fileName_ = std::move(path);
}
void FileSignVerifier::SetSigFileName(std::string path) {
    sigFileName_ = std::move(path);
}
int FileSignVerifier::verify() {
    return 0;
}

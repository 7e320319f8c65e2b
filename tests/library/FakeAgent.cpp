#include "tests/library/FakeAgent.h"

#include <sys/stat.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdlib>
#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>
#include <sstream>

#include "base/SystemRoot.h"
#include "collaborators/CacheStore.h"
#include "collaborators/Common.h"
#include "collaborators/ConfigurationManager.h"
#include "collaborators/CreCacher.h"
#include "collaborators/DownloadManager.h"
#include "collaborators/FileSignVerifier.h"
#include "collaborators/Logger.h"
#include "collaborators/RemediationResourceDownloader.h"
#include "collaborators/ZipUtils.h"

namespace zelor::test {

namespace {

FakeAgent* current = nullptr;

class LinesAppender : public log4cpp::AppenderSkeleton {
  public:
    LinesAppender() : AppenderSkeleton("lines") {}
    void close() override {}
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout* /*layout*/) override {}

  protected:
    void _append(const log4cpp::LoggingEvent& event) override {
        if (current == nullptr) return;
        const std::string line = log4cpp::Priority::getPriorityName(event.priority) + " " + event.message;
        if (current->onLogLine) current->onLogLine(line);
        current->addLogLine(line);
    }
};

// An archive is a text: the file's name, whether its signature is good, and its content.
std::string archiveOf(const std::string& fileName, const std::string& text, bool goodSignature) {
    return fileName + "\n" + (goodSignature ? "good" : "bad") + "\n" + text;
}

std::string stemOf(const std::string& fileName) {
    return fileName.substr(0, fileName.rfind('.'));
}

}  // namespace

parsedEriData makeEri(const Eri& eri) {
    parsedEriData block;
    RecordAccess::eriId(block) = eri.id;
    RecordAccess::patchId(block) = eri.patchId;
    RecordAccess::reboot(block) = eri.reboot;
    RecordAccess::productCpe(block) = eri.product;
    RecordAccess::instructions(block) = eri.instructions;
    RecordAccess::md5sum(block) = eri.md5;
    RecordAccess::patchSize(block) = eri.size;
    RecordAccess::operationImpact(block) = eri.impact;
    RecordAccess::silentModeCmd(block) = eri.silent;
    RecordAccess::mskbId(block) = eri.mskb;
    return block;
}

creEriParsedData makeCre(const std::string& id, const std::vector<Eri>& eris) {
    creEriParsedData cre;
    RecordAccess::creId(cre) = "CRE-" + id;
    RecordAccess::cve(cre) = id;
    for (const Eri& eri : eris) {
        RecordAccess::eriIds(cre).push_back(eri.id);
        RecordAccess::blocks(cre).push_back(makeEri(eri));
    }
    return cre;
}

FakeAgent::FakeAgent() {
    current = this;
    setSystemRoot(dir.path().string());
    const char* path = std::getenv("PATH");
    oldPath_ = path != nullptr ? path : "";
    setenv("PATH", (dir / "tools:" + oldPath_).c_str(), 1);
    for (const char* name : {"content", "opt", "unzip", "buffer", "var/log/zelor", "tools", "Applications"}) {
        boost::filesystem::create_directories(dir.path() / name);
    }
    addTool("sw_vers", "[ \"$1\" = -productName ] && echo 'Mac OS X' || echo 10.10.5");
}

FakeAgent::~FakeAgent() {
    setenv("PATH", oldPath_.c_str(), 1);
    setSystemRoot("");
    const std::lock_guard<std::mutex> lock(logMutex_);
    current = nullptr;
}

FakeAgent& FakeAgent::get() {
    return *current;
}

void FakeAgent::addContent(const std::string& identifier, const std::vector<Eri>& eris) {
    parseOnlyMetadata metadata;
    RecordAccess::creEriData(metadata) = makeCre(identifier, eris);
    content[identifier] = metadata;
}

void FakeAgent::addFile(const std::string& fileName, const std::string& text, bool goodSignature) {
    repository[stemOf(fileName)] = archiveOf(fileName, text, goodSignature);
}

void FakeAgent::bufferFile(const std::string& fileName, const std::string& text) {
    writeFile(bufferDir() + "/" + stemOf(fileName) + ".zip", archiveOf(fileName, text, true));
}

void FakeAgent::addTool(const std::string& name, const std::string& script) {
    const std::string path = dir / ("tools/" + name);
    writeFile(path, "#!/bin/sh\n" + script + "\n");
    chmod(path.c_str(), 0755);
}

std::vector<std::string> FakeAgent::logLines() const {
    const std::lock_guard<std::mutex> lock(logMutex_);
    return log_;
}

bool FakeAgent::logged(const std::string& level, const std::string& text) const {
    const auto lines = logLines();
    return std::find(lines.begin(), lines.end(), level + " " + text) != lines.end();
}

int FakeAgent::countLogged(const std::string& part) const {
    const auto lines = logLines();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&part](const std::string& line) {
        return line.find(part) != std::string::npos;
    }));
}

void FakeAgent::addLogLine(const std::string& line) {
    const std::lock_guard<std::mutex> lock(logMutex_);
    log_.push_back(line);
}

}  // namespace zelor::test

using zelor::test::FakeAgent;

Logger* Logger::GetInstance() {
    errno = EDOM;  // as any logger may
    static Logger logger;
    return &logger;
}

log4cpp::Category& Logger::GetLogger() {
    static log4cpp::Category& category = []() -> log4cpp::Category& {
        log4cpp::Category& lines = log4cpp::Category::getInstance("test");
        lines.setAdditivity(false);
        lines.setPriority(log4cpp::Priority::DEBUG);
        lines.addAppender(new zelor::test::LinesAppender());  // the category owns it
        return lines;
    }();
    return category;
}

std::string Common::StripTrailingSeparators(const std::string& path) {
    return path.substr(0, path.find_last_not_of('/') + 1);
}

std::set<std::string> CacheStore::GetSplCaseCPEs() {
    return FakeAgent::get().specialCases;
}

ConfigurationManager* ConfigurationManager::GetInstance(std::string /*configFile*/) {
    static ConfigurationManager manager;
    return &manager;
}
std::string ConfigurationManager::getUnzipFileFolder() {
    return FakeAgent::get().unzipDirectory();
}
std::string ConfigurationManager::getBufferPatchesDir() {
    return FakeAgent::get().bufferDir();
}
std::string ConfigurationManager::getBufferPatchesDirSize() {
    return FakeAgent::get().budgetMegabytes;
}
std::string ConfigurationManager::getBufferSpeedPercent() {
    return FakeAgent::get().speedPercent;
}
std::string ConfigurationManager::getVendorProductInstallationType() {
    return FakeAgent::get().vendorInstallationType;
}
std::string ConfigurationManager::getThirdPartyProductInstallationType() {
    return "quiet";
}

CreCacher* CreCacher::GetInstance(std::string /*installPath*/, std::string /*platformCpe*/) {
    static CreCacher cacher;
    return &cacher;
}

parseOnlyMetadata CreCacher::getCre(std::string platformCpe, std::string productCpe, std::string cveOrCceId) {
    FakeAgent& agent = FakeAgent::get();
    if (agent.beforeGetCre) agent.beforeGetCre(cveOrCceId);
    agent.calls.push_back("getCre " + platformCpe + " " + productCpe + " " + cveOrCceId);
    const auto entry = agent.content.find(cveOrCceId);
    if (entry != agent.content.end()) return entry->second;
    parseOnlyMetadata none;
    RecordAccess::parsingFailed(none) = true;
    return none;
}

void CreCacher::removeCreFromCache(std::string, std::string, std::string cveOrCceId) {
    FakeAgent::get().calls.push_back("removeCreFromCache " + cveOrCceId);
}

void CreCacher::removeCreFile(std::string, std::string, std::string cveOrCceId) {
    FakeAgent::get().calls.push_back("removeCreFile " + cveOrCceId);
}

RemediationResourceDownloader* RemediationResourceDownloader::GetInstance() {
    static RemediationResourceDownloader downloader;
    return &downloader;
}

int RemediationResourceDownloader::getResource(std::string stem, std::string& archivePath,
                                               std::string /*extension*/, std::string /*installPath*/,
                                               bool rateLimited, unsigned long bytesPerSecond) {
    FakeAgent& agent = FakeAgent::get();
    agent.calls.push_back("download " + stem + (rateLimited ? " at " + std::to_string(bytesPerSecond) : ""));
    if (agent.beforeDownload) agent.beforeDownload(stem);
    const auto archive = agent.repository.find(stem);
    if (archive == agent.repository.end()) return -1;
    zelor::test::writeFile(archivePath, archive->second);
    return 0;
}

DownloadManager::DownloadManager(std::string /*installPath*/, bool /*useProxy*/) {}

unsigned long DownloadManager::GetDownloadSpeed(int& status) {
    status = FakeAgent::get().speedStatus;
    return FakeAgent::get().speed;
}

ZipUtils::ZipUtils() = default;
ZipUtils::~ZipUtils() = default;

bool ZipUtils::Unzip(char* archivePath, char* destinationDir) {
    std::istringstream archive(zelor::test::readFile(archivePath));
    std::string name;
    std::string signature;
    std::getline(archive, name);
    std::getline(archive, signature);
    const std::string text{std::istreambuf_iterator<char>(archive), std::istreambuf_iterator<char>()};
    const std::string path = std::string(destinationDir) + "/" + name;
    zelor::test::writeFile(path, text);
    zelor::test::writeFile(path.substr(0, path.rfind('.')) + ".sig", signature);
    return true;
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
    return boost::filesystem::exists(fileName_) && zelor::test::readFile(sigFileName_) == "good" ? 1 : 0;
}

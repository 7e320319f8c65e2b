// Your own agent: every collaborator that the library calls, with a plain directory as repository.
//
// Below the system root:
//   /srv/repository/content/<identifier>.ini   what remediates one finding: keys platform, product, eri,
//                                              patch, instructions, size, md5, silent, reboot
//   /srv/repository/patches/<stem>.tar         the file that `patch` names, and <stem>.sig beside it
//   /etc/zelor/repository.pem                  the key that the signatures are checked with
//
// Content is trusted here, since the directory is local and root's. An agent that fetches content must check
// its signature as well.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <boost/filesystem/operations.hpp>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/thread/thread.hpp>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <exception>
#include <fstream>
#include <iostream>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/Priority.hh>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

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
#include "remediation/CallReport.h"
#include "remediation/RecordAccess.h"

extern char** environ;

namespace {

std::string inRepository(const std::string& path) {
    return underSystemRoot("/srv/repository/" + path);
}

log4cpp::Category& agentLog() {
    return Logger::GetInstance()->GetLogger();
}

// Runs a program without a shell and without its standard output; true when it ends with status 0.
bool succeeds(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) return false;
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int problem = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (problem != 0) return false;
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// An attribute left out matches any.
bool matches(const boost::property_tree::ptree& content, const char* key, const std::string& wanted) {
    const auto value = content.get_optional<std::string>(key);
    return !value || *value == wanted;
}

parsedEriData eriOf(const boost::property_tree::ptree& content) {
    parsedEriData eri;
    RecordAccess::eriId(eri) = content.get<std::string>("eri");
    RecordAccess::patchId(eri) = content.get<std::string>("patch");
    RecordAccess::productCpe(eri) = content.get("product", "");
    RecordAccess::instructions(eri) = content.get("instructions", "");
    RecordAccess::patchSize(eri) = content.get("size", "0 KB");
    RecordAccess::md5sum(eri) = content.get("md5", "");
    RecordAccess::silentModeCmd(eri) = content.get("silent", "");
    RecordAccess::reboot(eri) = content.get("reboot", "false") == "true";
    return eri;
}

parseOnlyMetadata readContent(const std::string& platform, const std::string& product,
                              const std::string& identifier) {
    if (identifier.find('/') != std::string::npos) throw std::runtime_error("not an identifier");
    boost::property_tree::ptree content;
    boost::property_tree::read_ini(inRepository("content/" + identifier + ".ini"), content);
    if (!matches(content, "platform", platform) || !matches(content, "product", product)) {
        throw std::runtime_error("content for another platform or product");
    }
    parseOnlyMetadata metadata;
    creEriParsedData& cre = RecordAccess::creEriData(metadata);
    (identifier.compare(0, 3, "CCE") == 0 ? RecordAccess::cce(cre) : RecordAccess::cve(cre)) = identifier;
    RecordAccess::creId(cre) = "CRE-" + identifier;
    RecordAccess::blocks(cre).push_back(eriOf(content));
    RecordAccess::eriIds(cre).push_back(content.get<std::string>("eri"));
    return metadata;
}

// Copies in pieces, so that the library can interrupt it and a rate can be kept; 0 means no rate. A
// piece of a limited copy takes a tenth of a second.
bool copyAtRate(const std::string& source, const std::string& destination, unsigned long bytesPerSecond) {
    std::ifstream from(source, std::ios::binary);
    std::ofstream to(destination, std::ios::binary | std::ios::trunc);
    std::uint64_t copied = 0;
    std::vector<char> piece(bytesPerSecond == 0 ? 1024 * 1024 : bytesPerSecond / 10 + 1);
    while (from && to) {
        boost::this_thread::interruption_point();
        from.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        to.write(piece.data(), from.gcount());
        copied += static_cast<std::uint64_t>(from.gcount());
        zelor::CallReport::transferred(copied, 0);
        if (bytesPerSecond != 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    to.close();
    return from.eof() && to.good();
}

}  // namespace

Logger* Logger::GetInstance() {
    static Logger logger;
    return &logger;
}

log4cpp::Category& Logger::GetLogger() {
    static log4cpp::Category& category = []() -> log4cpp::Category& {
        log4cpp::Category& own = log4cpp::Category::getInstance("own-agent");
        own.setAdditivity(false);
        own.setPriority(log4cpp::Priority::INFO);
        own.addAppender(new log4cpp::OstreamAppender("clog", &std::clog));  // the category owns it
        return own;
    }();
    return category;
}

std::string Common::StripTrailingSeparators(const std::string& path) {
    return path.substr(0, path.find_last_not_of('/') + 1);
}

std::set<std::string> CacheStore::GetSplCaseCPEs() {
    return {};
}

ConfigurationManager* ConfigurationManager::GetInstance(std::string /*configFile*/) {
    static ConfigurationManager manager;
    return &manager;
}

std::string ConfigurationManager::getUnzipFileFolder() {
    return underSystemRoot("/var/zelor/unzip");
}

std::string ConfigurationManager::getBufferPatchesDir() {
    return underSystemRoot("/var/zelor/buffer");
}

std::string ConfigurationManager::getBufferPatchesDirSize() {
    return "2000";
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

parseOnlyMetadata CreCacher::getCre(std::string platformCpe, std::string productCpe, std::string cveOrCceId) {
    try {
        return readContent(platformCpe, productCpe, cveOrCceId);
    } catch (const std::exception& problem) {
        agentLog().errorStream() << "[OwnAgent] No content for " << cveOrCceId << ": " << problem.what();
        zelor::CallReport::addReason("no content for " + cveOrCceId + ": " + problem.what());
        parseOnlyMetadata none;
        RecordAccess::parsingFailed(none) = true;
        return none;
    }
}

// There is no cache to clear.
void CreCacher::removeCreFromCache(std::string, std::string, std::string) {}
void CreCacher::removeCreFile(std::string, std::string, std::string) {}

RemediationResourceDownloader* RemediationResourceDownloader::GetInstance() {
    static RemediationResourceDownloader downloader;
    return &downloader;
}

int RemediationResourceDownloader::getResource(std::string stem, std::string& archivePath,
                                               std::string /*extension*/, std::string /*installPath*/,
                                               bool rateLimited, unsigned long bytesPerSecond) {
    const std::string part = archivePath + ".part";
    boost::system::error_code error;
    if (copyAtRate(inRepository("patches/" + stem + ".tar"), part, rateLimited ? bytesPerSecond : 0)) {
        boost::filesystem::rename(part, archivePath, error);
        if (!error) return 0;
    }
    boost::filesystem::remove(part, error);
    agentLog().errorStream() << "[OwnAgent] Cannot get the archive of " << stem;
    zelor::CallReport::addReason("the repository has no usable archive of " + stem);
    return -1;
}

DownloadManager::DownloadManager(std::string /*installPath*/, bool /*useProxy*/) {}

// The repository is a local directory: there is no line to share, so a disk's usual speed is used.
unsigned long DownloadManager::GetDownloadSpeed(int& status) {
    status = 200;
    return 100000000UL;
}

ZipUtils::ZipUtils() = default;
ZipUtils::~ZipUtils() = default;

// tar refuses names that leave the directory.
bool ZipUtils::Unzip(char* archivePath, char* destinationDir) {
    return succeeds({"tar", "-x", "-f", archivePath, "-C", destinationDir});
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
    const std::string key = underSystemRoot("/etc/zelor/repository.pem");
    return succeeds({"openssl", "dgst", "-sha256", "-verify", key, "-signature", sigFileName_, fileName_})
               ? 1
               : 0;
}

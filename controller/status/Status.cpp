#include "controller/status/Status.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <set>
#include <sstream>

#include "agent/http/HttpClient.h"
#include "agent/http/RepositoryUrl.h"
#include "base/CommandRunner.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "base/SystemRoot.h"
#include "controller/JobLock.h"
#include "platform/AgentIni.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/buffer/PatchSize.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::controller {

namespace {

namespace fs = boost::filesystem;

constexpr char kInstalledRecord[] = "/var/log/zelor/ZelorInstalledPatches.txt";
constexpr char kBufferedList[] = "/bufferdPatchesList.txt";
constexpr std::size_t kListBytesLimit = std::size_t{256} << 20U;
constexpr std::chrono::seconds kToolLimit{30};

std::string systemSays(const std::string& option) {
    return base::trimmed(
        base::runCommand({"/bin/sh", "-c", "sw_vers " + option + " 2>/dev/null"}, false, kToolLimit).output);
}

std::string textOf(const std::string& path) {
    boost::system::error_code error;
    return fs::exists(path, error) ? base::readBounded(path, kListBytesLimit, base::Links::follow) : "";
}

/// The files directly inside a directory, by name.
std::vector<SizedFile> filesIn(const std::string& directory) {
    std::vector<SizedFile> files;
    boost::system::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        boost::system::error_code unreadable;
        if (!fs::is_regular_file(entry->symlink_status(unreadable))) continue;
        const auto bytes = fs::file_size(entry->path(), unreadable);
        if (!unreadable) files.push_back({entry->path().filename().string(), bytes});
    }
    std::sort(files.begin(), files.end(),
              [](const SizedFile& a, const SizedFile& b) { return a.name < b.name; });
    return files;
}

void readBuffer(const Paths& paths, Status& status) {
    status.bufferedList = textOf(paths.settings->values().unzipDirectory + kBufferedList);
    status.buffered = parseBufferedList(status.bufferedList);
    status.bufferFiles = filesIn(paths.settings->values().patchesDir);
    status.unlisted = status.bufferFiles;
    status.budgetBytes = remediation::budgetBytes(std::to_string(paths.settings->values().patchesDirSizeMB));
    for (const SizedFile& file : status.unlisted)
        status.bufferBytes += file.bytes;
    std::set<std::string> listed;
    for (BufferedPatch& patch : status.buffered) {
        const std::string archive = remediation::bufferedArchiveName(patch.patch);
        const auto file =
            std::lower_bound(status.unlisted.begin(), status.unlisted.end(), archive,
                             [](const SizedFile& one, const std::string& name) { return one.name < name; });
        patch.present = file != status.unlisted.end() && file->name == archive;
        if (patch.present) patch.bytes = file->bytes;
        listed.insert(archive);
    }
    status.unlisted.erase(std::remove_if(status.unlisted.begin(), status.unlisted.end(),
                                         [&](const SizedFile& file) { return listed.count(file.name) != 0; }),
                          status.unlisted.end());
}

void lookAtContentDir(const Paths& paths, Status& status) {
    status.contentDir = paths.contentDir;
    boost::system::error_code error;
    for (fs::directory_iterator entry(paths.contentDir, error), end; !error && entry != end;
         entry.increment(error))
        status.leftovers.push_back(entry->path().filename().string());
    std::sort(status.leftovers.begin(), status.leftovers.end());
    if (error && error != boost::system::errc::no_such_file_or_directory)
        status.leftoversProblem = error.message();
}

}  // namespace

std::vector<BufferedPatch> parseBufferedList(const std::string& text) {
    std::vector<BufferedPatch> patches;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> fields = base::splitCompressed(line, '=');
        if (fields.size() > 1) patches.push_back({fields[0], fields[1]});
    }
    return patches;
}

SystemIdentity systemIdentity() {
    return {systemSays("-productName"), systemSays("-productVersion"),
            MacPatchManager::getSystemPlatformCpe()};
}

std::string hostName() {
    std::array<char, 256> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0) return "this machine";
    return name.data();
}

std::string installedRecordFile() {
    return underSystemRoot(kInstalledRecord);
}

Status gatherStatus(const Paths& paths) {
    Status status;
    const SystemIdentity system = systemIdentity();
    status.productName = system.productName;
    status.productVersion = system.productVersion;
    status.platformCpe = system.platformCpe;
    status.iniFile = paths.settings->iniFile();
    status.settings = paths.settings->all();
    for (agent::Setting& setting : status.settings) {
        if (setting.key == "Repository.Url") setting.value = agent::shownAddresses(setting.value);
        if (setting.key == "Network.Proxy") setting.value = agent::withoutCredentials(setting.value);
    }
    status.problems = paths.settings->problems();
    const auto& warnings = paths.settings->warnings();
    status.problems.insert(status.problems.end(), warnings.begin(), warnings.end());
    if (const base::Check own = checkSettingsFiles(paths); !own) status.problems.push_back(own.error().text);
    status.index = agent::keptIndex(paths.installPath);
    status.buildFile = underSystemRoot(MPMBUILDFILE);
    if (const auto build = platform::readIniFile(status.buildFile))
        status.buildPlatform = build->get(MPMPLATFORM, std::string());
    status.recordFile = installedRecordFile();
    std::istringstream record(textOf(status.recordFile));
    for (std::string line; std::getline(record, line);)
        status.recorded.push_back(line);
    readBuffer(paths, status);
    status.partial = filesIn(paths.installPath + "/partial");
    const auto isNote = [](const SizedFile& file) { return !base::hasEnding(file.name, ".part"); };
    status.partial.erase(std::remove_if(status.partial.begin(), status.partial.end(), isNote),
                         status.partial.end());
    lookAtContentDir(paths, status);
    status.lockFile = jobLockFile();
    status.lock = base::lookAtLock(status.lockFile);
    if (status.lock.kind == base::LockState::Kind::free)
        status.killedCommand = base::lookAtCommand(commandLockFile());
    return status;
}

}  // namespace zelor::controller

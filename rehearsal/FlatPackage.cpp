#include "rehearsal/FlatPackage.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <set>
#include <stdexcept>

#include "agent/archive/ArchivePolicy.h"
#include "base/Files.h"
#include "rehearsal/ArchiveReader.h"

namespace zelor::rehearsal {

namespace {

constexpr std::size_t kTextLimit = 4U << 20U;
constexpr std::size_t kMemberLimit = 1000;

/// Files that hold a package's members: by directory in the package ("" is its top), then by member name.
using Members = std::map<std::string, std::map<std::string, std::string>>;

void writeMember(ArchiveReader& reader, const std::string& path) {
    const base::UniqueFd file = base::openFile(path, O_WRONLY | O_CREAT | O_EXCL, 0600);
    std::array<char, 1U << 16U> buffer{};
    while (const std::size_t count = reader.read(buffer.data(), buffer.size())) {
        if (!file || !base::writeAll(file.get(), std::string(buffer.data(), count))) {
            throw std::runtime_error("cannot write " + path + ": " + base::errorText(errno));
        }
    }
}

Members takeMembers(const std::string& path, const std::string& workDirectory) {
    static const std::set<std::string> kWanted{"Distribution", "PackageInfo", "Payload", "Scripts"};
    ArchiveReader reader(ArchiveReader::Kind::xar, path);
    Members members;
    std::size_t count = 0;
    while (archive_entry* entry = reader.next()) {
        const char* name = archive_entry_pathname(entry);
        const auto components = agent::pathComponents(name == nullptr ? "" : name);
        if (components.empty() || components.size() > 2 || kWanted.count(components.back()) == 0) continue;
        if (archive_entry_filetype(entry) != AE_IFREG) continue;
        if (++count > kMemberLimit) throw std::runtime_error("the package has too many parts");
        const std::string file = workDirectory + "/" + std::to_string(count);
        writeMember(reader, file);
        members[components.size() == 1 ? "" : components.front()][components.back()] = file;
    }
    return members;
}

PackageComponent componentFrom(const std::map<std::string, std::string>& files, const std::string& name) {
    const auto fileOf = [&](const char* member) {
        const auto it = files.find(member);
        return it == files.end() ? std::string() : it->second;
    };
    if (fileOf("PackageInfo").empty()) throw std::runtime_error(name + " has no PackageInfo");
    return {name, parsePackageInfo(base::readBounded(fileOf("PackageInfo"), kTextLimit)), fileOf("Payload"),
            fileOf("Scripts")};
}

FlatPackage product(const Members& members, const std::string& distributionFile) {
    const Distribution distribution = parseDistribution(base::readBounded(distributionFile, kTextLimit));
    FlatPackage package;
    package.title = distribution.title;
    package.restart = distribution.restart;
    for (const std::string& name : distribution.components) {
        const auto it = members.find(name);
        if (it == members.end())
            throw std::runtime_error("the product refers to " + name + ", which it has not");
        package.components.push_back(componentFrom(it->second, name));
    }
    return package;
}

[[noreturn]] void becomeScript(const PackageScript& script, int input, int log) {
    const bool ready = chdir(script.directory.c_str()) == 0 && dup2(input, STDIN_FILENO) >= 0 &&
                       dup2(log, STDOUT_FILENO) >= 0 && dup2(log, STDERR_FILENO) >= 0 &&
                       setenv("PACKAGE_PATH", script.packagePath.c_str(), 1) == 0 &&
                       setenv("DSTROOT", script.targetLocation.c_str(), 1) == 0 &&
                       setenv("DSTVOLUME", script.targetVolume.c_str(), 1) == 0 &&
                       setenv("SCRIPT_NAME", script.name.c_str(), 1) == 0;
    if (ready) {
        execlp("bash", "bash", ("./" + script.name).c_str(), script.packagePath.c_str(),
               script.targetLocation.c_str(), script.targetVolume.c_str(), static_cast<char*>(nullptr));
    }
    _exit(127);
}

}  // namespace

FlatPackage openPackage(const std::string& path, const std::string& workDirectory) {
    const Members members = takeMembers(path, workDirectory);
    const boost::filesystem::path file(path);
    FlatPackage package;
    const auto top = members.find("");
    if (top != members.end() && top->second.count("Distribution") != 0) {
        package = product(members, top->second.at("Distribution"));
    } else if (top != members.end()) {
        package.components.push_back(componentFrom(top->second, file.filename().string()));
    }
    if (package.components.empty()) throw std::runtime_error("the file holds no package");
    if (package.title.empty()) package.title = file.stem().string();
    for (const PackageComponent& component : package.components)
        package.restart |= component.info.restart;
    return package;
}

bool runPackageScript(const PackageScript& script, const std::string& logFile) {
    const base::UniqueFd input = base::openFile("/dev/null", O_RDONLY);
    const base::UniqueFd log = base::openFile(logFile, O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (!input || !log) return false;
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) becomeScript(script, input.get(), log.get());
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace zelor::rehearsal

#include "controller/Setup.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <vector>

#include "agent/http/RepositoryUrl.h"
#include "base/Deleter.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/ProgramStart.h"
#include "base/SystemRoot.h"
#include "base/TrustedDirectory.h"
#include "collaborators/Common.h"
#include "controller/InputError.h"
#include "controller/JobLock.h"
#include "platform/macos/MacPatchManager.h"

namespace zelor::controller {

namespace {

constexpr char kLogDirectory[] = "/var/log/zelor";
constexpr char kMountPoint[] = "/var/zelor/mountpoint";
constexpr char kSystemPath[] = "/usr/bin:/bin:/usr/sbin:/sbin";

/// The directory given with the option, with symbolic links resolved.
std::string existingDirectory(const std::string& path, const std::string& option) {
    const std::unique_ptr<char, base::Deleter<::free>> real(::realpath(path.c_str(), nullptr));
    if (!real) {
        throw InputError(option + ' ' + path + ": " + base::errorText(errno) +
                         "; name a directory that exists");
    }
    struct stat info {};
    if (::stat(real.get(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        throw InputError(option + ' ' + path + " is not a directory; name one that exists");
    }
    return real.get();
}

/// Prefixes a path as seen from the root with the root.
std::string placed(const std::string& path, const std::string& option) {
    const bool climbs = (path + '/').find("/../") != std::string::npos;
    if (path.empty() || path.front() != '/' || climbs) {
        throw InputError(option + " \"" + path +
                         "\" must be an absolute path without \"..\", as seen from the root");
    }
    const std::string stripped = Common::StripTrailingSeparators(path);
    return stripped.empty() ? getSystemRoot() : underSystemRoot(stripped);
}

void setEnvironment(const std::string& tools, const std::string& root) {
    // Scripts prefix their paths with it, so an inherited value must not redirect them when there is no root.
    constexpr const char* kRootVariable = "ZELOR_REHEARSAL_ROOT";
    if (root.empty())
        ::unsetenv(kRootVariable);
    else
        ::setenv(kRootVariable, root.c_str(), 1);
    const std::string path = (tools.empty() ? "" : tools + ':') + kSystemPath;
    ::setenv("PATH", path.c_str(), 1);
    base::removeHarmfulVariables();
}

/// True when `inner` is `outer` or lies below it.
bool isWithin(const std::string& inner, const std::string& outer) {
    return (inner + '/').compare(0, outer.size() + 1, outer + '/') == 0;
}

std::string parentOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

/// Makes a missing directory. On the system itself, only where no other user can replace it, and closed to
/// others.
void requireDirectory(const std::string& path, bool belowRoot) {
    if (belowRoot && !base::makeDirectories(path)) {
        const int error = errno;
        throw InputError("cannot make the directory " + path + ": " + base::errorText(error) +
                         writeRemedy(error, ::geteuid() == 0));
    }
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 && errno == ENOENT) {
        if (const base::Check made = base::prepareDirectory(path); !made) {
            throw InputError("the directory " + path + " is missing and cannot be made: " +
                             made.error().text + "; run as root, or make it with mode 0700, owned by root");
        }
    } else if (!S_ISDIR(info.st_mode)) {
        throw InputError(path + " is not a directory; move it away");
    }
    if (::access(path.c_str(), W_OK | X_OK) != 0) {
        const int error = errno;
        throw InputError("the directory " + path + " cannot be written: " + base::errorText(error) +
                         writeRemedy(error, ::geteuid() == 0));
    }
}

}  // namespace

base::Check checkSystem(const SystemFacts& facts, bool changes) {
    if (facts.rootNamed) return {};
    if (!facts.mac)
        return base::failure(
            "this system is not a Mac; name a directory to work below with --root DIR, for example a "
            "rehearsal Mac");
    if (changes && !facts.superuser)
        return base::failure("must run as root; use sudo, or name your own directory with --root DIR");
    return {};
}

void requireSystem(const PathOptions& options, bool changes) {
    SystemFacts facts;
    facts.rootNamed = !options.root.empty();
    facts.superuser = ::geteuid() == 0;
#ifdef __APPLE__
    facts.mac = true;
#endif
    if (const base::Check usable = checkSystem(facts, changes); !usable)
        throw InputError(usable.error().text);
}

std::string writeRemedy(int error, bool superuser) {
    if (error == EROFS) return "; make its disk writable";
    if ((error == EACCES || error == EPERM) && !superuser)
        return "; run as root, or name your own root with --root";
    return "; correct its path or permissions";
}

Paths resolvePaths(const PathOptions& options) {
    Paths paths;
    const std::string root = options.root.empty() ? "" : existingDirectory(options.root, "--root");
    const std::string tools = options.tools.empty() ? "" : existingDirectory(options.tools, "--tools");
    if (tools.find(':') != std::string::npos) {
        throw InputError("--tools " + tools +
                         " contains a colon, which separates directories in PATH; move the directory");
    }
    paths.belowRoot = !root.empty();
    setSystemRoot(root);
    setEnvironment(tools, root);
    paths.settings = agent::AgentSettings::load(underSystemRoot(agent::kAgentIniFile));
    paths.installPath = options.installPath.empty() ? paths.settings->values().installPath
                                                    : placed(options.installPath, "--install-path");
    paths.contentDir = placed(options.contentDir, "--content-dir");
    if (paths.installPath == root) throw InputError("--install-path must not be the root itself");
    return paths;
}

base::Check checkSettingsFiles(const Paths& paths) {
    const std::string ini = paths.settings->iniFile();
    if (const base::Check own = base::checkFile(ini); !own)
        return base::failure("the settings file " + ini + " is refused: " + own.error().text);
    const agent::Settings& settings = paths.settings->values();
    for (const auto& [what, file] :
         {std::pair<const char*, const std::string&>{"the trusted key ", settings.trustedKey},
          {"the root ", settings.root},
          {"the CA file ", settings.caFile}}) {
        if (file.empty()) continue;
        if (const base::Check own = base::checkFile(file); !own)
            return base::failure(what + file + " is refused: " + own.error().text);
    }
    return {};
}

void requireUsableSettings(const Paths& paths) {
    const std::string& ini = paths.settings->iniFile();
    struct stat info {};
    if (::stat(ini.c_str(), &info) != 0) {
        throw InputError("the agent's settings file " + ini + " cannot be read: " + base::errorText(errno) +
                         "; write one with [Repository] Url and TrustedKey");
    }
    std::string problems;
    for (const std::string& line : paths.settings->problems())
        problems += "\n  " + line;
    if (!problems.empty())
        throw InputError("the agent's settings are not all usable; correct them:" + problems);
    try {
        agent::repositoryUrls(*paths.settings);
    } catch (const std::exception& e) {
        throw InputError(e.what());
    }
    const std::string& key = paths.settings->values().trustedKey;
    if (key.empty()) {
        throw InputError(
            ini + ": [Repository] TrustedKey is missing; name the PEM file of the repository's public key");
    }
    if (const base::Check own = checkSettingsFiles(paths); !own) throw InputError(own.error().text);
    if (::access(key.c_str(), R_OK) != 0) {
        throw InputError("the trusted key " + key + " cannot be read: " + base::errorText(errno) +
                         "; put it there, or correct " + "[Repository] TrustedKey in " + ini);
    }
    const std::string& root = paths.settings->values().root;
    if (!root.empty() && ::access(root.c_str(), R_OK) != 0) {
        throw InputError("the root " + root + " cannot be read: " + base::errorText(errno) +
                         "; put it there, or correct [Repository] Root in " + ini);
    }
}

void checkContentDir(const Paths& paths) {
    const agent::Settings& settings = paths.settings->values();
    const std::vector<std::string> others = {settings.unzipDirectory,
                                             settings.patchesDir,
                                             settings.logFile,
                                             settings.trustedKey,
                                             settings.caFile,
                                             settings.root,
                                             paths.installPath,
                                             underSystemRoot(kLogDirectory),
                                             underSystemRoot(kMountPoint),
                                             underSystemRoot(Common::StripTrailingSeparators(APPFOLDER)),
                                             getSystemRoot()};
    const bool taken = std::any_of(others.begin(), others.end(), [&](const std::string& other) {
        return isWithin(other, paths.contentDir);
    });
    if (taken || paths.contentDir.empty()) {
        throw InputError(
            "--content-dir " + paths.contentDir +
            " contains other files of the agent, and a run empties it; choose a separate directory");
    }
    if (const base::Check own = base::checkDirectory(paths.contentDir); !own)
        throw InputError("the content directory " + paths.contentDir + " is refused: " + own.error().text);
    // The library accepts a directory that others can read but not change; we empty only a closed one.
    struct stat info {};
    if (::stat(paths.contentDir.c_str(), &info) == 0 && (info.st_mode & 077U) != 0) {
        throw InputError(
            "the content directory " + paths.contentDir +
            " must be a directory that you own and nobody else may enter, since a run empties it and starts "
            "what is in it; choose another, or give it mode 0700 if it contains nothing you need");
    }
}

std::chrono::milliseconds runTimeLimit(std::optional<std::chrono::milliseconds> asked, const Paths& paths) {
    return asked.value_or(std::chrono::minutes(paths.settings->values().runMinutes));
}

void emptyContentDir(const Paths& paths) {
    boost::system::error_code error;
    std::string left;
    std::vector<std::string> entries;
    for (boost::filesystem::directory_iterator it(paths.contentDir, error), end; !error && it != end;
         it.increment(error))
        entries.push_back(it->path().string());
    for (const std::string& entry : entries) {
        if (!base::removeTree(entry)) left = entry;
    }
    if (error) left = paths.contentDir;
    if (left.empty()) return;
    throw InputError("the content directory cannot be emptied: " + left +
                     " is left; remove it, or choose another with --content-dir");
}

void prepareDirectories(const Paths& paths, bool contentDir) {
    const agent::Settings& settings = paths.settings->values();
    for (const std::string& directory :
         {underSystemRoot(kLogDirectory), parentOf(settings.logFile), settings.unzipDirectory,
          settings.patchesDir, paths.installPath, parentOf(jobLockFile())}) {
        requireDirectory(directory, paths.belowRoot);
    }
    if (paths.belowRoot) {
        requireDirectory(underSystemRoot(Common::StripTrailingSeparators(APPFOLDER)), true);
        requireDirectory(underSystemRoot(kMountPoint), true);
    }
    if (!contentDir) return;
    requireDirectory(parentOf(paths.contentDir), true);
    if (const base::Check own = base::prepareDirectory(paths.contentDir); !own)
        throw InputError("the content directory " + paths.contentDir + " is refused: " + own.error().text);
    checkContentDir(paths);
}

void prepareForReading(const Paths& paths) {
    for (const std::string& directory :
         {underSystemRoot(kLogDirectory), parentOf(paths.settings->values().logFile), paths.installPath}) {
        requireDirectory(directory, paths.belowRoot);
    }
}

}  // namespace zelor::controller

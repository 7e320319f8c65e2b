#include "controller/Setup.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <optional>
#include <vector>

#include "agent/http/RepositoryUrl.h"
#include "base/Deleter.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/SystemRoot.h"
#include "base/TrustedDirectory.h"
#include "collaborators/Common.h"
#include "controller/InputError.h"
#include "controller/run/GiveWay.h"
#include "controller/run/Signals.h"
#include "platform/macos/MacPatchManager.h"

namespace zelor::controller {

namespace {

constexpr char kLogDirectory[] = "/var/log/zelor";
constexpr char kMountPoint[] = "/var/zelor/mountpoint";
constexpr std::chrono::milliseconds kBetweenLocks{500};
constexpr char kSystemPath[] = "/usr/bin:/bin:/usr/sbin:/sbin";

/// The directory that a person named, without symbolic links.
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

/// A path as seen from the root, below it.
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
    // Scripts put it before their paths; without a root it must not lead them elsewhere.
    constexpr const char* kRootVariable = "ZELOR_REHEARSAL_ROOT";
    if (root.empty())
        ::unsetenv(kRootVariable);
    else
        ::setenv(kRootVariable, root.c_str(), 1);
    const std::string path = (tools.empty() ? "" : tools + ':') + kSystemPath;
    ::setenv("PATH", path.c_str(), 1);
    for (const char* name : {"BASH_ENV", "ENV", "CDPATH", "GLOBIGNORE", "SHELLOPTS", "BASHOPTS", "IFS"})
        ::unsetenv(name);
}

/// True when `inner` is `outer` or lies below it.
bool isWithin(const std::string& inner, const std::string& outer) {
    return (inner + '/').compare(0, outer.size() + 1, outer + '/') == 0;
}

std::string parentOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

/// Makes a missing directory: below a root as it comes, on the system itself only where no other user can
/// replace it, and closed to others.
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
                             made.error().text + "; run as root, or make it for root alone (mode 0700)");
        }
    } else if (!S_ISDIR(info.st_mode)) {
        throw InputError(path + " is no directory; move it away");
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
        return base::failure("must run as root; use sudo, or name a directory of your own with --root DIR");
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
        return "; run as root, or name a root of your own with --root";
    return "; correct its place or rights";
}

Paths resolvePaths(const PathOptions& options) {
    Paths paths;
    const std::string root = options.root.empty() ? "" : existingDirectory(options.root, "--root");
    const std::string tools = options.tools.empty() ? "" : existingDirectory(options.tools, "--tools");
    if (tools.find(':') != std::string::npos) {
        throw InputError("--tools " + tools + " holds a colon, which PATH cannot; move the directory");
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
        agent::repositoryUrl(*paths.settings);
    } catch (const std::exception& e) {
        throw InputError(e.what());
    }
    const std::string& key = paths.settings->values().trustedKey;
    if (key.empty()) {
        throw InputError(
            ini + ": [Repository] TrustedKey is missing; name the PEM file of the repository's public key");
    }
    if (::access(key.c_str(), R_OK) != 0) {
        throw InputError("the trusted key " + key + " cannot be read: " + base::errorText(errno) +
                         "; put it there, or correct " + "[Repository] TrustedKey in " + ini);
    }
}

void checkContentDir(const Paths& paths) {
    const agent::Settings& settings = paths.settings->values();
    const std::vector<std::string> others = {settings.unzipDirectory,
                                             settings.patchesDir,
                                             settings.logFile,
                                             settings.trustedKey,
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
            " holds other files of the agent, and a run empties it; choose a directory of its own");
    }
    if (const base::Check own = base::checkDirectory(paths.contentDir); !own)
        throw InputError("the content directory " + paths.contentDir + " is refused: " + own.error().text);
    // The library lets others read a directory that they cannot change; a run of ours empties only a closed
    // one.
    struct stat info {};
    if (::stat(paths.contentDir.c_str(), &info) == 0 && (info.st_mode & 077U) != 0) {
        throw InputError(
            "the content directory " + paths.contentDir +
            " must be a directory of your own that nobody else may enter, since a run empties it and starts "
            "what it holds; choose another, or give it mode 0700 if it holds nothing you need");
    }
}

void prepareDirectories(const Paths& paths, bool contentDir) {
    const agent::Settings& settings = paths.settings->values();
    for (const std::string& directory : {underSystemRoot(kLogDirectory), parentOf(settings.logFile),
                                         settings.unzipDirectory, settings.patchesDir, paths.installPath}) {
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

JobLock::JobLock(const Paths& paths, const Waiting& waiting) {
    const std::string& directory = paths.settings->values().unzipDirectory;
    directory_ = base::openFile(directory, O_RDONLY | O_DIRECTORY);
    if (!directory_)
        throw InputError("cannot open the directory " + directory + ": " + base::errorText(errno));
    if (!take(directory)) await(directory, waiting);
}

/// False when another process has the lock.
bool JobLock::take(const std::string& directory) const {
    int result = 0;
    do {
        result = ::flock(directory_.get(), LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    if (result == 0) return true;
    if (errno == EWOULDBLOCK) return false;
    throw InputError("cannot lock the directory " + directory + ": " + base::errorText(errno) +
                     "; put it on a disk that knows locks");
}

void JobLock::await(const std::string& directory, const Waiting& waiting) const {
    using Clock = std::chrono::steady_clock;
    const std::string other = "another run or buffering job works at this place (it holds " + directory + ')';
    const bool wait = waiting.longest.count() > 0;
    if (wait && !waiting.quiet) std::cerr << "zelor-remediate: waiting, since " << other << '\n';
    const bool isRun = waiting.forBuffering.count() > 0;
    std::optional<WaitingSign> sign;
    if (isRun) sign.emplace(directory);
    bool said = wait || waiting.quiet;
    // A job that begins or ends has one of its two locks for a moment.
    auto until = Clock::now() + (isRun ? std::max<Clock::duration>(waiting.longest, kBetweenLocks)
                                       : Clock::duration(waiting.longest));
    const auto longest = Clock::now() + waiting.forBuffering;
    const Signals signals;
    while (Clock::now() < until) {
        if (sign && sign->jobBuffers()) {
            until = std::max(until, std::min(Clock::now() + kBetweenLocks, longest));
            if (!said) {
                std::cerr << "zelor-remediate: waiting for the buffering job, which stops after the patch in "
                             "hand or at most a minute\n";
            }
            said = true;
        }
        signals.wait(std::chrono::milliseconds(100));
        if (signals.endAsked())
            throw CommandError(exitStatus::kCancelled, "cancelled while it waited; nothing was changed");
        if (take(directory)) return;
    }
    throw CommandError(
        exitStatus::kBusy,
        other + (wait ? "; wait longer, or stop it" : "; wait for its end with --wait SECONDS, or stop it"));
}

}  // namespace zelor::controller

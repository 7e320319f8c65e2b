#include "authoring/rehearse/Sandbox.h"

#include <sys/wait.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <set>

#include "authoring/UsageError.h"
#include "base/CommandRunner.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

/// Top-level directories of this machine that are hidden: a Mac's disk has its own, each sandbox gets a new
/// one, or they hold sockets of services.
const std::set<std::string> kHidden = {
    "Applications", "Library", "System",  "Users", "Volumes", "boot", "cores", "dev", "etc",
    "lost+found",   "opt",     "private", "proc",  "run",     "sys",  "tmp",   "var"};

/// Files below /etc that programs of this machine need, unless the disk has its own.
constexpr const char* kSharedSettings[] = {"/etc/alternatives", "/etc/group", "/etc/ld.so.cache",
                                           "/etc/nsswitch.conf", "/etc/passwd"};

// The signals are ignored for bwrap here, and env lets the command handle them again.
constexpr const char* kStart =
    R"(trap "" INT TERM HUP
command -v bwrap >/dev/null || { echo "bwrap is not installed" >&2; exit 127; }
exec bwrap "$@")";

std::vector<std::string> wrapped(const std::vector<std::string>& options,
                                 const std::vector<std::string>& command) {
    std::vector<std::string> words = {"/bin/bash", "--norc", "-c", kStart, "bwrap"};
    words.insert(words.end(), {"--unshare-user", "--uid", "0", "--gid", "0"});
    words.insert(words.end(), {"--unshare-pid", "--unshare-ipc", "--die-with-parent"});
    // Only the rights of root over its own files, which are all that the Mac's disk holds.
    words.insert(words.end(), {"--cap-drop", "ALL"});
    for (const char* capability : {"CAP_CHOWN", "CAP_DAC_OVERRIDE", "CAP_FOWNER"})
        words.insert(words.end(), {"--cap-add", capability});
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {"--", "/usr/bin/env", "--default-signal=INT,TERM,HUP"});
    words.insert(words.end(), command.begin(), command.end());
    return words;
}

bool isDirectory(const std::string& path) {
    boost::system::error_code ignored;
    return fs::is_directory(path, ignored);
}

}  // namespace

std::string whyNoSandbox() {
    constexpr std::chrono::seconds kLimit{20};
    const base::CommandResult result = base::runCommand(
        wrapped({"--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc"}, {"/bin/bash", "-c", ":"}), true,
        kLimit);
    if (result.waited && WIFEXITED(result.status) && WEXITSTATUS(result.status) == 0) return "";
    const std::string said = base::trimmed(result.output);
    return said.empty() ? "bwrap does not work here" : said;
}

Sandbox::Sandbox(SandboxOptions options) : options_(std::move(options)) {
    arguments_ = {"--bind", options_.disk, "/"};
    for (fs::directory_iterator it("/"), end; it != end; ++it) {
        const std::string name = it->path().filename().string();
        if (kHidden.count(name) == 0 && isDirectory(it->path().string()))
            bind("--ro-bind", it->path().string());
    }
    for (const char* path : kSharedSettings) {
        boost::system::error_code ignored;
        if (fs::exists(path, ignored) && !fs::exists(fs::symlink_status(options_.disk + path, ignored)))
            bind("--ro-bind", path);
    }
    for (const auto& [option, path] :
         {std::pair{"--dev", "/dev"}, {"--proc", "/proc"}, {"--tmpfs", "/tmp"}}) {
        rememberMissing(path);
        arguments_.insert(arguments_.end(), {option, path});
    }
    for (const std::string& path : options_.readable)
        bind("--ro-bind", path);
    for (const std::string& path : options_.writable)
        bind("--bind", path);
    bind("--bind", options_.disk);
    arguments_.insert(arguments_.end(), {"--unsetenv", "TMPDIR", "--chdir", "/"});
}

Sandbox::~Sandbox() {
    // Mount points that bwrap made; a directory that is no longer empty stays.
    for (auto it = missing_.rbegin(); it != missing_.rend(); ++it) {
        boost::system::error_code ignored;
        if (isDirectory(*it) || fs::file_size(*it, ignored) == 0) ::remove(it->c_str());
    }
}

void Sandbox::bind(const std::string& how, const std::string& path) {
    rememberMissing(path);
    arguments_.insert(arguments_.end(), {how, path, path});
}

void Sandbox::rememberMissing(const std::string& path) {
    for (auto end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string place = options_.disk + path.substr(0, end);
        boost::system::error_code ignored;
        const fs::file_type type = fs::symlink_status(place, ignored).type();
        if (type == fs::file_not_found) {
            missing_.push_back(place);
        } else if (type != fs::directory_file) {
            throw UsageError(place + " is not a directory, but the sandbox needs one there; rename it");
        }
        if (end == std::string::npos) return;
    }
}

std::vector<std::string> Sandbox::words(const std::vector<std::string>& command) const {
    return wrapped(arguments_, command);
}

}  // namespace zelor::authoring

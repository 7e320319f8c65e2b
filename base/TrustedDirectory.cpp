#include "base/TrustedDirectory.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstring>
#include <memory>

#include "base/AccessList.h"
#include "base/Deleter.h"
#include "base/Strings.h"
#include "base/SystemRoot.h"

namespace zelor::base {

namespace {

constexpr char kNoName[] = "it has no name; set one";

/// `path` made absolute, without separators and "." at its end, which would make a link be followed.
std::string plainPath(const std::string& path) {
    std::string plain = path;
    if (!hasBeginning(path, "/")) {
        boost::system::error_code error;
        plain = boost::filesystem::current_path(error).string() + "/" + path;
    }
    while (plain.size() > 1 && (plain.back() == '/' || hasEnding(plain, "/.")))
        plain.pop_back();
    return plain;
}

bool ownerIsTrusted(const struct stat& info, const std::string& base) {
    struct stat top {};
    const bool known = ::stat(base.empty() ? "/" : base.c_str(), &top) == 0;
    return info.st_uid == 0 || info.st_uid == ::geteuid() || (known && info.st_uid == top.st_uid);
}

/// The system root when `path` is below it: nothing above it is checked.
std::string baseOf(const std::string& path) {
    const std::string root = getSystemRoot();
    return hasBeginning(path, root + "/") ? root : "";
}

std::string problemOnTheWay(const std::string& path);

/// The same for one directory or symbolic link on the way.
std::string problemOf(const std::string& step, const struct stat& link, const std::string& base) {
    if (!ownerIsTrusted(link, base)) return step + " on the way to it belongs to another user";
    if (S_ISLNK(link.st_mode)) {
        const std::unique_ptr<char, Deleter<::free>> real(::realpath(step.c_str(), nullptr));
        if (!real) return step + " on the way to it leads nowhere: " + std::strerror(errno);
        return problemOnTheWay(std::string(real.get()) + "/.");
    }
    if (!S_ISDIR(link.st_mode)) return step + " on the way to it is no directory";
    if (hasAccessList(step) && othersMayChange(readAccessList(step), ::geteuid()))
        return "others may replace it, since the access list of " + step + " lets them (chmod -N)";
    const bool open = (link.st_mode & S_IWOTH) != 0 && (link.st_mode & S_ISVTX) == 0;
    return open ? "everybody may replace it, since " + step + " is writable by all (chmod o-w)" : "";
}

std::string problemOnTheWay(const std::string& path) {
    const std::string base = baseOf(path);
    for (auto end = path.find('/', base.size() + 1); end != std::string::npos;
         end = path.find('/', end + 1)) {
        const std::string step = path.substr(0, end);
        struct stat info {};
        if (::lstat(step.c_str(), &info) != 0) {
            return errno == ENOENT ? "" : "cannot look at " + step + ": " + std::strerror(errno);
        }
        std::string problem = problemOf(step, info, base);
        if (!problem.empty()) return problem;
    }
    return "";
}

std::string problemOfDirectory(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
        return errno == ENOENT ? "" : std::string("cannot look at it: ") + std::strerror(errno);
    }
    if (S_ISLNK(info.st_mode)) return "it is a symbolic link; put a directory in its place";
    if (!S_ISDIR(info.st_mode)) return "it is no directory; remove it";
    if (info.st_uid != ::geteuid()) return "it belongs to another user; choose another, or remove it";
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "others may write to it; take that right away (chmod go-w) if it holds nothing of theirs";
    }
    if (hasAccessList(path) && othersMayChange(readAccessList(path), ::geteuid()))
        return "its access list lets others change it; remove that (chmod -N) if it holds nothing of theirs";
    return "";
}

/// The group that has this user's name and no other member.
bool isOwnGroup(gid_t gid) {
    const struct passwd* const user = ::getpwuid(::geteuid());
    if (user == nullptr || user->pw_gid != gid) return false;
    const std::string name = user->pw_name;
    const struct group* const group = ::getgrgid(gid);
    if (group == nullptr || name != group->gr_name) return false;
    for (char** member = group->gr_mem; member != nullptr && *member != nullptr; ++member) {
        if (name != *member) return false;
    }
    return true;
}

/// What is wrong with the owner, the mode and the access list of `path`, followed through links.
std::string changeProblem(const std::string& path, const std::string& base) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return errno == ENOENT ? "" : "cannot look at " + path + ": " + std::strerror(errno);
    if (!ownerIsTrusted(info, base)) return path + " belongs to another user (chown)";
    const bool listed = hasAccessList(path);
    const bool group = (info.st_mode & S_IWGRP) != 0 && (listed || !isOwnGroup(info.st_gid));
    if (group || (info.st_mode & S_IWOTH) != 0) return "others may write to " + path + " (chmod go-w)";
    return listed && othersMayChange(readAccessList(path), ::geteuid())
               ? "the access list of " + path + " lets others change it (chmod -N)"
               : "";
}

/// Why others could put another file in the place of `path`, itself not looked at.
std::string placeProblem(const std::string& path) {
    const std::string problem = problemOnTheWay(path);
    return problem.empty() ? changeProblem(path.substr(0, path.rfind('/')) + "/.", baseOf(path)) : problem;
}

/// Why others could put something else in the place of `path`, "" when they cannot.
std::string replaceProblem(const std::string& path) {
    std::string problem = problemOnTheWay(path);
    if (!problem.empty()) return problem;
    const std::string directory = path.substr(0, path.rfind('/')) + "/.";
    struct stat info {};
    if (::stat(directory.c_str(), &info) != 0) return path + " cannot be found: " + std::strerror(errno);
    const bool writable = (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    return writable ? "others may write to the directory of " + path + " (chmod go-w)" : "";
}

/// What the symbolic link at `path` leads to, or why it must not be followed.
std::string linkTarget(const std::string& path, std::string& problem) {
    struct stat info {};
    boost::system::error_code error;
    std::string target = boost::filesystem::read_symlink(path, error).string();
    if (error || ::lstat(path.c_str(), &info) != 0) {
        problem = "the link cannot be read";
        return "";
    }
    if (!hasBeginning(target, "/")) target = path.substr(0, path.rfind('/') + 1) + target;
    problem = ownerIsTrusted(info, baseOf(path)) ? replaceProblem(path) : "the link belongs to another user";
    if (problem.empty()) problem = replaceProblem(target);
    return target;
}

/// Opens what a link leads to; checks the open descriptor, since that is what gets used.
UniqueFd openTarget(const std::string& target, int flags, std::string& problem) {
    UniqueFd fd = openFile(target, (flags & ~O_CREAT) | O_NOFOLLOW | O_NONBLOCK);
    struct stat info {};
    if (!fd || fstat(fd.get(), &info) != 0) {
        problem = errno == ELOOP ? target + " is a link too" : target + ": " + std::strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        problem = target + " is no regular file";
    } else if (!ownerIsTrusted(info, baseOf(target))) {
        problem = target + " belongs to another user";
    } else if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        problem = "others may write to " + target + " (chmod go-w)";
    } else if (hasAccessList(target) && othersMayChange(readAccessList(target), ::geteuid())) {
        problem = "the access list of " + target + " lets others change it (chmod -N)";
    }
    if (!problem.empty()) fd.reset();
    return fd;
}

/// Success for "".
Check checkOf(std::string problem) {
    if (problem.empty()) return {};
    return failure(std::move(problem));
}

}  // namespace

Check checkDirectory(const std::string& path) {
    if (path.empty()) return failure(kNoName);
    const std::string plain = plainPath(path);
    std::string problem = problemOnTheWay(plain);
    return checkOf(problem.empty() ? problemOfDirectory(plain) : problem);
}

Check prepareDirectory(const std::string& path) {
    if (path.empty()) return failure(kNoName);
    const std::string plain = plainPath(path);
    std::string problem = problemOnTheWay(plain);
    if (!problem.empty()) return failure(problem);
    for (auto end = plain.find('/', 1); end != std::string::npos; end = plain.find('/', end + 1)) {
        const std::string above = plain.substr(0, end);
        struct stat info {};
        if (::stat(above.c_str(), &info) != 0 && ::mkdir(above.c_str(), 0755) != 0 && errno != EEXIST)
            return systemFailure("cannot make " + above);
    }
    if (::mkdir(plain.c_str(), 0700) != 0 && errno != EEXIST && errno != EISDIR)
        return systemFailure("cannot make " + plain);
    return checkOf(problemOfDirectory(plain));
}

Check checkFile(const std::string& path) {
    std::string plain = plainPath(path);
    std::string problem = placeProblem(plain);
    struct stat info {};
    if (problem.empty() && ::lstat(plain.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) {
        if (!ownerIsTrusted(info, baseOf(plain)))
            return failure(plain + " is a link of another user; remove it");
        const std::unique_ptr<char, Deleter<::free>> real(::realpath(plain.c_str(), nullptr));
        if (!real) return {};  // to nothing
        plain = real.get();
        problem = placeProblem(plain);
    }
    return checkOf(problem.empty() ? changeProblem(plain, baseOf(plain)) : problem);
}

Result<UniqueFd> openOwnFile(const std::string& path, int flags) {
    UniqueFd fd = openFile(path, flags | O_NOFOLLOW);
    if (fd) return fd;
    const int error = errno;
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) {
        errno = error;
        return systemFailure();
    }
    std::string problem;
    const std::string target = linkTarget(plainPath(path), problem);
    if (problem.empty()) fd = openTarget(target, flags, problem);
    if (!problem.empty()) {
        return failure("it is a symbolic link, and " + problem +
                       "; put the file itself there, or link to one that only root can change or replace");
    }
    if (!fd) return systemFailure();
    return fd;
}

}  // namespace zelor::base

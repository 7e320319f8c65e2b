#include "remediation/apply/InstalledRecord.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/Files.h"
#include "base/Strings.h"
#include "base/TrustedDirectory.h"
#include "platform/Log.h"

namespace zelor::remediation {

namespace {

constexpr std::size_t kFirstRead = std::size_t{1} << 16U;

}  // namespace

void InstalledRecord::forget() {
    lines_.clear();
    texts_.clear();
    unfinished_.clear();
    damaged_ = 0;
    path_.clear();
    stamp_ = base::FileStamp();
    settled_ = false;
}

void InstalledRecord::refresh(const std::string& path) {
    const base::FileStamp now = base::stampOf(path);
    if (now.exists && settled_ && path == path_ && now == stamp_) return;
    forget();
    const base::Result<base::UniqueFd> fd = base::openOwnFile(path, O_RDONLY | O_NONBLOCK);
    reportRefusal(path, fd || fd.error().error != 0 ? "" : fd.error().text);
    struct stat info {};
    if (!fd || fstat(fd->get(), &info) != 0) return;
    path_ = path;
    stamp_ = base::stampOf(info);
    settled_ = readLines(fd->get()) == stamp_.size && !base::changedRecently(stamp_);
    reportDamage();
}

off_t InstalledRecord::readLines(int fd) {
    std::string& text = texts_.emplace_back();
    for (;;) {
        const std::size_t size = text.size();
        text.resize(size + std::max(size, kFirstRead));
        const ssize_t count = pread(fd, text.data() + size, text.size() - size, static_cast<off_t>(size));
        text.resize(size + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count == 0 || (count < 0 && errno != EINTR)) break;
    }
    lines_.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
    std::string_view rest = text;
    for (auto end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        const std::string_view line = rest.substr(0, end);
        if (base::isDamagedLine(line)) ++damaged_;
        lines_.insert(line);
        rest.remove_prefix(end + 1);
    }
    unfinished_ = rest;
    if (base::isDamagedLine(unfinished_)) ++damaged_;
    return static_cast<off_t>(text.size());
}

void InstalledRecord::reportDamage() {
    if (report_ == Report::nothing) return;
    if (!unfinished_.empty() && unfinished_ != reportedEnd_) {
        log::error("[Remediation Manager] The last line of ", path_, " has no end; it counts as it stands.");
    }
    if (damaged_ != 0 && damaged_ != reportedDamage_) {
        log::error("[Remediation Manager] ", path_, " has ", damaged_,
                   " damaged lines, with control characters that the agent never writes.");
    }
    reportedEnd_ = unfinished_;
    reportedDamage_ = damaged_;
}

void InstalledRecord::reportRefusal(const std::string& path, const std::string& problem) {
    if (!problem.empty() && problem != reportedRefusal_ && report_ == Report::toLog) {
        log::error("[Remediation Manager] The record ", path, " is not used: ", problem,
                   "; until then all is applied again");
    }
    reportedRefusal_ = problem;
}

base::Check InstalledRecord::append(const std::string& path, const std::string& line) {
    base::Result<base::UniqueFd> file = base::openOwnFile(path, O_RDWR | O_APPEND | O_CREAT);
    if (!file) return tl::unexpected(file.error());
    base::UniqueFd& fd = *file;
    // The record must not outlive what it says is installed, whoever installed it.
    if (!base::flushAll(fd.get())) return base::systemFailure();
    struct stat before {};
    struct stat after {};
    bool done = fstat(fd.get(), &before) == 0 && base::appendLine(fd.get(), line);
    const bool known = done && fstat(fd.get(), &after) == 0;
    done = done && fd.close();
    if (!done) return base::systemFailure();
    if (before.st_size == 0) {
        forget();
        path_ = path;
        stamp_ = base::stampOf(before);
    }
    const std::size_t added = (unfinished_.empty() ? 0 : 1) + line.size() + 1;
    const bool onlyWriter = path == path_ && base::stampOf(before) == stamp_ &&
                            after.st_size == before.st_size + static_cast<off_t>(added);
    if (known && onlyWriter) {
        takeAppended(line);
        stamp_ = base::stampOf(after);
        settled_ = true;
    }
    return {};
}

void InstalledRecord::takeAppended(const std::string& line) {
    if (!unfinished_.empty()) lines_.insert(texts_.emplace_back(std::move(unfinished_)));
    unfinished_.clear();
    lines_.insert(texts_.emplace_back(line));
}

}  // namespace zelor::remediation

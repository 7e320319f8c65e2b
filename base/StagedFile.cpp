#include "base/StagedFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "base/Directories.h"
#include "base/Strings.h"
#include "base/SystemCalls.h"

namespace zelor::base {

namespace {

constexpr const char* kHiddenPrefix = ".staged-";

[[noreturn]] void fail(const std::string& path) {
    throw std::runtime_error("cannot write " + path + ": " + errorText(errno));
}

}  // namespace

StagedName::~StagedName() {
    if (renamed_) return;
    const int error = errno;
    ::unlinkat(directory_, name_.c_str(), 0);
    errno = error;
}

bool StagedName::renameTo(const std::string& target) {
    renamed_ = ::renameat(directory_, name_.c_str(), directory_, target.c_str()) == 0;
    return renamed_;
}

StagedFile::Made StagedFile::makeHidden(const std::string& path) {
    std::string name = path.substr(0, path.rfind('/') + 1) + kHiddenPrefix + "XXXXXX";
    UniqueFd file(::mkostemp(name.data(), O_CLOEXEC));
    if (!file) fail(path);
    return {AT_FDCWD, std::move(name), std::move(file)};
}

StagedFile::Made StagedFile::makeNamed(int directory, const std::string& name, unsigned mode,
                                       const std::string& path) {
    (void)::unlinkat(directory, name.c_str(), 0);
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    UniqueFd file(::openat(directory, name.c_str(), kFlags, static_cast<mode_t>(mode)));
    if (!file) fail(path);
    return {directory, name, std::move(file)};
}

StagedFile::StagedFile(const std::string& path, const std::string& target, Made made)
    : path_(path),
      target_(target),
      staged_(made.directory, std::move(made.name)),
      file_(std::move(made.file)) {}

StagedFile::StagedFile(const std::string& path) : StagedFile(path, path, makeHidden(path)) {
    // mkostemp's 0600 would keep a web server from reading what is published.
    if (::fchmod(file_.get(), 0644) != 0) fail(path_);
}

StagedFile::StagedFile(const std::string& path, const std::string& suffix, unsigned mode)
    : StagedFile(AT_FDCWD, path, suffix, mode, path) {}

StagedFile::StagedFile(int directory, const std::string& name, const std::string& suffix, unsigned mode,
                       const std::string& path)
    : StagedFile(path, name, makeNamed(directory, name + suffix, mode, path)) {}

void StagedFile::write(std::string_view bytes) {
    if (!writeAll(file_.get(), bytes)) fail(path_);
}

void StagedFile::close() {
    if (file_.valid() && !file_.close()) fail(path_);
}

void StagedFile::finish() {
    if (flushed_) return;
    if (!file_) {
        constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC;
        file_ = UniqueFd(::openat(staged_.directory(), staged_.name().c_str(), kFlags));
    }
    if (!file_ || !flushToDisk(file_.get()) || !file_.close()) fail(path_);
    flushed_ = true;
}

void StagedFile::commit() {
    finish();
    moveIntoPlace();
    flushDirectory(directoryOf(path_));
}

void StagedFile::commitUnflushed() {
    close();
    moveIntoPlace();
}

void StagedFile::moveIntoPlace() {
    if (!staged_.renameTo(target_)) fail(path_);
}

StagedFile& StagedFiles::add(const std::string& path) {
    return files_.emplace_back(path);
}

void StagedFiles::flush(const std::set<std::string>& directories) {
    // A few files are flushed more quickly one by one.
    constexpr std::size_t kMany = 16;
    bool flushed = files_.size() >= kMany;
    for (const std::string& directory : directories) {
        const UniqueFd fd = openFile(directory, O_RDONLY | O_DIRECTORY);
        flushed = flushed && fd.valid() && flushFileSystem(fd.get());
    }
    for (StagedFile& file : files_) {
        if (flushed) file.flushed_ = true;
        file.finish();
    }
}

void StagedFiles::commit() {
    std::set<std::string> directories;
    for (StagedFile& file : files_) {
        file.close();
        directories.insert(directoryOf(file.path_));
    }
    flush(directories);
    for (StagedFile& file : files_)
        file.moveIntoPlace();
    for (const std::string& directory : directories)
        flushDirectory(directory);
    files_.clear();
}

void replaceFile(const std::string& path, std::string_view bytes) {
    StagedFile file(path);
    file.write(bytes);
    file.commit();
}

void replaceFileIn(const UniqueFd& directory, const std::string& name, const std::string& path,
                   std::string_view bytes) {
    StagedFile file(directory.get(), name, ".new", 0600, path);
    file.write(bytes);
    file.commitUnflushed();
}

bool isStagedName(const std::string& name) {
    return hasBeginning(name, kHiddenPrefix);
}

}  // namespace zelor::base

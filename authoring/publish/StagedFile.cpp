#include "authoring/publish/StagedFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <set>
#include <stdexcept>

#include "agent/Files.h"
#include "base/Strings.h"
#include "base/SystemCalls.h"

namespace zelor::authoring {

namespace {

constexpr const char* stagedPrefix = ".staged-";

[[noreturn]] void fail(const std::string& path) {
    throw std::runtime_error("cannot write " + path + ": " + agent::errorText(errno));
}

}  // namespace

StagedFile::StagedFile(const std::string& path)
    : path_(path), staged_(path.substr(0, path.rfind('/') + 1) + stagedPrefix + "XXXXXX") {
    file_ = base::UniqueFd(::mkostemp(staged_.data(), O_CLOEXEC));
    if (!file_.valid()) fail(path_);
    // A repository is there to be served: mkstemp's 0600 would keep a web server out.
    if (::fchmod(file_.get(), 0644) != 0) fail(path_);
}

StagedFile::~StagedFile() {
    if (!staged_.empty()) ::unlink(staged_.c_str());
}

void StagedFile::write(std::string_view bytes) {
    if (!base::writeAll(file_.get(), bytes)) fail(path_);
}

void StagedFile::close() {
    if (file_.valid() && !file_.close()) fail(path_);
}

void StagedFile::finish() {
    if (flushed_) return;
    if (!file_.valid()) file_ = base::openFile(staged_, O_RDONLY | O_NOFOLLOW);
    if (!file_.valid() || !base::flushToDisk(file_.get()) || !file_.close()) fail(path_);
    flushed_ = true;
}

void StagedFile::commit() {
    finish();
    moveIntoPlace();
    base::flushDirectory(directory());
}

void StagedFile::moveIntoPlace() {
    if (std::rename(staged_.c_str(), path_.c_str()) != 0) fail(path_);
    staged_.clear();
}

std::string StagedFile::directory() const {
    const auto slash = path_.rfind('/');
    return slash == std::string::npos ? "." : path_.substr(0, slash + 1);
}

StagedFile& StagedFiles::add(const std::string& path) {
    return files_.emplace_back(path);
}

void StagedFiles::flush(const std::set<std::string>& directories) {
    // Of a few files it is quicker to flush these alone.
    constexpr std::size_t many = 16;
    bool flushed = files_.size() >= many;
    for (const std::string& directory : directories) {
        const base::UniqueFd fd = base::openFile(directory, O_RDONLY | O_DIRECTORY);
        flushed = flushed && fd.valid() && base::flushFileSystem(fd.get());
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
        directories.insert(file.directory());
    }
    flush(directories);
    for (StagedFile& file : files_)
        file.moveIntoPlace();
    for (const std::string& directory : directories)
        base::flushDirectory(directory);
    files_.clear();
}

void replaceFile(const std::string& path, std::string_view bytes) {
    StagedFile file(path);
    file.write(bytes);
    file.commit();
}

bool isStagedName(const std::string& name) {
    return base::hasBeginning(name, stagedPrefix);
}

}  // namespace zelor::authoring

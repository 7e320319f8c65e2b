#include "authoring/publish/StagedFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "agent/Files.h"
#include "base/Strings.h"

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

void StagedFile::finish() {
    if (file_.valid() && (!base::flushToDisk(file_.get()) || !file_.close())) fail(path_);
}

void StagedFile::commit() {
    finish();
    if (std::rename(staged_.c_str(), path_.c_str()) != 0) fail(path_);
    staged_.clear();
    const auto slash = path_.rfind('/');
    base::flushDirectory(slash == std::string::npos ? "." : path_.substr(0, slash + 1));
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

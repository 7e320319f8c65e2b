#include "authoring/OutputFile.h"

#include <sys/stat.h>

#include <iostream>
#include <stdexcept>

#include "authoring/UsageError.h"

namespace zelor::authoring {

OutputFile::OutputFile(const std::string& path, const std::string& option) {
    if (path == "-") return;
    // Replacing a link, a pipe or a device by a file would surprise.
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
        throw UsageError(option + ": " + path +
                         " is not a regular file; name another file, or - for standard output");
    try {
        file_.emplace(path);
    } catch (const std::runtime_error& e) {
        throw UsageError(option + ": " + e.what() + "; name a file in a directory that exists");
    }
}

void OutputFile::write(const std::string& text) {
    if (file_) {
        file_->write(text);
        file_->commit();
    } else if (!(std::cout << text << std::flush)) {
        throw std::runtime_error("cannot write standard output");
    }
}

}  // namespace zelor::authoring

#include "base/SystemRoot.h"

namespace {

std::string& root() {
    static std::string directory;
    return directory;
}

}  // namespace

void setSystemRoot(const std::string& directory) {
    const auto last = directory.find_last_not_of('/');
    root() = last == std::string::npos ? "" : directory.substr(0, last + 1);
}

std::string getSystemRoot() {
    return root();
}

std::string underSystemRoot(const std::string& path) {
    if (root().empty()) return path;
    return path.empty() || path.front() != '/' ? root() + "/" + path : root() + path;
}

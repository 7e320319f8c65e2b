#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "base/Deleter.h"
#include "base/DirectoryCopy.h"
#include "base/SystemRoot.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/CallReport.h"

namespace zlog = zelor::log;

namespace {

// With a separator at the end, the system would follow a link in the path's place.
std::string withoutSeparatorAtEnd(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

}  // namespace

bool MacPatchManager::copyDir(boost::filesystem::path source, boost::filesystem::path destination) {
    struct stat info {};
    if (stat(source.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        zlog::debug("[MacPatchManager] Source directory ", source.string(),
                    " does not exist or is not a directory.");
        zelor::CallReport::addReason("there is no directory " + source.string());
        return false;
    }
    const std::string place = withoutSeparatorAtEnd(destination.string());
    const bool shared = place == withoutSeparatorAtEnd(underSystemRoot(APPFOLDER));
    bool isNew = lstat(place.c_str(), &info) != 0;
    if (!isNew && !shared && S_ISLNK(info.st_mode)) isNew = unlink(place.c_str()) == 0;
    if (isNew && mkdir(place.c_str(), 0755) != 0) {
        zlog::debug("[MacPatchManager] Unable to create destination directory", destination.string());
        zelor::CallReport::addReason("cannot make the directory " + destination.string());
        return false;
    }
    const std::string problem = zelor::base::copyTree(source.string(), place, isNew, shared);
    if (problem.empty()) return true;
    zlog::error("[MacPatchManager] (copyDir) The copy ended early: ", problem);
    zelor::CallReport::addReason("the copy ended early: " + problem);
    return false;
}

std::vector<std::string> MacPatchManager::listFilesInDirectory(std::string dir) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, zelor::base::Deleter<closedir>> directory(opendir(dir.c_str()));
    if (!directory) {
        const int error = errno;  // the logger may change it
        zlog::error(" [MacPatchManager] Opening of the file :", dir, "failed. Error code = ", error);
        return names;
    }
    while (const dirent* entry = readdir(directory.get()))
        names.emplace_back(entry->d_name);
    return names;
}

void MacPatchManager::emptyTheContentDirectory(std::string dir) {
    zlog::debug(" [MacPatchManager] Inside emptyTheContentDirectory for dir \"", dir);
    for (const std::string& name : listFilesInDirectory(dir)) {
        if (name == "." || name == "..") continue;
        const std::string path = dir + "/" + name;
        const int result = std::remove(path.c_str());
        if (result != 0) {
            zlog::error(" [MacPatchManager] Deletion of the file : '", path,
                        "' failed. Error code = ", result);
        }
    }
}

#pragma once

#include <functional>
#include <string>

#include "remediation/buffer/BufferedList.h"

namespace zelor::remediation {

/// The buffer: archives in the agent's buffer directory, and their list in its unzip directory. Nothing is
/// used or changed while other users can modify one of the directories. One thread at a time. No operation
/// throws.
class BufferedPatches {
  public:
    /// `listName`: the list's file name; the string outlives the object.
    explicit BufferedPatches(const std::string& listName) : listName_(listName) {}
    BufferedPatches(const BufferedPatches&) = delete;
    BufferedPatches& operator=(const BufferedPatches&) = delete;

    /// The list's path according to the agent's settings.
    std::string listPath() const;
    /// The path of the archive of that name by the agent's settings.
    static std::string archivePath(const std::string& archive);

    /// True when the list at `listPath` has the patch with `md5sum`, and its archive exists.
    bool has(const std::string& patchName, const std::string& md5sum, const std::string& listPath);
    /// Answers whether the list as it is now has a patch with that md5sum, and whether its archive exists;
    /// logs nothing.
    static std::function<bool(const std::string& patchName, const std::string& md5sum)> lookAt(
        const std::string& listPath);
    /// Adds a buffered patch to the list, replacing older entries. A failure is logged and added to the call
    /// report.
    void add(const std::string& patchName, const std::string& md5sum, const std::string& listPath);
    /// Removes every line that contains `patchName`, even as part of a longer name. A failure is logged and
    /// leaves the list as it is.
    void removeEntry(const std::string& patchName);
    /// Deletes the archive of a patch that has been installed from `installedFile`, and its entry.
    void discard(const std::string& patchName, const std::string& installedFile);

  private:
    const std::string& listName_;
    BufferedList list_;
};

/// True when other users can modify neither the directory of the buffered-patches list nor the buffer
/// directory; otherwise an error line says why neither is used.
bool bufferDirectoriesAreOurs();

}  // namespace zelor::remediation

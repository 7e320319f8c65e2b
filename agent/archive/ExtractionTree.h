#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Files.h"

namespace zelor::agent {

/// Creates files, links and directories below one directory without ever following a symbolic link below it.
/// Paths are component lists without "..". Every operation throws std::runtime_error that names the cause.
class ExtractionTree {
  public:
    /// A path's components below the destination, and a modification time (none: leave it as it is).
    using Path = std::vector<std::string>;
    using Time = std::optional<timespec>;

    /// Whether what was created is remembered for `rollBack`. Who unpacks into a private directory, and
    /// removes that, needs no memory for it.
    enum class Undo { possible, none };

    /// Opens `destination`, making it (0755) when it is missing.
    explicit ExtractionTree(const std::string& destination, Undo undo = Undo::possible);

    /// The bytes that are free on the destination's file system for this process.
    std::uint64_t freeBytes() const;

    /// Makes the directory, or uses the one that exists; it gets its mode and time in `finish`.
    void addDirectory(const Path& path, mode_t mode, const Time& time);
    /// Makes an empty file for writing, replacing a file or link that exists; makes the directories that lead
    /// to it.
    base::UniqueFd createFile(const Path& path);
    /// Gives a written file its mode and time and closes it.
    static void finishFile(base::UniqueFd file, mode_t mode, const Time& time);
    /// Makes a symbolic link, replacing a file or link that exists.
    void addLink(const Path& path, const std::string& target, const Time& time);

    /// Gives the directories their modes and times, the deepest first.
    void finish();
    /// Removes what this object created, as far as possible; overwritten files are not restored.
    void rollBack() noexcept;

  private:
    struct Directory {
        mode_t mode;
        Time time;
    };
    struct Created {
        Path path;
        bool isDirectory;
    };

    void created(const Path& path, bool isDirectory);
    base::UniqueFd walk(const Path& directory, bool make);
    int parentOf(const Path& path);
    void makeRoomFor(int parent, const Path& path);

    base::UniqueFd root_;
    Path parentPath_;
    base::UniqueFd parent_;
    /// Those that the archive lists, by their paths with "/" between the components: a bundle has many, and
    /// lists of components take several times the room.
    std::map<std::string, Directory> directories_;
    Undo undo_;
    std::vector<Created> created_;
};

}  // namespace zelor::agent

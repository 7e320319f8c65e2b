#pragma once

#include <archive.h>
#include <archive_entry.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "base/Deleter.h"
#include "base/StagedFile.h"

namespace zelor::rehearsal {

/// What was added to an archive: entries of any kind, and bytes of file content.
struct DirectoryCount {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
};

/// Writes an archive to a file that appears under its name complete or not at all. All entries belong to
/// root. Operations throw std::runtime_error that names file and cause.
class ArchiveWriter {
  public:
    /// A flat package; the payload or scripts in one (cpio with gzip); a disk image.
    enum class Kind { xar, payload, iso9660 };

    /// `volume`: the name of an ISO 9660 volume, else "".
    ArchiveWriter(Kind kind, const std::string& path, const std::string& volume = "");

    /// Add one entry: a file of mode 0644 with that text or with the content of the file at `path`, or a
    /// directory of mode 0755.
    void addText(const std::string& name, const std::string& text);
    void addFile(const std::string& name, const std::string& path);
    void addDirectoryEntry(const std::string& name);
    /// Adds everything in `directory`, sorted by name; `prefix` is put before each name. Modes, times and
    /// symbolic links are kept; anything but files, directories and links is refused.
    DirectoryCount addDirectory(const std::string& directory, const std::string& prefix);
    /// Completes the archive and puts it under its name. Nothing is added afterwards.
    void commit();

  private:
    using Entry = std::unique_ptr<archive_entry, base::Deleter<archive_entry_free>>;

    void configure(Kind kind);
    void require(int result) const;
    static Entry newEntry(const std::string& name, mode_t mode, time_t modified);
    void writeEntry(archive_entry* entry);
    void writeData(const void* data, std::size_t size);
    void writeFileData(const std::string& path, std::uint64_t size);
    void addPath(const std::string& path, const std::string& name, DirectoryCount& count);

    std::string path_;
    std::string volume_;
    base::StagedFile staged_;  // outlives the writer, which writes to it
    std::unique_ptr<archive, base::Deleter<archive_write_free>> writer_;
};

}  // namespace zelor::rehearsal

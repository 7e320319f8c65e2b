#pragma once

#include <archive.h>
#include <archive_entry.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/Deleter.h"
#include "base/Files.h"

namespace zelor::rehearsal {

/// Thrown for a file that is not an archive of the expected kind.
class NoArchive : public std::runtime_error {
  public:
    /// `what`: the cause, in libarchive's words.
    using std::runtime_error::runtime_error;
};

/// Reads an archive entry by entry. Operations throw std::runtime_error that names the cause.
class ArchiveReader {
  public:
    /// The formats of a flat package, of the archives in it, and of a disk image.
    enum class Kind { xar, cpio, iso9660 };

    /// Opens the file, a regular one; cpio may be compressed by gzip, bzip2 or xz. Throws NoArchive for a
    /// file of another kind.
    ArchiveReader(Kind kind, const std::string& path);

    /// The next entry, valid until the next call; nullptr at the end.
    archive_entry* next();
    /// The next bytes of the entry's content, at most `size`; 0 at its end.
    std::size_t read(char* buffer, std::size_t size);

  private:
    std::string cause() const;

    base::UniqueFd file_;  // outlives the reader, which reads from it
    std::unique_ptr<archive, base::Deleter<archive_read_free>> reader_;
    archive_entry* pending_ = nullptr;
    bool atEnd_ = false;
};

}  // namespace zelor::rehearsal

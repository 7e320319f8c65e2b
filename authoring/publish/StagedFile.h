#pragma once

#include <list>
#include <set>
#include <string>
#include <string_view>

#include "base/Files.h"

namespace zelor::authoring {

/// A file that appears under its name complete or not at all: written beside it under a hidden name, flushed
/// to the disk, then renamed. Without `commit` nothing stays. Throws std::runtime_error naming the file.
class StagedFile {
  public:
    explicit StagedFile(const std::string& path);
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    int descriptor() const { return file_.get(); }
    void write(std::string_view bytes);
    /// Closes; nothing more is written. `finish` flushes it later.
    void close();
    /// Flushes and closes; the file is complete, but still under its hidden name.
    void finish();
    /// Puts the file under its name, for good.
    void commit();

  private:
    friend class StagedFiles;
    void moveIntoPlace();
    std::string directory() const;

    std::string path_;
    std::string staged_;
    base::UniqueFd file_;
    bool flushed_ = false;
};

/// Files that are written one after the other, then flushed together and put under their names in the order
/// of adding, which takes a fraction of the time that it takes for each alone. Without `commit` nothing
/// stays.
class StagedFiles {
  public:
    /// The reference is good until the next call of another method; close the file when it is written.
    StagedFile& add(const std::string& path);
    /// Afterwards this holds no files. Throws std::runtime_error; each file is then under its name complete
    /// or not at all.
    void commit();

  private:
    void flush(const std::set<std::string>& directories);

    std::list<StagedFile> files_;
};

/// A whole file by way of a StagedFile.
void replaceFile(const std::string& path, std::string_view bytes);

/// True for the hidden name of an unfinished file, which a crash may have left behind.
bool isStagedName(const std::string& name);

}  // namespace zelor::authoring

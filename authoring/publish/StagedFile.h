#pragma once

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
    /// Flushes and closes; the file is complete, but still under its hidden name.
    void finish();
    /// Puts the file under its name, for good.
    void commit();

  private:
    std::string path_;
    std::string staged_;
    base::UniqueFd file_;
};

/// A whole file by way of a StagedFile.
void replaceFile(const std::string& path, std::string_view bytes);

/// True for the hidden name of an unfinished file, which a crash may have left behind.
bool isStagedName(const std::string& name);

}  // namespace zelor::authoring

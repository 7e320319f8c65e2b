#pragma once

#include <string>

namespace zelor::authoring {

/// A fresh folder below TMPDIR that nobody else may enter, removed with all it holds at the end.
class ScratchFolder {
  public:
    /// Throws std::runtime_error. `name` becomes part of the folder's.
    explicit ScratchFolder(const std::string& name);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& path() const { return path_; }
    /// Leaves it where it is.
    void keep() { kept_ = true; }

  private:
    std::string path_;
    bool kept_ = false;
};

}  // namespace zelor::authoring

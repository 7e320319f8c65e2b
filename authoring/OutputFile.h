#pragma once

#include <optional>
#include <string>

#include "base/StagedFile.h"

namespace zelor::authoring {

/// A file that an option names, or standard output.
class OutputFile {
  public:
    /// `path`: a file that is missing or regular, or "-" for standard output; `option` for messages. Make it
    /// before the work, so that an output that cannot be written is refused at once: throws UsageError.
    OutputFile(const std::string& path, const std::string& option);
    /// Writes all of the text; the file appears complete or not at all. Throws std::runtime_error.
    void write(const std::string& text);

  private:
    std::optional<base::StagedFile> file_;
};

}  // namespace zelor::authoring

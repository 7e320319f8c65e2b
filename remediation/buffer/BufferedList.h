#pragma once

#include <string>

#include "base/Files.h"

/// The buffered-patches list as text: one "patchName=md5sum" line per buffered patch.
namespace zelor::remediation {

/// True when `line` contains `patchName` anywhere and its second field equals `md5sum`.
bool bufferedLineMatches(const std::string& line, const std::string& patchName, const std::string& md5sum);
/// True when a line of `list` matches so.
bool hasBufferedLine(const std::string& list, const std::string& patchName, const std::string& md5sum);

/// The list as it was read last, so that checking an unchanged file costs one stat(2). One thread at a time.
class BufferedList {
  public:
    /// True when the file at `path` is still the one that was read.
    bool isCurrent(const std::string& path) const;
    /// Reads the file; one that cannot be read counts as empty.
    void read(const std::string& path);
    const std::string& text() const { return text_; }

  private:
    std::string path_;
    std::string text_;
    base::FileStamp stamp_;
    bool settled_ = false;  ///< a later change cannot have left the same stamp
};

/// What an older crash left in the list.
struct ListDamage {
    bool tornEnd = false;       ///< a last line without its line end, which is added
    bool damagedLines = false;  ///< lines with control characters, which no entry has
};

/// The lines of `list` that do not contain `patchName`, each with its line end; damaged lines are left out.
std::string linesWithout(const std::string& list, const std::string& patchName, ListDamage& damage);

}  // namespace zelor::remediation

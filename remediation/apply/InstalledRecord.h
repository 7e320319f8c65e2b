#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <string>
#include <unordered_set>

namespace zelor::remediation {

/// The lines of the installed-patches record, read once: a later look reads only what was appended since, or
/// all again when the file was replaced, cut or rewritten. One thread at a time.
class InstalledRecord {
  public:
    /// Brings the lines up to date with the file; one that cannot be opened counts as empty. Damage that was
    /// not seen before goes to the log: a last line without its end, which counts as it stands, and lines
    /// that are no text.
    void refresh(const std::string& path);
    bool empty() const { return lines_.empty() && unfinished_.empty(); }
    /// True when some line equals `text` exactly.
    bool hasLine(const std::string& text) const {
        return lines_.count(text) != 0 || (!unfinished_.empty() && unfinished_ == text);
    }

  private:
    void forget();
    void readFrom(int fd);
    void takeLine(std::string line);
    bool isSameFile(const struct stat& now) const;
    off_t known() const { return read_ + static_cast<off_t>(unfinished_.size()); }

    std::unordered_set<std::string> lines_;
    std::string path_;
    std::uintmax_t device_ = 0;
    std::uintmax_t inode_ = 0;
    struct timespec modified_ {};
    off_t read_ = 0;             ///< offset behind the last line end that was read
    std::string unfinished_;     ///< a last line without its end; it counts as a line too
    std::uint64_t damaged_ = 0;  ///< lines that are no text
};

}  // namespace zelor::remediation

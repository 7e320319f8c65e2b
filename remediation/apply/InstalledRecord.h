#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>

#include "base/Files.h"
#include "base/Result.h"

namespace zelor::remediation {

/// The lines of the installed-patches record. They are kept as long as the file is as this object read or
/// left it, which one stat(2) shows; a file that anybody else changed is read whole again. One thread at a
/// time.
class InstalledRecord {
  public:
    /// Brings the lines up to date with the file; one that cannot be opened counts as empty. The log gets an
    /// error line for a symbolic link that is not followed, for a last line without its end, which counts,
    /// and for lines with control characters: once for each state of the file.
    void refresh(const std::string& path);
    /// Appends a line to the file, which is made when there is none. A refusal of the file has
    /// no errno.
    base::Check append(const std::string& path, const std::string& line);
    bool empty() const { return lines_.empty() && unfinished_.empty(); }
    /// True when some line equals `text` exactly.
    bool hasLine(const std::string& text) const {
        return lines_.count(text) != 0 || (!unfinished_.empty() && unfinished_ == text);
    }

  private:
    void forget();
    off_t readLines(int fd);
    void reportDamage();
    void reportRefusal(const std::string& path, const std::string& problem);
    void takeAppended(const std::string& line);

    std::unordered_set<std::string> lines_;
    std::string unfinished_;  ///< a last line without its end; it counts as a line too
    std::uint64_t damaged_ = 0;
    std::string path_;
    base::FileStamp stamp_;  ///< of the state that the lines are from
    bool settled_ = false;   ///< a later change cannot have left the same stamp
    // What the log has already.
    std::string reportedEnd_;
    std::uint64_t reportedDamage_ = 0;
    std::string reportedRefusal_;
};

}  // namespace zelor::remediation

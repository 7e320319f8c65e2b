#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_set>

#include "base/Files.h"
#include "base/Result.h"

namespace zelor::remediation {

/// The lines of the installed-patches record. They are kept in memory while the file is as this object last
/// read or wrote it, which one stat(2) shows; a file that anyone else changed is read again as a whole. One
/// thread at a time.
class InstalledRecord {
  public:
    /// Whether `refresh` logs what it finds wrong.
    enum class Report { toLog, nothing };
    explicit InstalledRecord(Report report = Report::toLog) : report_(report) {}
    // A copy's lines would be in the texts of the other.
    InstalledRecord(InstalledRecord&&) = default;
    InstalledRecord& operator=(InstalledRecord&&) = default;

    /// Brings the lines up to date with the file; one that cannot be opened counts as empty. The log gets an
    /// error line for a symbolic link that is not followed, for a last line without its end, which counts,
    /// and for lines with control characters: once for each state of the file.
    void refresh(const std::string& path);
    /// Appends a line to the file, creating the file when it is missing. When the file is refused, the
    /// failure has no errno.
    base::Check append(const std::string& path, const std::string& line);
    /// True when the file had no lines at the last `refresh` and none was appended since.
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

    Report report_;
    std::deque<std::string> texts_;               ///< what was read, and each line that was appended since
    std::unordered_set<std::string_view> lines_;  ///< in those texts
    std::string unfinished_;                      ///< a last line without its line end; it counts as a line
    std::uint64_t damaged_ = 0;
    std::string path_;
    base::FileStamp stamp_;  ///< of the file when the lines were read
    bool settled_ = false;   ///< a later change cannot have left the same stamp
    // What the log already says.
    std::string reportedEnd_;
    std::uint64_t reportedDamage_ = 0;
    std::string reportedRefusal_;
};

}  // namespace zelor::remediation

#pragma once

#include <list>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "base/Files.h"

/// Files that appear under their names complete or not at all: written under another name in the same
/// directory, then renamed.
namespace zelor::base {

/// The name of something unfinished in a directory; the destructor removes what has it, unless it was
/// renamed.
class StagedName {
  public:
    /// `directory`: an open directory, which stays the caller's, or AT_FDCWD.
    StagedName(int directory, std::string name) : directory_(directory), name_(std::move(name)) {}
    /// errno is kept.
    ~StagedName();
    StagedName(const StagedName&) = delete;
    StagedName& operator=(const StagedName&) = delete;

    int directory() const { return directory_; }
    const std::string& name() const { return name_; }
    /// Replaces `target`, a name in the same directory. False on failure, errno set.
    bool renameTo(const std::string& target);

  private:
    int directory_;
    std::string name_;
    bool renamed_ = false;
};

/// One file; without `commit` nothing is left. The constructors and operations throw std::runtime_error that
/// names the file.
class StagedFile {
  public:
    /// Staged beside `path` under a hidden name of its own. Its mode is 0644 whatever the umask.
    explicit StagedFile(const std::string& path);
    /// Staged as `path` and `suffix`; what an interrupted attempt left under that name is removed first.
    /// `mode` is less the umask.
    StagedFile(const std::string& path, const std::string& suffix, unsigned mode);
    /// The same for `name` in an open directory, which must outlive this; `path` names the file in errors.
    StagedFile(int directory, const std::string& name, const std::string& suffix, unsigned mode,
               const std::string& path);

    int descriptor() const { return file_.get(); }
    void write(std::string_view bytes);
    /// Closes; nothing more is written. `finish` flushes it later.
    void close();
    /// Flushes to the disk and closes; the file is complete, but still under its other name.
    void finish();
    /// Puts the file under its name, in a way that survives a power loss.
    void commit();
    /// Puts the file under its name; after a power loss it may be missing and, without `finish`, incomplete.
    void commitUnflushed();

  private:
    friend class StagedFiles;
    /// A file that was made, and its name.
    struct Made {
        int directory;
        std::string name;
        UniqueFd file;
    };
    static Made makeHidden(const std::string& path);
    static Made makeNamed(int directory, const std::string& name, unsigned mode, const std::string& path);
    StagedFile(const std::string& path, const std::string& target, Made made);
    void moveIntoPlace();

    std::string path_;
    std::string target_;  ///< as seen from the directory of `staged_`
    StagedName staged_;
    UniqueFd file_;
    bool flushed_ = false;
};

/// Files that are written one after the other, then flushed together and put under their names in the order
/// of adding, which takes a fraction of the time that it takes for each alone. Without `commit` nothing is
/// left.
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

/// Writes a whole file by way of a StagedFile, mode 0644. Throws std::runtime_error.
void replaceFile(const std::string& path, std::string_view bytes);

/// Replaces `name` in an open directory by a file of mode 0600, which is not flushed to the disk; `path`
/// names it in errors. Throws std::runtime_error.
void replaceFileIn(const UniqueFd& directory, const std::string& name, const std::string& path,
                   std::string_view bytes);

/// True for the hidden name of an unfinished file, which a crash may have left behind.
bool isStagedName(const std::string& name);

}  // namespace zelor::base

#pragma once

#include <list>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "base/Files.h"

/// Files that appear under their final names complete or not at all: they are written under another name in
/// the same directory and then renamed.
namespace zelor::base {

/// The name of an unfinished file in a directory; the destructor removes the file unless it was renamed.
class StagedName {
  public:
    /// `directory`: an open directory, which stays the caller's and must outlive the object, or AT_FDCWD.
    StagedName(int directory, std::string name) : directory_(directory), name_(std::move(name)) {}
    /// Leaves errno as it was.
    ~StagedName();
    StagedName(const StagedName&) = delete;
    StagedName& operator=(const StagedName&) = delete;

    /// As given to the constructor.
    int directory() const { return directory_; }
    const std::string& name() const { return name_; }
    /// Renames the file to `target` in the same directory, replacing it. False on failure, errno set.
    bool renameTo(const std::string& target);

  private:
    int directory_;
    std::string name_;
    bool renamed_ = false;
};

/// One staged file; without a commit, the destructor removes it. Constructors and operations throw
/// std::runtime_error that names the file.
class StagedFile {
  public:
    /// Staged beside `path` under a unique hidden name. Its mode is 0644 whatever the umask.
    explicit StagedFile(const std::string& path);
    /// Staged as `path` and `suffix`; a file that an interrupted attempt left under that name is removed
    /// first. `mode` is reduced by the umask.
    StagedFile(const std::string& path, const std::string& suffix, unsigned mode);
    /// The same for `name` in an open directory, which must outlive this; `path` names the file in errors.
    StagedFile(int directory, const std::string& name, const std::string& suffix, unsigned mode,
               const std::string& path);

    /// Open for reading and writing until the file is closed; stays this object's.
    int descriptor() const { return file_.get(); }
    /// Writes all of `bytes` behind what was written before.
    void write(std::string_view bytes);
    /// Closes; nothing more is written. `finish` flushes it later.
    void close();
    /// Flushes to disk and closes; the file is then complete, but still under its other name.
    void finish();
    /// Gives the file its final name, in a way that survives a power loss.
    void commit();
    /// Gives the file its final name; after a power loss it may be missing or, without `finish`, incomplete.
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

/// Files that are written one after the other, then flushed together and renamed in the order of adding: much
/// quicker than committing each by itself. Without `commit`, the destructor removes them.
class StagedFiles {
  public:
    /// Begins the file for `path`. The reference is valid until `commit`; close the file once it is written.
    /// Throws std::runtime_error that names the file.
    StagedFile& add(const std::string& path);
    /// Afterwards this object holds no files. Throws std::runtime_error; each file has then appeared complete
    /// or not at all.
    void commit();

  private:
    void flush(const std::set<std::string>& directories);

    std::list<StagedFile> files_;
};

/// Writes a whole file through a StagedFile, with mode 0644. Throws std::runtime_error that names the file.
void replaceFile(const std::string& path, std::string_view bytes);

/// Replaces `name` in an open directory by a file of mode 0600 that is not flushed to disk. Throws
/// std::runtime_error that names the file as `path`.
void replaceFileIn(const UniqueFd& directory, const std::string& name, const std::string& path,
                   std::string_view bytes);

/// True for the name, without its directory, of a hidden staged file, which a crash may have left behind.
bool isStagedName(const std::string& name);

}  // namespace zelor::base

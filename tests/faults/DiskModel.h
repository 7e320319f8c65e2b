#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zelor::test {

/// A file, directory ("" as text) or symbolic link (its target).
struct DiskEntry {
    char kind = 'f';  ///< 'f', 'd', 'l'
    unsigned mode = 0644;
    std::shared_ptr<const std::string> text;
};

/// What is below a directory, by path relative to it.
using DiskTree = std::map<std::string, DiskEntry>;

std::string textIn(const DiskTree& tree, const std::string& path);  ///< "" for what is not there
/// Of all but the bytes of large files, which count as different when they were read at different times.
std::size_t hashOf(const DiskTree& tree);
/// Replaces what is below `root` in the directories `tops` by the tree.
void writeTree(const DiskTree& tree, const std::string& root, const std::vector<std::string>& tops);
/// What is below `root` in the directories `tops`.
DiskTree readTree(const std::string& root, const std::vector<std::string>& tops);

/// What of that which nobody had flushed is on the disk after a power cut.
enum class Survival {
    nothing,
    all,            ///< as after a killed process
    names,          ///< names came early: the data is as it was last flushed
    namesAndSizes,  ///< zeros where data was not flushed
    data,           ///< names came late
    mixed,          ///< each file and each directory as it likes, sectors lost or torn
};

/// What a process did to the files below some directories, and what a power cut at any moment of it leaves.
/// Nothing is taken from a file system that promises more than its interface does: a file's bytes are safe
/// when the file was flushed, a name when its directory was. The changes of one directory last in their
/// order; each of them happens or does not.
class DiskModel {
  public:
    /// Takes what is there as safe.
    DiskModel(const std::string& root, const std::vector<std::string>& tops);
    /// Adds what the shim recorded; false when the record is damaged.
    bool replay(const std::string& log);

    std::size_t operations() const { return count_; }
    /// The operations that flushed something, and what would be without one of them.
    std::vector<std::size_t> flushes() const;
    DiskModel withoutFlush(std::size_t operation) const;
    /// After `cut` operations. `seed`: which of the mixed ones.
    DiskTree state(std::size_t cut, Survival survival, std::uint32_t seed = 0) const;

    /// The first operation that wrote this text; 0 for none.
    std::size_t firstWrite(const std::string& text) const;
    /// The last end of a child process before that operation; 0 for none.
    std::size_t childBefore(std::size_t operation) const;
    /// True when the whole disk was flushed in (from, to].
    bool syncedBetween(std::size_t from, std::size_t to) const;

  private:
    using Names = std::map<std::string, int>;
    template <class Value>
    using Versions = std::vector<std::pair<std::size_t, Value>>;  ///< the operation that made each
    struct Inode {
        char kind = 'f';
        unsigned mode = 0644;
        Versions<std::shared_ptr<const std::string>> texts;
        Versions<Names> names;
        std::vector<std::size_t> flushes;
    };
    class Walk;

    void name(char kind, unsigned long parent, unsigned long inode, unsigned mode, const std::string& name);
    void move(bool exchange, unsigned long from, unsigned long to, const std::string& names);
    void apply(const std::string& kind, unsigned long one, unsigned long other, unsigned long more,
               const std::string& rest);
    void write(unsigned long inode, std::size_t at, const std::string& bytes);
    void resize(unsigned long inode, std::size_t size);
    int find(unsigned long inode) const;
    Names* changeNames(unsigned long inode);
    void setText(int id, std::string text);

    std::vector<Inode> inodes_;
    std::map<unsigned long, int> byNumber_;
    Names tops_;
    std::size_t count_ = 0;
    std::vector<std::size_t> syncs_;
    std::vector<std::size_t> children_;
    Versions<std::string> writes_;
};

}  // namespace zelor::test

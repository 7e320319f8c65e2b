#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/Result.h"

/// What an archive may contain: decisions only, nothing here touches a file.
namespace zelor::agent {

/// The limits of an archive. Sizes are in bytes.
struct ExtractionLimits {
    std::uint64_t entries = 100000;  ///< including the directories that lead to them
    std::uint64_t unpackedBytes = 64ULL << 30U;
    std::uint64_t freeMargin = 64ULL << 20U;  ///< bytes of the file system that must stay free
    std::uint64_t ratio = 200;  ///< unpacked bytes for each byte of the archive, beyond the allowance
    std::uint64_t ratioAllowance = 64ULL << 20U;
    std::uint64_t directoryBytes = 16U << 20U;  ///< of the archive's own directory, which is kept in memory
    /// Bytes. Below a content directory a longer path would be longer than a Mac takes (1024): nobody could
    /// remove it.
    std::size_t nameLength = 800;
    std::size_t depth = 64;  ///< components of a path
};

/// The components of an entry's name or a link's target; empty ones and "." are left out.
std::vector<std::string> pathComponents(const std::string& path);

/// Fails when an entry of this name cannot be created below the destination.
base::Check checkEntryName(const std::string& name, const ExtractionLimits& limits);

/// Fails when a symbolic link at `linkPath` (components below the destination) must not hold `target`. A
/// target may have ".." only at its start: after a name, it would be relative to wherever a link of that name
/// leads.
base::Check checkLinkTarget(const std::vector<std::string>& linkPath, const std::string& target,
                            const ExtractionLimits& limits);

/// The entries of one archive so far. Names that differ only in the case of ASCII letters are the same file
/// on the usual file systems of a Mac, so they are refused on every system.
class EntryNames {
  public:
    /// Adds the next entry. Fails when it conflicts with earlier ones.
    base::Check add(const std::vector<std::string>& components);

    /// How many entries there are, including the directories that lead to them.
    std::size_t size() const { return nodes_.size(); }

  private:
    struct Node {
        std::size_t number;
        bool isEntry;  ///< else: a directory that leads to one
    };
    using Key = std::pair<std::size_t, std::string>;  ///< the parent's number, and the name as it is spelt
    struct CaseBlind {
        bool operator()(const Key& one, const Key& other) const;
    };
    std::map<Key, Node, CaseBlind> nodes_;
};

/// The bits that are kept of an entry's mode: set-user-id, set-group-id and sticky bits are dropped.
inline constexpr unsigned kKeptModeBits = 0777;
/// The same for a file directly in the destination, whose mode no signature covers: only its owner may write
/// to it, even where others may enter the destination.
inline constexpr unsigned kKeptModeBitsOfLoneFile = 0755;

/// How many bytes an archive may unpack to, and the rule behind this limit.
struct Allowance {
    std::uint64_t bytes = 0;
    std::string rule;
};
Allowance unpackedAllowance(std::uint64_t archiveBytes, std::uint64_t freeBytes,
                            const ExtractionLimits& limits);

}  // namespace zelor::agent

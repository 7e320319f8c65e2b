#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "trust/RepositoryWriter.h"

namespace zelor::authoring {

/// The most bytes of a root file that the tools read.
constexpr std::size_t kRootBytesLimit = 512U << 10U;

/// The metadata/ directory of a repository on disk. Throws std::runtime_error that names the file.
class MetadataDirectory {
  public:
    /// `repository` need not exist.
    explicit MetadataDirectory(const std::string& repository);

    /// Whether the repository has metadata: a first root.
    bool exists() const;
    /// The version of the newest root, counted from the first without a gap; 0 without one.
    std::int64_t newestRoot() const;
    /// The bytes of one root.
    std::string root(std::int64_t version) const;
    /// The newest file of each role, as the timestamp and its snapshot name them.
    trust::RoleFiles newest() const;

    /// Puts files in place, each complete or not at all: first all but the timestamp, which makes them count,
    /// then that.
    void write(const std::vector<trust::NewFile>& files) const;
    /// Puts a root in place.
    void writeRoot(std::int64_t version, const std::string& bytes) const;

    /// Removes files that were replaced more than a day before `now`, content files named by digest that no
    /// file here lists any more, and what interrupted commands left here. Roots stay. Returns how many were
    /// removed.
    std::size_t removeSuperseded(trust::Time now) const;

  private:
    std::string read(const std::string& name) const;
    std::string path(const std::string& name) const { return directory_ + '/' + name; }

    std::string repository_;
    std::string directory_;
};

/// Whether a file of content/ is named by its digest: 64 hexadecimal digits and a dot before the name.
bool isNamedByDigest(const std::string& name);

}  // namespace zelor::authoring

#pragma once

#include <string>
#include <utility>
#include <vector>

#include "base/Directories.h"
#include "base/Files.h"

namespace zelor::agent {

/// A private directory inside another one, whose entries then replace those of the same names there, whole:
/// a directory in the place of a file too, and a file in the place of a directory. Without `commit`, and for
/// what is left of it, the destructor removes all that is in the private directory. Every failure is a
/// std::runtime_error that names the cause; what was there before is there again then.
class TreeReplacement {
  public:
    /// Makes `destination` (0755) when it is missing.
    explicit TreeReplacement(const std::string& destination);
    TreeReplacement(const TreeReplacement&) = delete;
    TreeReplacement& operator=(const TreeReplacement&) = delete;

    /// Where to put what is to replace.
    std::string source() const;
    void commit();

  private:
    struct Moved {
        std::string name;
        bool replaced;
    };
    void replace(const std::string& name);
    void undo() noexcept;

    base::UniqueFd destination_;
    base::TemporaryDirectory private_;
    base::UniqueFd source_;
    base::UniqueFd old_;
    std::vector<Moved> moved_;
};

}  // namespace zelor::agent

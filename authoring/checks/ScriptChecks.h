#pragma once

#include <string>
#include <vector>

#include "authoring/Finding.h"
#include "base/Directories.h"

namespace zelor::authoring {

/// A script to parse.
struct ScriptFile {
    std::string place;  ///< for findings
    std::string file;   ///< its path
};

/// Whether /bin/bash can parse the script; does not run it.
Findings scriptFindings(const std::string& place, const std::string& script);

/// The same for many scripts, in their order. Much faster than one by one: a shell parses a hundred of them,
/// and as many shells run at a time as there are processors.
std::vector<Findings> scriptFindings(const std::vector<ScriptFile>& scripts);

/// Collects scripts that are elsewhere only for a moment, to parse many at once.
class ScriptQueue {
  public:
    /// Takes the file. Throws std::runtime_error.
    void add(const std::string& place, const std::string& file);
    /// Whether there are enough to parse them now.
    bool isFull() const;
    /// Parses what was added since the last call, and removes it.
    Findings parse();

  private:
    base::TemporaryDirectory directory_{"zelor-scripts"};
    std::vector<ScriptFile> scripts_;
};

}  // namespace zelor::authoring

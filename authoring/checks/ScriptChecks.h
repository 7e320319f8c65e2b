#pragma once

#include <string>
#include <vector>

#include "authoring/Finding.h"

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

}  // namespace zelor::authoring

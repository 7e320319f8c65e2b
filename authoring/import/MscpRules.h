#pragma once

#include <string>

#include "authoring/import/ImportedRule.h"
#include "authoring/import/YamlTree.h"
#include "base/Result.h"

namespace zelor::authoring {

/// Which rules of the macOS Security Compliance Project are wanted.
struct MscpChoice {
    std::string os;         ///< such as "15" or "10.15"
    std::string benchmark;  ///< such as "cis_lvl1"; "" for all
};

/// One rule, of either layout of the project's files. `file` names it when it has no id.
ImportedRule mscpRule(const YamlNode& file, const std::string& name, const MscpChoice& choice);

/// All rules in `directory` (its subdirectory `rules`, when it has one) and below, in the order of their
/// paths. Symbolic links are not followed. Fails when the directory cannot be read or holds no YAML file; a
/// file that is no rule is in the result with its reason.
base::Result<RuleSet> readMscpRules(const std::string& directory, const MscpChoice& choice);

}  // namespace zelor::authoring

#pragma once

#include <string>
#include <vector>

namespace zelor::authoring {

/// One rule of a public rule set, and what became of it.
struct ImportedRule {
    std::string rule;                      ///< its id in the source, or the file for what is no rule
    std::string title;                     ///< as in the source
    std::vector<std::string> identifiers;  ///< its CCE identifiers
    std::string script;                    ///< "" when it is left out
    std::string check;                     ///< a script that proves it; "" when the source has none for bash
    std::string reason;                    ///< why it is left out; "" when it is imported
    std::vector<std::string> texts;        ///< the parts of the scripts that come from the source
    bool reboot = false;
};

/// The rules of one source.
struct RuleSet {
    std::string source;   ///< what a later import must share, such as "mscp 15" or the benchmark's id
    std::string choice;   ///< the benchmark or profile; "" for none
    std::string product;  ///< CPE of what the rules are for
    std::vector<ImportedRule> rules;  ///< in the source's order
};

}  // namespace zelor::authoring

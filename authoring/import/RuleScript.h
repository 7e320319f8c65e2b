#pragma once

#include <cstddef>
#include <string>

#include "base/Result.h"

namespace zelor::authoring {

/// The exit status of an imported script whose fix says that it does not apply to the machine.
constexpr int kNotApplicableStatus = 77;

/// The most bytes of a text that bash is to run, with its values in place.
constexpr std::size_t kRuleTextLimit = 256U << 10U;
/// The most bytes of all scripts of an import: a value can be used many times, so a small file could make
/// large ones.
constexpr std::size_t kAllScriptsLimit = 512U << 20U;

/// What a rule that has a check consists of.
struct CheckedRule {
    std::string rule;
    std::string check;     ///< bash, prints the result
    std::string expected;  ///< what it prints when the rule holds
    std::string fix;       ///< bash
    std::string value;     ///< what replaces the text $ODV in the others; used when `hasValue`
    bool hasValue = false;
};

/// The scripts of a rule that has a check.
struct RuleScripts {
    std::string script;  ///< applies it
    std::string check;   ///< only looks
};

/// `script` ends with 0 when the check's result is the expected one, before or after the fix, and otherwise
/// prints what was found and expected and ends with 1. `check` does the same without the fix; it ends with
/// the check's own status when that is 126 or more, as for a command that is missing, since nothing was
/// looked at then. Fails when a text cannot be run by bash or the value cannot be filled in safely.
base::Result<RuleScripts> checkedScripts(const CheckedRule& rule);

/// A script that runs the fix and ends as it does, but with `kNotApplicableStatus` when the fix says on
/// standard error that it is not applicable. Fails when the text cannot be run by bash.
base::Result<std::string> fixScript(const std::string& rule, const std::string& fix);

/// `script` with `value` in place of $ODV. A simple word is put there as it is. Any other value is only used
/// where bash itself expands it, as the variable ODV in double quotes, and only in a script that uses nothing
/// which runs text: fails when $ODV is elsewhere, and when the result has more than `kRuleTextLimit` bytes.
base::Result<std::string> filledIn(const std::string& script, const std::string& value);

}  // namespace zelor::authoring

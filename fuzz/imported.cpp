#include "Support.h"
#include "authoring/import/MscpRules.h"
#include "authoring/import/RuleScript.h"
#include "authoring/import/XccdfRules.h"

// The files that public rules come in, and a value that is filled in: whatever is refused has a reason.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace authoring = zelor::authoring;
    const std::string text = zelor::fuzz::textOf(data, size);
    if (const auto file = authoring::parseYaml(text)) {
        const authoring::ImportedRule rule = authoring::mscpRule(*file, "rule.yaml", {"15", "level_one"});
        zelor::fuzz::require(rule.reason.empty() != rule.script.empty(), "a rule has a script or a reason");
    }
    if (const auto rules = authoring::readXccdfRules(text, "")) {
        for (const authoring::ImportedRule& rule : rules->rules)
            zelor::fuzz::require(rule.reason.empty() != rule.script.empty(),
                                 "a rule has a script or a reason");
    }
    const auto cut = text.find('\n');
    if (cut != std::string::npos) authoring::filledIn(text.substr(cut + 1), text.substr(0, cut)).has_value();
    return 0;
}

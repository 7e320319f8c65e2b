#include "authoring/import/XccdfRules.h"

#include <algorithm>

#include "authoring/import/RuleScript.h"
#include "authoring/import/SourceText.h"
#include "authoring/import/XccdfProfile.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr const char* kShellFix = "urn:xccdf:fix:script:sh";
constexpr const char* kCceSystem = "https://nvd.nist.gov/cce/index.cfm";

class RuleReader {
  public:
    RuleReader(const XccdfDocument& document, const XccdfProfile& profile)
        : document_(document), profile_(profile) {}

    /// Adds the rules of a benchmark or group, and of the groups in it.
    void addItems(const pugi::xml_node& parent, bool selected) {
        for (const pugi::xml_node node : parent.children()) {
            const bool group = document_.is(node, "Group");
            if (!group && !document_.is(node, "Rule")) continue;
            const bool own = profile_.selects(node, selected);
            if (group) addItems(node, own);
            if (!group) rules_.push_back(rule(node, own));
        }
    }
    std::vector<ImportedRule> take() { return std::move(rules_); }

  private:
    ImportedRule rule(const pugi::xml_node& node, bool selected) const {
        ImportedRule rule;
        rule.rule = node.attribute("id").value();
        rule.title = textOf(document_.child(node, "title"));
        for (const pugi::xml_node ident : document_.children(node, "ident")) {
            const std::string text = base::trimmed(textOf(ident));
            auto& known = rule.identifiers;
            const bool fresh = std::find(known.begin(), known.end(), text) == known.end();
            if (ident.attribute("system").value() == std::string(kCceSystem) && isCceIdentifier(text) &&
                fresh)
                known.push_back(text);
        }
        auto script = scriptOf(node, selected, rule);
        if (script) rule.script = std::move(*script);
        if (!script) rule.reason = script.error().text;
        return rule;
    }

    base::Result<std::string> scriptOf(const pugi::xml_node& node, bool selected, ImportedRule& rule) const {
        if (!selected) return base::failure("the profile does not select it");
        if (node.attribute("extends"))
            return base::failure("it extends another rule; resolve the benchmark first");
        std::vector<pugi::xml_node> fixes;
        for (const pugi::xml_node fix : document_.children(node, "fix")) {
            if (fix.attribute("system").value() == std::string(kShellFix)) fixes.push_back(fix);
        }
        if (fixes.empty()) return base::failure("it has no fix that bash could run");
        if (fixes.size() > 1) return base::failure("it has several fixes for bash");
        if (rule.identifiers.empty()) return base::failure("it has no CCE identifier");
        const std::string reboot = fixes[0].attribute("reboot").value();
        rule.reboot = reboot == "true" || reboot == "1";
        auto text = fixText(fixes[0]);
        if (!text) return text;
        rule.texts = {*text};
        return fixScript(rule.rule, *text);
    }

    base::Result<std::string> fixText(const pugi::xml_node& fix) const {
        std::string text;
        for (const pugi::xml_node piece : fix.children()) {
            if (piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata) {
                text += piece.value();
            } else if (document_.is(piece, "sub")) {
                auto value = profile_.valueOf(piece);
                if (!value) return value;
                text += *value;
            } else if (piece.type() == pugi::node_element) {
                return base::failure("its fix has the unknown element: " + oneLine(piece.name(), 60));
            }
        }
        return text;
    }

    const XccdfDocument& document_;
    const XccdfProfile& profile_;
    std::vector<ImportedRule> rules_;
};

}  // namespace

base::Result<RuleSet> readXccdfRules(const std::string& xml, const std::string& profile) {
    const auto document = XccdfDocument::parse(xml);
    if (!document) return tl::unexpected<base::Failure>(document.error());
    const auto resolved = XccdfProfile::resolve(*document, profile);
    if (!resolved) return tl::unexpected<base::Failure>(resolved.error());
    const pugi::xml_node benchmark = document->benchmark();
    const std::string platform = document->child(benchmark, "platform").attribute("idref").value();
    RuleSet set{std::string("xccdf ") + benchmark.attribute("id").value(), profile, "", {}};
    if (base::hasBeginning(platform, "cpe:/") && whyUnfitText(platform).empty()) set.product = platform;
    RuleReader reader(*document, *resolved);
    reader.addItems(benchmark, true);
    set.rules = reader.take();
    return set;
}

}  // namespace zelor::authoring

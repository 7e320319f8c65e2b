#include "authoring/import/XccdfRules.h"

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
            if (!group) add(rule(node, own));
        }
    }
    /// Fails when the scripts of the rules are too large together.
    base::Result<std::vector<ImportedRule>> take() {
        if (bytes_ > kAllScriptsLimit) return base::failure(kTooLargeScripts);
        return std::move(rules_);
    }

  private:
    void add(ImportedRule rule) {
        bytes_ += bytesOfScripts(rule);
        if (bytes_ <= kAllScriptsLimit) rules_.push_back(std::move(rule));
    }

    ImportedRule rule(const pugi::xml_node& node, bool selected) const {
        ImportedRule rule;
        rule.rule = node.attribute("id").value();
        rule.title = textOf(document_.child(node, "title"));
        for (const pugi::xml_node ident : document_.children(node, "ident")) {
            if (ident.attribute("system").value() == std::string(kCceSystem))
                addIdentifier(rule.identifiers, base::trimmed(textOf(ident)));
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
        if (rule.identifiers.size() > kIdentifiersLimit) return base::failure(kTooManyIdentifiers);
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
                const base::Result<std::string>& value = profile_.valueOf(piece);
                if (!value) return value;
                text += *value;
            } else if (piece.type() == pugi::node_element) {
                return base::failure("its fix has the unknown element: " + oneLine(piece.name(), 60));
            }
            if (text.size() > kRuleTextLimit) return base::failure("the fix is larger than 256 KiB");
        }
        return text;
    }

    const XccdfDocument& document_;
    const XccdfProfile& profile_;
    std::vector<ImportedRule> rules_;
    std::size_t bytes_ = 0;  ///< of their scripts
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
    auto rules = reader.take();
    if (!rules) return tl::unexpected<base::Failure>(rules.error());
    set.rules = *std::move(rules);
    return set;
}

}  // namespace zelor::authoring

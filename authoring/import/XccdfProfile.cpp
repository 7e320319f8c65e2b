#include "authoring/import/XccdfProfile.h"

#include <algorithm>
#include <vector>

#include "authoring/import/RuleScript.h"
#include "authoring/import/SourceText.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kExtensionsLimit = 16;

bool isTrue(const std::string& text) {
    return text == "true" || text == "1";
}

/// The full id is meant, or its end: "cis" for "xccdf_org.example_profile_cis".
bool isNamed(const pugi::xml_node& profile, const std::string& id) {
    const std::string full = profile.attribute("id").value();
    return full == id || base::hasEnding(full, "_profile_" + id);
}

}  // namespace

base::Result<XccdfProfile> XccdfProfile::resolve(const XccdfDocument& document, const std::string& id) {
    XccdfProfile resolved(document);
    resolved.findValues(document.benchmark());
    resolved.everyRule_ = id.empty();
    std::vector<pugi::xml_node> chain;
    for (std::string wanted = id; !wanted.empty(); wanted = chain.back().attribute("extends").value()) {
        const auto profiles = document.children(document.benchmark(), "Profile");
        const auto found = std::find_if(profiles.begin(), profiles.end(), [&](const pugi::xml_node& profile) {
            return isNamed(profile, wanted);
        });
        if (found == profiles.end())
            return base::failure("it has no profile \"" + oneLine(wanted) + "\"; oscap info lists them");
        chain.push_back(*found);
        if (chain.size() > kExtensionsLimit) return base::failure("its profile extends more than 16 others");
    }
    for (auto profile = chain.rbegin(); profile != chain.rend(); ++profile)
        resolved.add(*profile);
    return resolved;
}

void XccdfProfile::add(const pugi::xml_node& profile) {
    for (const pugi::xml_node node : document_->children(profile, "select"))
        selected_[node.attribute("idref").value()] = isTrue(node.attribute("selected").value());
    for (const pugi::xml_node node : document_->children(profile, "set-value"))
        given_[node.attribute("idref").value()] = node.child_value();
    for (const pugi::xml_node node : document_->children(profile, "refine-value")) {
        if (const pugi::xml_attribute selector = node.attribute("selector"))
            selectors_[node.attribute("idref").value()] = selector.value();
    }
}

void XccdfProfile::findValues(const pugi::xml_node& item) {
    for (const pugi::xml_node node : item.children()) {
        if (document_->is(node, "Value")) values_.emplace(node.attribute("id").value(), node);
        if (document_->is(node, "plain-text")) values_.emplace(node.attribute("id").value(), node);
        if (document_->is(node, "Group")) findValues(node);
    }
}

bool XccdfProfile::selects(const pugi::xml_node& item, bool inherited) const {
    if (everyRule_) return true;
    if (!inherited) return false;
    const pugi::xml_attribute own = item.attribute("selected");
    bool selected = !own || isTrue(own.value());
    for (const char* name : {"cluster-id", "id"}) {
        const auto found = selected_.find(item.attribute(name).value());
        if (item.attribute(name) && found != selected_.end()) selected = found->second;
    }
    return selected;
}

const base::Result<std::string>& XccdfProfile::valueOf(const pugi::xml_node& sub) const {
    const auto key = std::make_pair(std::string(sub.attribute("idref").value()),
                                    std::string(sub.attribute("use").value()));
    if (const auto known = found_.find(key); known != found_.end()) return known->second;
    auto value = findValue(key.first, key.second);
    if (value && value->size() > kRuleTextLimit)
        value = base::failure("a value of its fix is larger than 256 KiB: " + oneLine(key.first));
    return found_.emplace(key, std::move(value)).first->second;
}

base::Result<std::string> XccdfProfile::findValue(const std::string& id, const std::string& use) const {
    const auto found = values_.find(id);
    if (found == values_.end()) return base::failure("its fix uses an unknown value: " + oneLine(id));
    if (document_->is(found->second, "plain-text")) return textOf(found->second);
    if (use == "title") return textOf(document_->child(found->second, "title"));
    if (!use.empty() && use != "legacy" && use != "value")
        return base::failure("its fix uses a value in an unknown way: " + oneLine(use, 40));
    return chosen(found->second, id);
}

base::Result<std::string> XccdfProfile::chosen(const pugi::xml_node& value, const std::string& id) const {
    if (const auto given = given_.find(id); given != given_.end()) return given->second;
    const auto selector = selectors_.find(id);
    const std::string wanted = selector == selectors_.end() ? "" : selector->second;
    for (const pugi::xml_node node : document_->children(value, "value")) {
        if (wanted == node.attribute("selector").value()) return textOf(node);
    }
    if (!wanted.empty())
        return base::failure("a value of its fix has no such choice: " + oneLine(id) + ", " +
                             oneLine(wanted));
    // Without a default the first choice is it.
    if (const pugi::xml_node first = document_->child(value, "value")) return textOf(first);
    return base::failure("a value of its fix is of an unknown form: " + oneLine(id));
}

}  // namespace zelor::authoring

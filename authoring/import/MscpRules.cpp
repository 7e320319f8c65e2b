#include "authoring/import/MscpRules.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cstdint>

#include "authoring/import/RuleScript.h"
#include "authoring/import/SourceText.h"
#include "base/Files.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kFilesLimit = 10'000;
constexpr int kDirectoryDepthLimit = 8;

/// "15" and "15.0" are one system.
std::string plainVersion(const std::string& version) {
    return base::hasEnding(version, ".0") ? version.substr(0, version.size() - 2) : version;
}

bool lists(const YamlNode& list, const std::string& text) {
    const auto same = [&](const YamlNode& item) { return item.text == text || item["name"].text == text; };
    return std::any_of(list.items.begin(), list.items.end(), same);
}

/// What both layouts say of a rule for one system.
struct Enforcement {
    const YamlNode* check = nullptr;   ///< the text
    const YamlNode* result = nullptr;  ///< a map of the type and the value
    std::string fix;                   ///< bash; "" for none
    std::string noFix;                 ///< why there is none
    const YamlNode* identifiers = nullptr;
};

std::string encodedBase64(const std::string& bytes) {
    constexpr const char* kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8U | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0U);
        for (std::size_t i = 0; i < 4; ++i)
            text += at + i > bytes.size() ? '=' : kDigits[group >> (18 - 6 * i) & 63U];
    }
    return text;
}

/// The text that the check prints when the rule holds.
base::Result<std::string> expectedText(const YamlNode& result, const std::string& value) {
    if (!result.hasContent()) return base::failure("it has no result to compare with");
    if (result.members.size() != 1 || result.members[0].second.kind != YamlNode::Kind::scalar)
        return base::failure("its result is of an unknown form");
    const auto& [type, node] = result.members[0];
    if (type == "integer" || type == "string") return node.text;
    if (type == "boolean") return base::lowerCased(node.text);
    if (type != "base64") return base::failure("its result is of the unknown type: " + oneLine(type, 40));
    const auto at = node.text.find("$ODV");
    const std::string plain =
        at == std::string::npos ? node.text : std::string(node.text).replace(at, 4, value);
    return encodedBase64(plain + '\n');
}

/// The only block of bash in a text of documentation.
base::Result<std::string> bashBlock(const std::string& text) {
    const std::string mark = "[source,bash]";
    const auto at = text.find(mark);
    if (at == std::string::npos) return base::failure("it has no fix that bash could run");
    if (text.find(mark, at + 1) != std::string::npos)
        return base::failure("its fix has several blocks of bash");
    const auto begin = text.find("----\n", at);
    const auto end = begin == std::string::npos ? begin : text.find("\n----", begin + 4);
    if (end == std::string::npos ||
        !base::trimmed(text.substr(at + mark.size(), begin - at - mark.size())).empty())
        return base::failure("its fix is of an unknown form");
    return text.substr(begin + 5, end + 1 - (begin + 5));
}

/// `platforms.macOS.<version>` of the system; null when the rule is not for it.
const YamlNode* versionNode(const YamlNode& file, const std::string& os) {
    for (const auto& [version, node] : file["platforms"]["macOS"].members) {
        if (version != "enforcement_info" && plainVersion(version) == plainVersion(os)) return &node;
    }
    return nullptr;
}

std::string whyNoFix(const YamlNode& file) {
    if (file["mobileconfig_info"].hasContent())
        return "it is enforced by a configuration profile (mobileconfig)";
    if (file["ddm_info"].hasContent()) return "it is enforced by declarative device management (DDM)";
    return "it has no fix that bash could run";
}

base::Result<Enforcement> enforcement2(const YamlNode& file, const MscpChoice& choice) {
    const YamlNode* version = versionNode(file, choice.os);
    if (version == nullptr) return base::failure("it is not for macOS " + choice.os);
    if (!choice.benchmark.empty() && !lists((*version)["benchmarks"], choice.benchmark))
        return base::failure("it is not in the benchmark " + choice.benchmark);
    const YamlNode& own = (*version)["enforcement_info"];
    const YamlNode& common = file["platforms"]["macOS"]["enforcement_info"];
    const YamlNode& check = own["check"].hasContent() ? own["check"] : common["check"];
    const YamlNode& fix = own["fix"].hasContent() ? own["fix"] : common["fix"];
    Enforcement found;
    found.check = check["shell"].hasContent() ? &check["shell"] : &common["check"]["shell"];
    found.result = check["result"].hasContent() ? &check["result"] : &common["check"]["result"];
    if (file["mobileconfig_info"].hasContent() || !fix["shell"].hasContent()) found.noFix = whyNoFix(file);
    found.fix = fix["shell"].text;
    for (const auto& [system, list] : file["references"]["nist"]["cce"].members) {
        const std::string prefix = "macos_";
        if (!base::hasBeginning(system, prefix)) continue;
        std::string number = system.substr(prefix.size());
        std::replace(number.begin(), number.end(), '_', '.');
        if (plainVersion(number) == plainVersion(choice.os)) found.identifiers = &list;
    }
    return found;
}

base::Result<Enforcement> enforcement1(const YamlNode& file, const MscpChoice& choice) {
    const auto& systems = file["macOS"].items;
    const auto same = [&](const YamlNode& item) {
        return plainVersion(item.text) == plainVersion(choice.os);
    };
    if (std::none_of(systems.begin(), systems.end(), same))
        return base::failure("it is not for macOS " + choice.os);
    if (!choice.benchmark.empty() && !lists(file["tags"], choice.benchmark))
        return base::failure("it is not in the benchmark " + choice.benchmark);
    Enforcement found;
    found.check = &file["check"];
    found.result = &file["result"];
    found.identifiers = &file["references"]["cce"];
    if (base::lowerCased(file["mobileconfig"].text) == "true") {
        found.noFix = "it is enforced by a configuration profile (mobileconfig)";
        return found;
    }
    auto fix = bashBlock(file["fix"].text);
    if (fix) found.fix = *fix;
    if (!fix) found.noFix = base::contains(fix.error().text, "no fix") ? whyNoFix(file) : fix.error().text;
    return found;
}

std::vector<std::string> cceIdentifiers(const YamlNode* list) {
    std::vector<std::string> identifiers;
    if (list == nullptr) return identifiers;
    std::vector<YamlNode> items = list->items;
    if (list->kind == YamlNode::Kind::scalar) items.push_back(*list);
    for (const YamlNode& item : items)
        addIdentifier(identifiers, item.text);
    return identifiers;
}

/// The value of $ODV: the benchmark's own, or else the recommended one.
const YamlNode& valueNode(const YamlNode& file, const std::string& benchmark) {
    const YamlNode& own = file["odv"][benchmark];
    return !benchmark.empty() && own.kind == YamlNode::Kind::scalar ? own : file["odv"]["recommended"];
}

base::Result<RuleScripts> scriptsOf(const YamlNode& file, const MscpChoice& choice, ImportedRule& rule) {
    const bool second = file["platforms"].kind == YamlNode::Kind::map;
    const auto found = second ? enforcement2(file, choice) : enforcement1(file, choice);
    if (!found) return tl::unexpected<base::Failure>(found.error());
    rule.identifiers = cceIdentifiers(found->identifiers);
    if (!found->noFix.empty()) return base::failure(found->noFix);
    if (rule.identifiers.empty()) return base::failure("it has no CCE identifier for macOS " + choice.os);
    if (rule.identifiers.size() > kIdentifiersLimit) return base::failure(kTooManyIdentifiers);
    if (!found->check->hasContent()) return base::failure("it has no check");
    if (found->check->kind != YamlNode::Kind::scalar) return base::failure("its check is of an unknown form");
    const YamlNode& value = valueNode(file, choice.benchmark);
    CheckedRule checked{rule.rule,  found->check->text, "",
                        found->fix, value.text,         value.kind == YamlNode::Kind::scalar};
    auto expected = expectedText(*found->result, value.text);
    if (!expected) return tl::unexpected<base::Failure>(expected.error());
    checked.expected = std::move(*expected);
    rule.texts = {checked.check, checked.fix};
    return checkedScripts(checked);
}

base::Result<std::vector<fs::path>> yamlFiles(const fs::path& directory) {
    std::vector<fs::path> files;
    boost::system::error_code error;
    fs::recursive_directory_iterator at(directory, error);
    for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
        if (at.depth() >= kDirectoryDepthLimit) at.disable_recursion_pending();
        const std::string extension = at->path().extension().string();
        if (extension != ".yaml" && extension != ".yml") continue;
        boost::system::error_code ignored;
        if (fs::is_directory(at->symlink_status(ignored))) continue;
        files.push_back(at->path());
        if (files.size() > kFilesLimit)
            return base::failure(directory.string() + " has more than 10,000 files");
    }
    if (error)
        return base::failure(directory.string() + ": " + error.message() + "; name the rules' directory");
    if (files.empty())
        return base::failure(directory.string() + " has no .yaml file; name the rules' directory");
    std::sort(files.begin(), files.end());
    return files;
}

ImportedRule ruleOfFile(const std::string& path, const std::string& name, const MscpChoice& choice) {
    ImportedRule rule;
    rule.rule = name;
    try {
        const auto file = parseYaml(base::readBounded(path, kYamlBytesLimit));
        if (file) return mscpRule(*file, name, choice);
        rule.reason = "it cannot be read: " + oneLine(file.error().text);
    } catch (const std::exception& e) {
        rule.reason = "it cannot be read: " + oneLine(e.what());
    }
    return rule;
}

}  // namespace

ImportedRule mscpRule(const YamlNode& file, const std::string& name, const MscpChoice& choice) {
    ImportedRule rule;
    rule.rule = name;
    if (!file["id"].hasContent() || !file["title"].hasContent()) {
        rule.reason = "it is no rule: it has no id or no title";
        return rule;
    }
    rule.rule = file["id"].text;
    rule.title = oneLine(file["title"].text);
    const std::string value = oneLine(valueNode(file, choice.benchmark).text);
    for (auto at = rule.title.find("$ODV"); at != std::string::npos && !value.empty();
         at = rule.title.find("$ODV", at + value.size()))
        rule.title.replace(at, 4, value);
    auto scripts = scriptsOf(file, choice, rule);
    if (!scripts) {
        rule.reason = oneLine(scripts.error().text);
        return rule;
    }
    rule.script = std::move(scripts->script);
    rule.check = std::move(scripts->check);
    return rule;
}

base::Result<RuleSet> readMscpRules(const std::string& directory, const MscpChoice& choice) {
    boost::system::error_code ignored;
    const fs::path inner = fs::path(directory) / "rules";
    const fs::path top = fs::is_directory(inner, ignored) ? inner : fs::path(directory);
    const auto files = yamlFiles(top);
    if (!files) return tl::unexpected<base::Failure>(files.error());
    const std::string os = plainVersion(choice.os);
    RuleSet rules{"mscp macOS " + os, choice.benchmark, "cpe:/o:apple:macos:" + os, {}};
    std::size_t bytes = 0;
    for (const fs::path& file : *files) {
        rules.rules.push_back(ruleOfFile(file.string(), file.lexically_relative(top).string(), choice));
        bytes += bytesOfScripts(rules.rules.back());
        if (bytes > kAllScriptsLimit) return base::failure(directory + ": " + kTooLargeScripts);
    }
    return rules;
}

}  // namespace zelor::authoring

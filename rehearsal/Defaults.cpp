#include <cstdlib>
#include <optional>

#include "base/Strings.h"
#include "rehearsal/SettingsTools.h"

namespace zelor::rehearsal {

namespace {

const char kUsage[] =
    "Command line interface to a user's defaults.\nSyntax:\n\ndefaults [-currentHost] read|write|delete|"
    "read-type <domain> ...\n";

ToolText complaint(const std::string& text) {
    return {"", "defaults: " + text + '\n', 1};
}

/// A file's name and the domain it holds mean the same.
std::string domainNamed(std::string name) {
    if (name == "-g" || name == "-globalDomain") return "NSGlobalDomain";
    const std::string ending = ".plist";
    if (base::hasEnding(name, ending)) name.erase(name.size() - ending.size());
    const std::string shared = "/Library/Preferences/";
    return name.substr(0, shared.size()) == shared ? name.substr(shared.size()) : name;
}

std::optional<bool> flagNamed(const std::string& word) {
    const std::string lower = base::lowerCased(word);
    if (lower == "true" || lower == "yes" || lower == "1") return true;
    if (lower == "false" || lower == "no" || lower == "0") return false;
    return std::nullopt;
}

/// A row for each type that `write` takes.
struct ValueType {
    const char* option;
    const char* other;
    const char* name;
};
constexpr ValueType kTypes[] = {
    {"-bool", "-boolean", "boolean"}, {"-int", "-integer", "integer"}, {"-string", "-string", "string"}};

ToolText write(MacState& state, const std::string& domain, const Arguments& words) {
    if (words.size() < 2 || words.size() > 3) return {"", kUsage, 255};
    Preference value{"string", words.back()};
    if (words.size() == 3) {
        value.type.clear();
        for (const ValueType& type : kTypes) {
            if (words[1] == type.option || words[1] == type.other) value.type = type.name;
        }
        if (value.type.empty())
            return complaint("Unexpected argument " + words[2] + "; leaving defaults unchanged.");
    }
    if (value.type == "boolean") {
        const auto flag = flagNamed(value.text);
        if (!flag) return {"", kUsage, 255};
        value.text = *flag ? "1" : "0";
    }
    if (value.type == "integer") value.text = std::to_string(std::strtoll(value.text.c_str(), nullptr, 10));
    state.preferences[domain][words[0]] = value;
    return {};
}

ToolText missing(const std::string& domain, const std::string& key) {
    return complaint("\nThe domain/default pair of (" + domain + ", " + key + ") does not exist");
}

ToolText read(const MacState& state, const std::string& domain, const Arguments& words, bool type) {
    const auto found = state.preferences.find(domain);
    if (words.empty() && !type) {
        if (found == state.preferences.end()) return complaint("\nDomain " + domain + " does not exist");
        std::string text = "{\n";
        for (const auto& [key, value] : found->second)
            text +=
                "    " + key + " = " + (value.type == "string" ? '"' + value.text + '"' : value.text) + ";\n";
        return {text + "}\n", "", 0};
    }
    if (words.size() != 1) return {"", kUsage, 255};
    if (found == state.preferences.end() || found->second.count(words[0]) == 0)
        return missing(domain, words[0]);
    const Preference& value = found->second.at(words[0]);
    return {(type ? "Type is " + value.type : value.text) + '\n', "", 0};
}

ToolText remove(MacState& state, const std::string& domain, const Arguments& words) {
    const auto found = state.preferences.find(domain);
    const bool there =
        found != state.preferences.end() && (words.empty() || found->second.count(words[0]) != 0);
    if (words.size() > 1) return {"", kUsage, 255};
    if (!there) return complaint("\nDomain (" + domain + ") not found.\nDefaults have not been changed.");
    if (!words.empty()) found->second.erase(words[0]);
    if (words.empty() || found->second.empty()) state.preferences.erase(found);
    return {};
}

}  // namespace

ToolText tellDefaults(MacState& state, const Arguments& arguments) {
    Arguments words = arguments;
    std::string host;
    if (!words.empty() && words[0] == "-currentHost") {
        host = "ByHost/";
        words.erase(words.begin());
    }
    if (words.size() < 2) return {"", kUsage, 255};
    const std::string command = words[0], domain = host + domainNamed(words[1]);
    words.erase(words.begin(), words.begin() + 2);
    if (command == "read") return read(state, domain, words, false);
    if (command == "read-type") return read(state, domain, words, true);
    if (command == "write") return write(state, domain, words);
    if (command == "delete" || command == "remove") return remove(state, domain, words);
    return {"", kUsage, 255};
}

}  // namespace zelor::rehearsal

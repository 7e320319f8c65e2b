#pragma once

#include <nlohmann/json.hpp>
#include <regex>
#include <stdexcept>
#include <string>

namespace zelor::test {

/// Validates a value by the part of JSON Schema that this project's schemas use; other keywords are errors.
class JsonSchema {
  public:
    explicit JsonSchema(nlohmann::json schema) : root_(std::move(schema)) {}

    /// The first place that is invalid and why, or "".
    std::string problem(const nlohmann::json& value) const { return check(root_, value, "$"); }

  private:
    using json = nlohmann::json;

    std::string check(const json& schema, const json& value, const std::string& place) const {
        for (const auto& [keyword, rule] : schema.items()) {
            if (keyword == "$schema" || keyword == "$defs" || keyword == "title" || keyword == "description")
                continue;
            const std::string found = checkOne(schema, keyword, rule, value, place);
            if (!found.empty()) return found;
        }
        return "";
    }

    std::string checkOne(const json& schema, const std::string& keyword, const json& rule, const json& value,
                         const std::string& place) const {
        const auto unless = [&](bool good) { return good ? "" : place + " breaks " + keyword; };
        if (keyword == "$ref")
            return check(root_.at(json::json_pointer(rule.get<std::string>().substr(1))), value, place);
        if (keyword == "type") return unless(hasType(value, rule));
        if (keyword == "const") return unless(value == rule);
        if (keyword == "enum") return unless(std::find(rule.begin(), rule.end(), value) != rule.end());
        if (keyword == "minimum")
            return unless(!value.is_number() || value.get<double>() >= rule.get<double>());
        if (keyword == "pattern")
            return unless(!value.is_string() ||
                          std::regex_search(value.get<std::string>(), std::regex(rule.get<std::string>())));
        if (keyword == "required") {
            for (const std::string name : rule)
                if (!value.contains(name)) return place + " lacks " + name;
            return "";
        }
        if (keyword == "items") {
            for (std::size_t i = 0; i < value.size(); ++i) {
                const std::string found = check(rule, value[i], place + '[' + std::to_string(i) + ']');
                if (!found.empty()) return found;
            }
            return "";
        }
        if (keyword == "properties" || keyword == "additionalProperties")
            return members(schema, keyword, rule, value, place);
        throw std::runtime_error("the schema has a keyword that is not checked: " + keyword);
    }

    std::string members(const json& schema, const std::string& keyword, const json& rule, const json& value,
                        const std::string& place) const {
        const json named = schema.value("properties", json::object());
        for (const auto& [name, member] : value.items()) {
            const std::string inside = place + "." + name;
            const bool isNamed = named.contains(name);
            if (isNamed != (keyword == "properties")) continue;
            if (rule == false) return inside + " is not allowed";
            const std::string found = check(isNamed ? named[name] : rule, member, inside);
            if (!found.empty()) return found;
        }
        return "";
    }

    static bool hasType(const json& value, const std::string& type) {
        if (type == "integer") return value.is_number_integer();
        if (type == "number") return value.is_number();
        return type == value.type_name();
    }

    json root_;
};

}  // namespace zelor::test

#include "authoring/manifest/ManifestFields.h"

#include <algorithm>

#include "base/Strings.h"

namespace zelor::authoring {

namespace {

bool hasOddControls(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\n' && c != '\t') || byte == 0x7f;
    });
}

}  // namespace

std::string ManifestFields::text(const char* field) {
    const auto found = object_.find(field);
    if (found == object_.end()) return "";
    if (!found->is_string()) {
        report(std::string("field \"") + field + "\" is not a text", "put its value in double quotes");
        return "";
    }
    auto value = found->get<std::string>();
    if (hasOddControls(value)) {
        report(std::string("field \"") + field + "\" contains a control character", "remove it");
    }
    if (base::trimmed(value) != value) {
        report(std::string("field \"") + field + "\" begins or ends with white space", "remove it");
    }
    return value;
}

bool ManifestFields::flag(const char* field) {
    const auto found = object_.find(field);
    if (found == object_.end()) return false;
    if (found->is_boolean()) return found->get<bool>();
    report(std::string("field \"") + field + "\" is neither true nor false",
           "write true or false, without quotes");
    return false;
}

std::vector<nlohmann::json> ManifestFields::list(const char* field) {
    std::vector<nlohmann::json> objects;
    const auto found = object_.find(field);
    if (found == object_.end()) return objects;
    const bool good =
        found->is_array() && !found->empty() &&
        std::all_of(found->begin(), found->end(), [](const auto& item) { return item.is_object(); });
    if (!good) {
        report(std::string("field \"") + field + "\" is not a list of objects", "write it as [{...}, {...}]");
        return objects;
    }
    objects.assign(found->begin(), found->end());
    return objects;
}

void ManifestFields::report(const std::string& what, const std::string& remedy) const {
    findings_.push_back({Severity::error, place_, what, remedy});
}

void ManifestFields::refuseOthers(const std::set<std::string>& known) const {
    for (const auto& [field, value] : object_.items()) {
        if (known.count(field) != 0) continue;
        std::string names;
        for (const std::string& name : known)
            names += (names.empty() ? "" : ", ") + name;
        report("field \"" + field + "\" is unknown here", "use one of: " + names);
    }
}

}  // namespace zelor::authoring

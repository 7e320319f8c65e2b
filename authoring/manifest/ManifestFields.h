#pragma once

#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "authoring/Finding.h"

namespace zelor::authoring {

/// Reads the fields of one object of a manifest; each that is wrong becomes an error at `place`.
class ManifestFields {
  public:
    /// `object` and `findings` outlive this; `place` names the object in findings.
    ManifestFields(const nlohmann::json& object, std::string place, Findings& findings)
        : object_(object), place_(std::move(place)), findings_(findings) {}

    /// The place of its findings; whether the object has a field, of whatever type.
    const std::string& place() const { return place_; }
    bool has(const char* field) const { return object_.contains(field); }

    /// Whether a field is an object, and that object, which must be one.
    bool isObject(const char* field) const { return has(field) && object_.at(field).is_object(); }
    const nlohmann::json& object(const char* field) const { return object_.at(field); }

    /// The text of a field, "" when it is left out. A text with control characters other than line ends and
    /// tabs, or with blanks around it, is a finding.
    std::string text(const char* field);
    /// The value of a true-or-false field, false when it is left out.
    bool flag(const char* field);
    /// The objects of a list field, none when it is left out; an empty list is a finding.
    std::vector<nlohmann::json> list(const char* field);
    /// Adds an error at `place`.
    void report(const std::string& what, const std::string& remedy) const;
    /// Every field that is not in `known` is a finding.
    void refuseOthers(const std::set<std::string>& known) const;

  private:
    const nlohmann::json& object_;
    std::string place_;
    Findings& findings_;
};

}  // namespace zelor::authoring

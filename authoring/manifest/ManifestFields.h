#pragma once

#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "authoring/Finding.h"

namespace zelor::authoring {

/// Takes the fields out of one object of a manifest; each that is wrong becomes a finding at `place`.
class ManifestFields {
  public:
    ManifestFields(const nlohmann::json& object, std::string place, Findings& findings)
        : object_(object), place_(std::move(place)), findings_(findings) {}

    const std::string& place() const { return place_; }
    bool has(const char* field) const { return object_.contains(field); }

    /// The text of a field, "" when it is left out. A text with control characters other than line ends and
    /// tabs, or with blanks around it, is a finding.
    std::string text(const char* field);
    bool flag(const char* field);
    /// The objects of a list field.
    std::vector<nlohmann::json> list(const char* field);
    void report(const std::string& what, const std::string& remedy) const;
    /// Every field that is none of `known` is a finding.
    void refuseOthers(const std::set<std::string>& known) const;

  private:
    const nlohmann::json& object_;
    std::string place_;
    Findings& findings_;
};

}  // namespace zelor::authoring

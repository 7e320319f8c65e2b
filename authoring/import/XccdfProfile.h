#pragma once

#include <map>
#include <string>
#include <utility>

#include "authoring/import/XccdfDocument.h"

namespace zelor::authoring {

/// What a profile decides: which rules are selected, and the values. Refers to the document, which must
/// outlive it.
class XccdfProfile {
  public:
    /// `id`: "" for the default values and every rule. Fails when the document has no such profile, or one
    /// that extends itself.
    static base::Result<XccdfProfile> resolve(const XccdfDocument& document, const std::string& id);

    /// Whether a Rule or Group is selected, if what it is in was.
    bool selects(const pugi::xml_node& item, bool inherited) const;
    /// The text that replaces a `sub` element of a fix; valid as long as the profile. Fails when there is no
    /// such value, or one that no fix has room for.
    const base::Result<std::string>& valueOf(const pugi::xml_node& sub) const;

  private:
    explicit XccdfProfile(const XccdfDocument& document) : document_(&document) {}
    void add(const pugi::xml_node& profile);
    void findValues(const pugi::xml_node& item);
    base::Result<std::string> findValue(const std::string& id, const std::string& use) const;
    base::Result<std::string> chosen(const pugi::xml_node& value, const std::string& id) const;

    const XccdfDocument* document_;
    bool everyRule_ = false;
    std::map<std::string, bool> selected_;          ///< by id or cluster-id
    std::map<std::string, std::string> given_;      ///< set-value
    std::map<std::string, std::string> selectors_;  ///< refine-value
    std::map<std::string, pugi::xml_node> values_;
    /// What was found, by id and use: one value may be used a million times.
    mutable std::map<std::pair<std::string, std::string>, base::Result<std::string>> found_;
};

}  // namespace zelor::authoring

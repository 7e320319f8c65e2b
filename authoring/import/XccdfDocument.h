#pragma once

#include <pugixml.hpp>
#include <string>
#include <vector>

#include "agent/xml/XmlText.h"
#include "base/Result.h"

namespace zelor::authoring {

/// The benchmark of a data stream, whose elements are found by the names of XCCDF 1.2.
class XccdfDocument {
  public:
    /// Fails as `readXccdfRules` does.
    static base::Result<XccdfDocument> parse(const std::string& xml);

    /// The root element of the benchmark; valid as long as the document.
    pugi::xml_node benchmark() const { return benchmark_; }
    /// Whether a node is the XCCDF element of that name.
    bool is(const pugi::xml_node& node, const char* name) const { return prefix_ + name == node.name(); }
    /// The first child of that name; a null node for none.
    pugi::xml_node child(const pugi::xml_node& node, const char* name) const {
        return node.child((prefix_ + name).c_str());
    }
    /// All children of that name.
    std::vector<pugi::xml_node> children(const pugi::xml_node& node, const char* name) const;

  private:
    pugi::xml_document document_;
    pugi::xml_node benchmark_;
    std::string prefix_;  ///< "xccdf:" or ""
};

/// All text below a node.
using agent::textOf;

}  // namespace zelor::authoring

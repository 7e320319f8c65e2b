#include "agent/xml/XmlText.h"

#include <algorithm>

#include "base/PrintableText.h"
#include "base/Strings.h"

namespace zelor::agent {

namespace {

constexpr std::ptrdiff_t kMarkupLimit = 4'000'000;  // tags; a node takes about ten times the room of its tag
constexpr int kDepthLimit = 128;

/// Finds what no document needs.
class Survey : public pugi::xml_tree_walker {
  public:
    explicit Survey(DocumentType types) : types_(types) {}
    bool for_each(pugi::xml_node& node) override {
        if (depth() >= kDepthLimit) problem = "it has elements more than 128 deep";
        if (node.type() == pugi::node_doctype) seeType(node.value());
        const std::string encoding = base::lowerCased(node.attribute("encoding").value());
        if (node.type() == pugi::node_declaration && !encoding.empty() && encoding != "utf-8")
            problem =
                "its encoding is \"" + base::printable(encoding.substr(0, 40)) + "\"; convert it to UTF-8";
        return problem.empty();
    }
    std::string problem;

  private:
    void seeType(const std::string& type) {
        if (types_ == DocumentType::none) problem = "it has a document type; leave that out";
        if (base::contains(type, "[")) problem = "its document type declares something; leave that out";
    }
    DocumentType types_;
};

class TextWalker : public pugi::xml_tree_walker {
  public:
    bool for_each(pugi::xml_node& node) override {
        if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) text += node.value();
        return true;
    }
    std::string text;
};

}  // namespace

base::Result<pugi::xml_document> parseXml(const std::string& xml, DocumentType types) {
    if (xml.size() > kXmlBytesLimit) return base::failure("it is larger than 64 MiB");
    if (xml.find('\0') != std::string::npos) return base::failure("it has a zero byte; convert it to UTF-8");
    if (std::count(xml.begin(), xml.end(), '<') > kMarkupLimit)
        return base::failure("it has more than 4,000,000 tags");
    pugi::xml_document document;
    constexpr unsigned kOptions =
        pugi::parse_default | pugi::parse_ws_pcdata | pugi::parse_doctype | pugi::parse_declaration;
    const auto result = document.load_buffer(xml.data(), xml.size(), kOptions, pugi::encoding_utf8);
    if (!result) {
        const auto end =
            xml.begin() + std::min<std::ptrdiff_t>(result.offset, static_cast<std::ptrdiff_t>(xml.size()));
        return base::failure("line " + std::to_string(1 + std::count(xml.begin(), end, '\n')) +
                             ": malformed XML: " + result.description());
    }
    Survey survey(types);
    document.traverse(survey);
    if (!survey.problem.empty()) return base::failure(survey.problem);
    return document;
}

std::string localName(const pugi::xml_node& node) {
    const std::string name = node.name();
    const auto colon = name.find(':');
    return colon == std::string::npos ? name : name.substr(colon + 1);
}

std::string prefixOf(const pugi::xml_node& node) {
    const std::string name = node.name();
    const auto colon = name.find(':');
    return colon == std::string::npos ? "" : name.substr(0, colon + 1);
}

std::string namespaceOf(const pugi::xml_node& node) {
    const std::string prefix = prefixOf(node);
    const std::string declaration = prefix.empty() ? "xmlns" : "xmlns:" + prefix.substr(0, prefix.size() - 1);
    for (pugi::xml_node at = node; at; at = at.parent()) {
        if (const pugi::xml_attribute found = at.attribute(declaration.c_str())) return found.value();
    }
    return "";
}

std::string textOf(const pugi::xml_node& node) {
    TextWalker walker;
    pugi::xml_node(node).traverse(walker);
    return walker.text;
}

}  // namespace zelor::agent

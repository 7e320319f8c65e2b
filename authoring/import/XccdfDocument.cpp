#include "authoring/import/XccdfDocument.h"

#include <algorithm>

#include "authoring/import/SourceText.h"
#include "authoring/import/XccdfRules.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr const char* kNamespace = "http://checklists.nist.gov/xccdf/1.2";
constexpr std::ptrdiff_t kMarkupLimit = 4'000'000;  // tags; a node takes about ten times the room of its tag
constexpr int kElementDepthLimit = 128;

std::string localName(const std::string& name) {
    const auto colon = name.find(':');
    return colon == std::string::npos ? name : name.substr(colon + 1);
}

std::string prefixOf(const std::string& name) {
    const auto colon = name.find(':');
    return colon == std::string::npos ? "" : name.substr(0, colon + 1);
}

std::string namespaceOf(const pugi::xml_node& node) {
    const std::string prefix = prefixOf(node.name());
    const std::string declaration = prefix.empty() ? "xmlns" : "xmlns:" + prefix.substr(0, prefix.size() - 1);
    for (pugi::xml_node at = node; at; at = at.parent()) {
        if (const pugi::xml_attribute found = at.attribute(declaration.c_str())) return found.value();
    }
    return "";
}

/// Finds the benchmarks, and what no data stream needs.
class Survey : public pugi::xml_tree_walker {
  public:
    bool for_each(pugi::xml_node& node) override {
        if (depth() >= kElementDepthLimit) problem = "it has elements more than 128 deep";
        if (node.type() == pugi::node_doctype) problem = "it has a document type; leave that out";
        const std::string encoding = base::lowerCased(node.attribute("encoding").value());
        if (node.type() == pugi::node_declaration && !encoding.empty() && encoding != "utf-8")
            problem = "its encoding is \"" + oneLine(encoding, 40) + "\"; convert it to UTF-8";
        if (node.type() == pugi::node_element && localName(node.name()) == "Benchmark")
            benchmarks.push_back(node);
        return problem.empty();
    }
    std::string problem;
    std::vector<pugi::xml_node> benchmarks;
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

base::Result<XccdfDocument> XccdfDocument::parse(const std::string& xml) {
    if (xml.size() > kDataStreamBytesLimit) return base::failure("it is larger than 64 MiB");
    if (base::contains(xml, std::string(1, '\0')))
        return base::failure("it has a zero byte; convert it to UTF-8");
    if (std::count(xml.begin(), xml.end(), '<') > kMarkupLimit)
        return base::failure("it has more than 4,000,000 tags");
    XccdfDocument read;
    constexpr unsigned kOptions =
        pugi::parse_default | pugi::parse_ws_pcdata | pugi::parse_doctype | pugi::parse_declaration;
    const auto result = read.document_.load_buffer(xml.data(), xml.size(), kOptions, pugi::encoding_utf8);
    if (!result) {
        const auto end =
            xml.begin() + std::min<std::ptrdiff_t>(result.offset, static_cast<std::ptrdiff_t>(xml.size()));
        return base::failure("line " + std::to_string(1 + std::count(xml.begin(), end, '\n')) +
                             ": malformed XML: " + result.description());
    }
    Survey survey;
    read.document_.traverse(survey);
    if (!survey.problem.empty()) return base::failure(survey.problem);
    if (survey.benchmarks.size() != 1)
        return base::failure("it has " + std::to_string(survey.benchmarks.size()) +
                             " benchmarks; import a file with one");
    read.benchmark_ = survey.benchmarks[0];
    read.prefix_ = prefixOf(read.benchmark_.name());
    if (namespaceOf(read.benchmark_) != kNamespace)
        return base::failure(std::string("its benchmark is not XCCDF 1.2 (") + kNamespace + ")");
    return read;
}

std::vector<pugi::xml_node> XccdfDocument::children(const pugi::xml_node& node, const char* name) const {
    std::vector<pugi::xml_node> found;
    for (const pugi::xml_node child : node.children()) {
        if (is(child, name)) found.push_back(child);
    }
    return found;
}

std::string textOf(const pugi::xml_node& node) {
    TextWalker walker;
    pugi::xml_node(node).traverse(walker);
    return walker.text;
}

}  // namespace zelor::authoring

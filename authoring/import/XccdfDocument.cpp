#include "authoring/import/XccdfDocument.h"

namespace zelor::authoring {

namespace {

constexpr const char* kNamespace = "http://checklists.nist.gov/xccdf/1.2";

class BenchmarkFinder : public pugi::xml_tree_walker {
  public:
    bool for_each(pugi::xml_node& node) override {
        if (node.type() == pugi::node_element && agent::localName(node) == "Benchmark")
            benchmarks.push_back(node);
        return true;
    }
    std::vector<pugi::xml_node> benchmarks;
};

}  // namespace

base::Result<XccdfDocument> XccdfDocument::parse(const std::string& xml) {
    auto document = agent::parseXml(xml);
    if (!document) return tl::unexpected<base::Failure>(document.error());
    XccdfDocument read;
    read.document_ = std::move(*document);
    BenchmarkFinder finder;
    read.document_.traverse(finder);
    if (finder.benchmarks.size() != 1)
        return base::failure("it has " + std::to_string(finder.benchmarks.size()) +
                             " benchmarks; import a file with one");
    read.benchmark_ = finder.benchmarks[0];
    read.prefix_ = agent::prefixOf(read.benchmark_);
    if (agent::namespaceOf(read.benchmark_) != kNamespace)
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

}  // namespace zelor::authoring

#include <algorithm>
#include <set>
#include <vector>

#include "agent/xml/XmlText.h"
#include "base/Strings.h"
#include "controller/requests/ScanFindings.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::controller {

namespace {

constexpr const char* kNamespace = "http://checklists.nist.gov/xccdf/1.2";

/// Collects the elements that matter, wherever a report has them.
class Finder : public pugi::xml_tree_walker {
  public:
    bool for_each(pugi::xml_node& node) override {
        if (node.type() != pugi::node_element) return true;
        const std::string name = agent::localName(node);
        if (name != "TestResult" && name != "Benchmark") return true;
        if (agent::namespaceOf(node) != kNamespace) {
            other = true;
        } else {
            (name == "Benchmark" ? benchmarks : results).push_back(node);
        }
        return true;
    }
    std::vector<pugi::xml_node> benchmarks;
    std::vector<pugi::xml_node> results;
    bool other = false;
};

/// Finds the children of one result or benchmark by the names of XCCDF.
class Item {
  public:
    explicit Item(const pugi::xml_node& node) : node_(node), prefix_(agent::prefixOf(node)) {}

    std::vector<pugi::xml_node> all(const pugi::xml_node& parent, const std::string& name) const {
        std::vector<pugi::xml_node> found;
        for (const pugi::xml_node child : parent.children()) {
            if (is(child, name)) found.push_back(child);
        }
        return found;
    }
    std::string text(const pugi::xml_node& parent, const std::string& name) const {
        return base::trimmed(agent::textOf(parent.child((prefix_ + name).c_str())));
    }
    bool is(const pugi::xml_node& node, const std::string& name) const {
        return prefix_ + name == node.name();
    }
    const pugi::xml_node& node() const { return node_; }

    std::vector<std::string> platforms() const {
        std::vector<std::string> names;
        for (const pugi::xml_node platform : all(node_, "platform"))
            names.emplace_back(platform.attribute("idref").value());
        return names;
    }
    std::vector<std::string> identifiers(const pugi::xml_node& rule) const {
        std::vector<std::string> found;
        for (const pugi::xml_node ident : all(rule, "ident")) {
            const std::string text = base::trimmed(agent::textOf(ident));
            if (remediation::isCceIdentifier(text) &&
                std::find(found.begin(), found.end(), text) == found.end())
                found.push_back(text);
        }
        return found;
    }

  private:
    pugi::xml_node node_;
    std::string prefix_;
};

bool namesCpe(const std::vector<std::string>& names) {
    return std::any_of(names.begin(), names.end(),
                       [](const std::string& name) { return base::hasBeginningInAnyCase(name, "cpe:"); });
}

/// The benchmark around a result, else the one that it names, else the only one.
pugi::xml_node benchmarkOf(const Item& result, const std::vector<pugi::xml_node>& benchmarks) {
    const pugi::xml_node around = result.node().parent();
    if (agent::localName(around) == "Benchmark") return around;
    for (const pugi::xml_node named : result.all(result.node(), "benchmark")) {
        for (const pugi::xml_node& benchmark : benchmarks) {
            if (std::string(benchmark.attribute("id").value()) == named.attribute("id").value())
                return benchmark;
        }
    }
    return benchmarks.size() == 1 ? benchmarks[0] : pugi::xml_node();
}

/// Adds what a benchmark says of its rules to what is known already.
void addRules(const Item& benchmark, const pugi::xml_node& parent, KnownRules& rules) {
    for (const pugi::xml_node node : parent.children()) {
        if (benchmark.is(node, "Group")) addRules(benchmark, node, rules);
        if (!benchmark.is(node, "Rule")) continue;
        KnownRule& rule = rules[node.attribute("id").value()];
        rule.title = benchmark.text(node, "title");
        const std::vector<std::string> identifiers = benchmark.identifiers(node);
        if (!identifiers.empty()) rule.identifiers = identifiers;
    }
}

class ResultReader {
  public:
    ResultReader(const Item& result, const pugi::xml_node& benchmark, KnownRules known)
        : result_(result), rules_(std::move(known)), cpes_(result.platforms()) {
        if (!benchmark) return;
        const Item item(benchmark);
        addRules(item, benchmark, rules_);
        if (!namesCpe(cpes_)) cpes_ = item.platforms();
    }

    Scan read() const {
        static const std::set<std::string> kGood = {"pass", "fixed", "notapplicable", "notselected",
                                                    "informational"};
        Scan scan;
        scan.target = result_.text(result_.node(), "target");
        for (const pugi::xml_node node : result_.all(result_.node(), "rule-result")) {
            const std::string result = result_.text(node, "result");
            if (kGood.count(result) != 0) ++scan.passed;
            if (kGood.count(result) == 0) scan.findings.push_back(finding(node, result));
        }
        return scan;
    }

  private:
    ScanFinding finding(const pugi::xml_node& node, const std::string& result) const {
        const std::string id = node.attribute("idref").value();
        ScanFinding finding{"rule " + id, "", result_.identifiers(node), cpes_, ""};
        const auto known = rules_.find(id);
        if (known != rules_.end()) {
            finding.title = known->second.title;
            if (finding.identifiers.empty()) finding.identifiers = known->second.identifiers;
        }
        if (result != "fail") {
            finding.reason = "the scan does not say whether it fails: its result is " + result.substr(0, 40);
        } else if (finding.identifiers.empty()) {
            finding.reason = "it has no CCE identifier";
        }
        return finding;
    }

    const Item& result_;
    KnownRules rules_;
    std::vector<std::string> cpes_;
};

}  // namespace

base::Result<Scan> readXccdfResults(const std::string& xml, const KnownRules& known) {
    auto document = agent::parseXml(xml);
    if (!document) return tl::unexpected<base::Failure>(document.error());
    Finder finder;
    document->traverse(finder);
    if (finder.results.empty()) {
        return base::failure(finder.other ? std::string("its results are not XCCDF 1.2 (") + kNamespace + ")"
                                          : "it has no results of a scan; name XCCDF or ARF results");
    }
    const pugi::xml_node last = *std::max_element(finder.results.begin(), finder.results.end(),
                                                  [](const pugi::xml_node& one, const pugi::xml_node& other) {
                                                      return std::string(one.attribute("end-time").value()) <
                                                             other.attribute("end-time").value();
                                                  });
    const Item result(last);
    const std::string target = result.text(last, "target");
    for (const pugi::xml_node& other : finder.results) {
        if (Item(other).text(other, "target") != target)
            return base::failure("it has results of several machines; split it");
    }
    return ResultReader(result, benchmarkOf(result, finder.benchmarks), known).read();
}

}  // namespace zelor::controller

#include <iostream>
#include <set>

#include "agent/xml/XmlText.h"
#include "base/PrintableText.h"
#include "controller/Commands.h"
#include "controller/InputError.h"
#include "controller/InputFile.h"
#include "controller/Text.h"
#include "controller/requests/RequestMaker.h"
#include "controller/run/OutputFile.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kMostLines = 1000;

std::string checkedCpe(const std::string& option, const std::string& given, const char* kind) {
    std::string cpe = keyCpe(given);
    if (!given.empty() && cpe.compare(0, std::string(kind).size(), kind) != 0)
        throw InputError(option + " \"" + base::printable(given) + "\" is no such CPE; write it as " + kind +
                         ":vendor:product");
    return cpe;
}

std::string readFile(const std::string& path) {
    return readInput(path, {agent::kXmlBytesLimit, "results of a scan or a list of identifiers", "split it"});
}

void explain(const RequestMaker& maker, std::size_t passed) {
    std::size_t lines = 0;
    for (const auto& [source, reason] : maker.leftOut()) {
        if (++lines > kMostLines) break;
        std::cerr << source << ": left out: " << reason << '\n';
    }
    if (lines > kMostLines) std::cerr << "and " << maker.leftOut().size() - kMostLines << " more left out\n";
    std::cerr << countText(maker.requests().size(), "request") << ", " << maker.leftOut().size()
              << " left out, " << maker.merged() << " merged into an earlier one; "
              << countText(passed, "rule") << " passed or not applicable\n";
}

}  // namespace

int requestsCommand(const RequestsOptions& options) {
    RequestMaker maker(checkedCpe("--platform", options.platform, "cpe:/o"),
                       checkedCpe("--product", options.product, "cpe:/a"));
    for (const std::string& path : options.files)
        checkOutputs({{"--out", options.out}}, path);
    KnownRules rules;
    for (const std::string& path : options.rules) {
        if (const base::Check added = addKnownRules(readFile(path), rules); !added)
            throw InputError(inputName(path) + ": " + added.error().text + "; name its import.json");
    }
    std::set<std::string> targets;
    std::size_t passed = 0;
    for (const std::string& path : options.files) {
        const auto scan = readScan(readFile(path), rules);
        if (!scan) throw InputError(inputName(path) + ": " + base::printable(scan.error().text));
        if (!scan->target.empty()) targets.insert(scan->target);
        if (targets.size() > 1)
            throw InputError("the files are of several machines, " + base::printable(*targets.begin()) +
                             " and " + base::printable(*targets.rbegin()) + "; name those of one");
        passed += scan->passed;
        maker.add(*scan, inputName(path));
    }
    const std::string problem =
        writeOutput(options.out, [&](std::ostream& out) { out << requestsJson(maker.requests()); });
    if (!problem.empty()) throw CommandError(exitStatus::kOutputFailed, problem);
    explain(maker, passed);
    if (maker.leftOut().empty()) return exitStatus::kAllSucceeded;
    return maker.requests().empty() ? exitStatus::kNoneSucceeded : exitStatus::kSomeSucceeded;
}

}  // namespace zelor::controller

#include "controller/export/ExportedRun.h"

#include <utility>
#include <vector>

#include "agent/trust/Sha256.h"
#include "controller/InputError.h"
#include "controller/InputFile.h"
#include "controller/Text.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kResultsBytesLimit = std::size_t{1} << 30U;

std::string digestOf(const std::vector<std::string>& texts) {
    constexpr std::size_t kDigits = 32;
    agent::Sha256 digest;
    for (const std::string& text : texts) {
        digest.add(std::to_string(text.size()) + ':');  // so that no two lists are hashed alike
        digest.add(text);
    }
    return digest.finish().sha256.substr(0, kDigits);
}

}  // namespace

std::string requestDigest(const ExportedRequest& request) {
    return digestOf({request.key, request.identifier});
}

std::string commandDigest(const ExportedRun& run, const ExportedRequest& request) {
    return digestOf({run.host, utcText(run.started), request.key, request.identifier});
}

ExportedRun parseResults(const std::string& text, const std::string& name) {
    base::Result<ExportedRun> run = results::parseRun(text);
    if (!run)
        throw InputError(name + ": " + run.error().text +
                         "; name a file that zelor-remediate run --json wrote");
    return std::move(*run);
}

ExportedRun loadResults(const std::string& path) {
    return parseResults(readInput(path, {kResultsBytesLimit, "the results of a run", "export fewer at once"}),
                        inputName(path));
}

}  // namespace zelor::controller

#include "authoring/checks/ScriptChecks.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "base/CommandRunner.h"
#include "base/Files.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr std::chrono::seconds kParseLimit{60};
constexpr std::size_t kBatch = 100, kQueueLimit = 1000;

/// Prints the number of each file that it can parse. `set -n` is a line of its own, so it is in force before
/// bash reads the script's first line, and nothing of the script runs. A file with a zero byte or that cannot
/// be read is passed over. -p: no functions of the environment take part.
constexpr const char* kParseMany = R"(number=0
for file; do
    number=$((number + 1)) text=
    { IFS= read -r -d '' text && continue; :; } <"$file" || continue
    (eval "set -n
$text") && echo "$number"
done 2>/dev/null)";

/// What bash certainly can parse, of the scripts from `begin` on. Others are to be parsed one by one.
std::vector<bool> parsedAtOnce(const std::vector<ScriptFile>& scripts, std::size_t begin, std::size_t end) {
    std::vector<std::string> words = {"/bin/bash", "--norc", "-p", "-c", kParseMany, "parse"};
    for (std::size_t i = begin; i < end; ++i)
        words.push_back(scripts[i].file);
    std::istringstream numbers(base::runCommand(words, false, kParseLimit).output);
    std::vector<bool> parsed(end - begin);
    for (std::size_t number = 0; numbers >> number;) {
        if (number >= 1 && number <= parsed.size()) parsed[number - 1] = true;
    }
    return parsed;
}

}  // namespace

Findings scriptFindings(const std::string& place, const std::string& script) {
    const base::CommandResult result =
        base::runCommand({"/bin/bash", "--norc", "-n", script}, true, kParseLimit);
    if (!result.started) {
        return {{Severity::warning, place, "the script was not parsed: /bin/bash cannot be started here",
                 "check it on a machine with /bin/bash"}};
    }
    if (result.waited && result.status == 0) return {};
    std::string said = base::trimmed(result.output);
    for (auto at = said.find(script); at != std::string::npos; at = said.find(script))
        said.erase(at, script.size() + (said.compare(at + script.size(), 2, ": ") == 0 ? 2 : 0));
    return {{Severity::error, place,
             "bash cannot parse the script: " + (result.timedOut ? "it took more than a minute" : said),
             "correct the line named (bash -n shows the same) and publish it again"}};
}

std::vector<Findings> scriptFindings(const std::vector<ScriptFile>& scripts) {
    std::vector<Findings> found(scripts.size());
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t begin = next.fetch_add(kBatch); begin < scripts.size();
             begin = next.fetch_add(kBatch)) {
            const std::size_t end = std::min(begin + kBatch, scripts.size());
            const std::vector<bool> parsed = parsedAtOnce(scripts, begin, end);
            for (std::size_t i = begin; i < end; ++i) {
                if (!parsed[i - begin]) found[i] = scriptFindings(scripts[i].place, scripts[i].file);
            }
        }
    };
    const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
    std::vector<std::thread> workers(std::min((scripts.size() + kBatch - 1) / kBatch, processors));
    for (std::thread& worker : workers)
        worker = std::thread(work);
    for (std::thread& worker : workers)
        worker.join();
    return found;
}

void ScriptQueue::add(const std::string& place, const std::string& file) {
    const std::string taken = directory_.path() + '/' + std::to_string(scripts_.size());
    if (::rename(file.c_str(), taken.c_str()) != 0)
        throw std::runtime_error("cannot move " + file + ": " + base::errorText(errno));
    scripts_.push_back({place, taken});
}

bool ScriptQueue::isFull() const {
    return scripts_.size() >= kQueueLimit;
}

Findings ScriptQueue::parse() {
    Findings findings;
    for (const Findings& found : scriptFindings(scripts_))
        findings.insert(findings.end(), found.begin(), found.end());
    for (const ScriptFile& script : scripts_)
        ::unlink(script.file.c_str());
    scripts_.clear();
    return findings;
}

}  // namespace zelor::authoring

#include "authoring/fleet/Fleet.h"

#include <algorithm>

#include "base/Strings.h"
#include "results/Text.h"

namespace zelor::authoring {

namespace {

// A name of a machine has at most 253 bytes; texts are cut to what a page shows.
constexpr std::size_t kHostBytes = 255;
constexpr std::size_t kFleetNameColumns = 200;
constexpr std::size_t kFleetReasonColumns = 300;
constexpr std::size_t kTextOverhead = 96;
constexpr results::ProgressValue kFailedValue = 5;

std::string shortText(const std::string& text, std::size_t columns) {
    // A text has at most as many columns as bytes.
    const std::string shown = base::printable(text.substr(0, columns * 8));
    return shown.size() <= columns ? shown : results::cutToColumns(shown, columns, "…");
}

std::string reasonOf(const results::Request& request) {
    const bool disproved =
        request.value == results::kSuccessValue && request.verified == results::Verified::fails;
    if (!disproved) return request.detail;
    return "the check says that it does not hold" +
           (request.verifiedReason.empty() ? "" : ": " + request.verifiedReason);
}

}  // namespace

std::uint32_t TextPool::number(const std::string& text) {
    const auto found = numbers_.find(text);
    if (found != numbers_.end()) return found->second;
    const std::size_t needed = text.size() + kTextOverhead;
    if (needed > room_) return kNone;
    room_ -= needed;
    const auto place = numbers_.emplace(text, static_cast<std::uint32_t>(texts_.size())).first;
    texts_.push_back(&place->first);
    return place->second;
}

Standing standingOf(const results::Request& request) {
    if (!results::isResult(request.value) || request.value == results::kAbortedValue)
        return Standing::undecided;
    if (request.value != results::kSuccessValue || request.verified == results::Verified::fails)
        return Standing::failed;
    return request.warned ? Standing::undecided : Standing::good;
}

bool Fleet::takeEntry() {
    if (entriesLeft_ == 0) return false;
    --entriesLeft_;
    return true;
}

void Fleet::fill(Machine& machine, const results::Run& run) {
    for (const results::Request& request : run.requests) {
        const std::size_t value = request.value <= results::kAbortedValue ? request.value : kFailedValue;
        const Standing standing = standingOf(request);
        ++machine.byValue.at(value);
        ++machine.byProof.at(static_cast<std::size_t>(request.verified));
        machine.failed += standing == Standing::failed ? 1 : 0;
        machine.undecided += standing == Standing::undecided ? 1 : 0;
        const std::uint32_t identifier =
            texts_.number(shortText(base::trimmed(request.identifier), kFleetNameColumns));
        const bool kept = identifier != TextPool::kNone && takeEntry();
        if (kept) machine.identifiers.push_back(identifier);
        if (!kept || (standing != Standing::good && !takeEntry())) {
            ++machine.uncounted;
            continue;
        }
        if (standing == Standing::good) continue;
        machine.open.push_back(
            {identifier, texts_.number(shortText(results::requestLabel(request.key), kFleetNameColumns)),
             texts_.number(shortText(reasonOf(request), kFleetReasonColumns)),
             static_cast<std::uint8_t>(value), standing == Standing::failed});
    }
    std::stable_partition(machine.open.begin(), machine.open.end(),
                          [](const OpenRequest& request) { return request.failed; });
    std::sort(machine.identifiers.begin(), machine.identifiers.end());
    machine.identifiers.erase(std::unique(machine.identifiers.begin(), machine.identifiers.end()),
                              machine.identifiers.end());
    machine.identifiers.shrink_to_fit();
    machine.open.shrink_to_fit();
}

base::Check Fleet::add(const results::Run& run) {
    if (run.host.empty()) return base::failure("it does not say which machine it is of: \"host\" is empty");
    if (run.host.size() > kHostBytes) return base::failure("\"host\" is too long for the name of a machine");
    const auto [place, isNew] = places_.emplace(run.host, machines_.size());
    if (isNew) machines_.emplace_back();
    Machine& known = machines_[place->second];
    known.older += isNew ? 0 : 1;
    if (!isNew && run.finished <= known.finished) return {};
    entriesLeft_ += known.identifiers.size() + known.open.size();
    Machine machine;
    machine.host = run.host;
    machine.system = shortText(run.platformName + ' ' + run.platformVersion, kFleetNameColumns);
    machine.finished = run.finished;
    machine.rebootNeeded = run.rebootNeeded || run.restartNeededByThisRun;
    machine.complete = run.end == "complete";
    machine.older = known.older;
    machine.requests = static_cast<std::uint32_t>(run.requests.size());
    fill(machine, run);
    known = std::move(machine);
    return {};
}

}  // namespace zelor::authoring

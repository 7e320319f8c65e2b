#include "authoring/fleet/FleetSummary.h"

#include <algorithm>
#include <unordered_map>

#include "results/Text.h"

namespace zelor::authoring {

namespace {

void addMachine(FleetSummary& summary, const Machine& machine) {
    summary.machines.push_back(&machine);
    summary.requests += machine.requests;
    summary.notGoodMachines += machine.failed + machine.undecided > 0 ? 1 : 0;
    summary.failedMachines += machine.failed > 0 ? 1 : 0;
    summary.uncounted += machine.uncounted;
    for (std::size_t proof = 0; proof < summary.byProof.size(); ++proof)
        summary.byProof.at(proof) += machine.byProof.at(proof);
    ++summary.byDay[results::utcText(machine.finished).substr(0, 10)];
    summary.olderResults += machine.older;
    summary.machinesWithOlder += machine.older > 0 ? 1 : 0;
    summary.reboots += machine.rebootNeeded ? 1 : 0;
    summary.incomplete += machine.complete ? 0 : 1;
}

bool failsMore(const Machine* one, const Machine* other) {
    if (one->failed != other->failed) return one->failed > other->failed;
    if (one->undecided != other->undecided) return one->undecided > other->undecided;
    return one->host < other->host;
}

/// Several values have one state.
void addStates(FleetSummary& summary, const Fleet& fleet) {
    for (results::ProgressValue value = 0; value <= results::kAbortedValue; ++value) {
        std::size_t count = 0;
        for (const Machine& machine : fleet.machines())
            count += machine.byValue.at(value);
        if (count == 0) continue;
        const std::string state = results::stateName(value);
        const auto known = std::find_if(summary.states.begin(), summary.states.end(),
                                        [&](const auto& entry) { return entry.first == state; });
        if (known == summary.states.end()) {
            summary.states.emplace_back(state, count);
        } else {
            known->second += count;
        }
    }
}

/// Of all identifiers, by their number.
std::vector<IdentifierSummary> allIdentifiers(const Fleet& fleet) {
    std::vector<IdentifierSummary> all(fleet.texts().size());
    std::vector<std::size_t> failed(all.size()), undecided(all.size());  // the last machine, from 1
    for (std::size_t i = 0; i < fleet.machines().size(); ++i) {
        const Machine& machine = fleet.machines()[i];
        for (const std::uint32_t identifier : machine.identifiers)
            ++all[identifier].requestedBy;
        for (const OpenRequest& request : machine.open) {
            // Failed requests come first.
            const std::size_t number = request.identifier;
            all[number].identifier = request.identifier;
            ++all[number].openInAll;
            if (failed[number] == i + 1 || undecided[number] == i + 1) continue;
            (request.failed ? failed : undecided)[number] = i + 1;
            ++(request.failed ? all[number].failedOn : all[number].undecidedOn);
        }
    }
    return all;
}

void addDetails(FleetSummary& summary) {
    std::unordered_map<std::uint32_t, IdentifierSummary*> shown;
    std::unordered_map<std::uint32_t, std::unordered_map<std::uint32_t, std::size_t>> reasons;
    for (std::size_t i = 0; i < std::min(summary.identifiers.size(), kShownEntries); ++i)
        shown[summary.identifiers[i].identifier] = &summary.identifiers[i];
    for (std::size_t rank = 0; rank < summary.notGoodMachines; ++rank) {
        for (const OpenRequest& request : summary.machines[rank]->open) {
            const auto found = shown.find(request.identifier);
            if (found == shown.end()) continue;
            ++reasons[request.identifier][request.reason];
            if (found->second->open.size() < kShownDetails) found->second->open.push_back({rank, &request});
        }
    }
    for (const auto& [identifier, counts] : reasons) {
        auto& own = shown[identifier]->reasons;
        own.assign(counts.begin(), counts.end());
        std::sort(own.begin(), own.end(), [](const auto& one, const auto& other) {
            return one.second != other.second ? one.second > other.second : one.first < other.first;
        });
    }
}

}  // namespace

FleetSummary summaryOf(const Fleet& fleet) {
    FleetSummary summary;
    for (const Machine& machine : fleet.machines())
        addMachine(summary, machine);
    std::sort(summary.machines.begin(), summary.machines.end(), failsMore);
    addStates(summary, fleet);
    for (IdentifierSummary& one : allIdentifiers(fleet)) {
        if (one.openInAll > 0) summary.identifiers.push_back(std::move(one));
    }
    std::sort(summary.identifiers.begin(), summary.identifiers.end(),
              [&](const IdentifierSummary& one, const IdentifierSummary& other) {
                  if (one.failedOn != other.failedOn) return one.failedOn > other.failedOn;
                  if (one.undecidedOn != other.undecidedOn) return one.undecidedOn > other.undecidedOn;
                  return fleet.texts().text(one.identifier) < fleet.texts().text(other.identifier);
              });
    addDetails(summary);
    return summary;
}

}  // namespace zelor::authoring

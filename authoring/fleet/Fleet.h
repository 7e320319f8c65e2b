#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "authoring/fleet/TextPool.h"
#include "base/Result.h"
#include "results/Run.h"

/// The results of many machines, reduced to what a page about all of them needs.
namespace zelor::authoring {

/// How a request ended, for people who look after machines.
enum class Standing {
    good,       ///< a success that nothing speaks against
    undecided,  ///< aborted, not finished, or a success that installed nothing
    failed      ///< no success, or a success that its check disproves
};
Standing standingOf(const results::Request& request);

/// A request that is not good. The numbers are those of the fleet's texts.
struct OpenRequest {
    std::uint32_t identifier = 0;
    std::uint32_t label = 0;
    std::uint32_t reason = 0;
    std::uint8_t value = 0;  ///< an undefined one is that of a failure
    bool failed = false;
};

/// The newest results of a machine.
struct Machine {
    std::string host;
    std::string system;  ///< name and version, printable
    std::chrono::system_clock::time_point finished;
    bool rebootNeeded = false;
    bool complete = true;     ///< the run went on to its end
    std::uint32_t older = 0;  ///< other results of the same machine
    std::uint32_t requests = 0;
    std::uint32_t failed = 0;
    std::uint32_t undecided = 0;
    std::uint32_t uncounted = 0;  ///< requests that are in the numbers above, but not in the lists below
    std::array<std::uint32_t, results::kAbortedValue + 1> byValue{};
    std::array<std::uint32_t, 4> byProof{};  ///< by `results::Verified`
    std::vector<std::uint32_t> identifiers;  ///< of all its requests, each once
    std::vector<OpenRequest> open;           ///< failed ones first, then in the order of the results
};

/// What a fleet keeps at most, so that hostile results cannot fill the memory.
struct FleetLimits {
    std::size_t textBytes = std::size_t{384} << 20U;
    std::size_t listEntries = std::size_t{12} << 20U;  ///< in the lists of all machines
};

/// The machines of which results were added.
class Fleet {
  public:
    /// Texts and lists are kept up to the limits; what is beyond them is only counted.
    explicit Fleet(const FleetLimits& limits = {})
        : texts_(limits.textBytes), entriesLeft_(limits.listEntries) {}

    /// Adds the results of one machine. Of several results of a machine the one that ended last counts.
    /// Fails when they do not say which machine they are of.
    base::Check add(const results::Run& run);

    /// In the order in which they were first added.
    const std::vector<Machine>& machines() const { return machines_; }
    /// Printable, and cut when they are long.
    const TextPool& texts() const { return texts_; }

  private:
    void fill(Machine& machine, const results::Run& run);
    bool takeEntry();

    TextPool texts_;
    std::size_t entriesLeft_;
    std::vector<Machine> machines_;
    std::unordered_map<std::string, std::size_t> places_;  ///< by host
};

}  // namespace zelor::authoring

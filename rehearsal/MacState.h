#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "rehearsal/Outcome.h"

/// What the rehearsal Mac is and has, as state.json keeps it. Plain values; decisions about them are
/// functions.
namespace zelor::rehearsal {

struct Update {
    std::string label;
    std::string title;
    std::string version;
    std::uint64_t sizeK = 0;
    bool recommended = true;
    bool restart = false;
    bool osUpdate = false;  ///< its install ends with "Done." alone
    Outcome outcome = Outcome::ok;
    std::string payload;  ///< a file below the root that installing it writes; "" for none
};

struct Mount {
    int disk = 0;
    std::string image;
    std::string volume;
    std::string mountPoint;
    bool mounted = true;  ///< false after an unmount whose eject failed
};

/// What a fault is tied to.
enum class FaultScope { tool, package, image };

struct Fault {
    FaultScope scope = FaultScope::tool;
    std::string name;
    Outcome outcome = Outcome::fail;
};

struct Receipt {
    std::string id;
    std::string version;
    std::string location;
};

struct MacState {
    std::string productName;
    std::string productVersion;
    std::string buildVersion;
    std::string root;
    std::vector<Update> updates;
    std::vector<Update> installedUpdates;
    std::vector<Mount> mounts;
    std::vector<Fault> faults;
    std::vector<Receipt> receipts;
};

nlohmann::json toJson(const MacState& state);
/// Throws nlohmann::json::exception or std::invalid_argument for a text that is no state.
MacState stateFromJson(const nlohmann::json& json);

/// The outcome set for that tool, package or image, `ok` when there is none.
Outcome faultFor(const MacState& state, FaultScope scope, const std::string& name);
/// Sets a fault in place of an earlier one for the same thing; `ok` takes it away.
void setFault(MacState& state, const Fault& fault);
/// Keeps one receipt for each package identifier, the latest.
void recordReceipt(MacState& state, const Receipt& receipt);
bool hasReceipt(const MacState& state, const std::string& id);

}  // namespace zelor::rehearsal

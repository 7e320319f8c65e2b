#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "rehearsal/Outcome.h"

/// The state of the rehearsal Mac, as state.json keeps it: plain values, and functions that decide about
/// them.
namespace zelor::rehearsal {

/// An update that the Mac is offered or has installed. `sizeK`: its size in kilobytes, as listed.
struct Update {
    std::string label;
    std::string title;
    std::string version;
    std::uint64_t sizeK = 0;
    bool recommended = true;
    bool restart = false;
    bool osUpdate = false;  ///< its install prints only "Done."
    Outcome outcome = Outcome::ok;
    std::string payload;  ///< a file below the root that installing it writes; "" for none
};

/// An attached disk image.
struct Mount {
    int disk = 0;
    std::string image;
    std::string volume;
    std::string mountPoint;
    bool mounted = true;  ///< false after an unmount whose eject failed
};

/// What a fault applies to.
enum class FaultScope { tool, package, image };

/// What a tool does instead of its work, always or for one package or image.
struct Fault {
    FaultScope scope = FaultScope::tool;
    std::string name;
    Outcome outcome = Outcome::fail;
};

/// A package that was installed.
struct Receipt {
    std::string id;
    std::string version;
    std::string location;
    std::int64_t installed = 0;  ///< seconds since 1970
};

/// A preference of a domain: "boolean" with "1" or "0", "integer" or "string".
struct Preference {
    std::string type;
    std::string text;
};

/// A service of launchd.
struct Service {
    bool loaded = false;
    bool overridden = false;  ///< `enable` or `disable` named it
    bool disabled = false;
};

/// The proxies of the network settings.
struct NetworkProxies {
    std::string host;  ///< for http and https; "" for none
    int port = 0;
    std::vector<std::string> exceptions;  ///< hosts asked directly, as people write them
    std::string script;                   ///< address of a script that chooses the proxy; "" for none
};

/// The whole state.
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
    std::map<std::string, std::map<std::string, Preference>> preferences;  ///< by domain and key
    std::map<std::string, Service> services;                               ///< by label
    std::string accountPolicies;                                           ///< a property list, "" for none
    NetworkProxies proxies;
};

/// The state as state.json holds it.
nlohmann::json toJson(const MacState& state);
/// The reverse. Throws nlohmann::json::exception or std::invalid_argument when `json` is not a state.
MacState stateFromJson(const nlohmann::json& json);

/// The outcome set for that tool, package or image, `ok` when none is.
Outcome faultFor(const MacState& state, FaultScope scope, const std::string& name);
/// Sets a fault, replacing an earlier one for the same thing; `ok` removes that.
void setFault(MacState& state, const Fault& fault);
/// Keeps one receipt for each package identifier, the latest.
void recordReceipt(MacState& state, const Receipt& receipt);
/// Whether the package with that identifier was installed.
bool hasReceipt(const MacState& state, const std::string& id);

}  // namespace zelor::rehearsal

#pragma once

#include <string>

#include "rehearsal/StateDirectory.h"

/// Making and changing a rehearsal Mac. Throws std::invalid_argument that names a bad value.
namespace zelor::rehearsal {

/// Which system a rehearsal Mac has, and where its disk is.
struct MacOptions {
    std::string root;  ///< the disk; "": "root" in the tools directory
    std::string version;
    std::string build;    ///< "": the one of the version
    std::string product;  ///< "": the one of the version
};

/// Makes the tools directory: the tools' names as links to `program`, the root and the first state.
void makeMac(const std::string& toolsDirectory, const std::string& program, const MacOptions& options);

/// Sets the system in the state; ignores the root in the options.
void setSystem(MacState& state, const MacOptions& options);

/// Detaches all images and forgets updates, faults, receipts, settings and the proxy.
void resetMac(const StateDirectory& directory);

/// Sets the title of an update without one to its label, and refuses one that no listing could show.
void requireUpdate(Update& update);

/// Sets the web proxy of the network settings, "host:port" or "" for none.
void setProxy(MacState& state, const std::string& address);

/// Sets the outcome of every offered update with that label, or of a tool by its name and the outcome's.
void setUpdateOutcome(MacState& state, const std::string& label, Outcome outcome);
void setToolFault(MacState& state, const std::string& tool, const std::string& outcome);

}  // namespace zelor::rehearsal

#pragma once

#include <string>

#include "rehearsal/StateDirectory.h"

/// Making and changing a rehearsal Mac. Bad values throw std::invalid_argument that names them.
namespace zelor::rehearsal {

struct MacOptions {
    std::string root;  ///< "" takes "root" in the tools directory
    std::string version;
    std::string build;    ///< "" takes the one that goes with the version
    std::string product;  ///< "" takes the one that goes with the version
};

/// Makes the tools directory: names that lead to `program`, the root and the first state.
void makeMac(const std::string& toolsDirectory, const std::string& program, const MacOptions& options);

/// Sets the system that the state describes; the root of the options is ignored.
void setSystem(MacState& state, const MacOptions& options);

/// Detaches all images and forgets updates, faults and receipts.
void resetMac(const StateDirectory& directory);

/// Fills what an update leaves open and refuses what no listing could show.
void requireUpdate(Update& update);

void setUpdateOutcome(MacState& state, const std::string& label, Outcome outcome);
void setToolFault(MacState& state, const std::string& tool, const std::string& outcome);

}  // namespace zelor::rehearsal

#pragma once

#include <string>

#include "rehearsal/StateFolder.h"

/// Making and changing a rehearsal Mac. Bad values throw std::invalid_argument that names them.
namespace zelor::rehearsal {

struct MacOrder {
    std::string root;  ///< "" takes "root" in the tools folder
    std::string version;
    std::string build;    ///< "" takes the one that goes with the version
    std::string product;  ///< "" takes the one that goes with the version
};

/// Makes the tools folder: names that lead to `program`, the root and the first state.
void makeMac(const std::string& toolsFolder, const std::string& program, const MacOrder& order);

/// Sets the system that the state tells of; the order's root does not count.
void setSystem(MacState& state, const MacOrder& order);

/// Detaches all images and forgets updates, faults and receipts.
void resetMac(const StateFolder& folder);

/// Fills what an update leaves open and refuses what no listing could show.
void requireUpdate(Update& update);

void setUpdateOutcome(MacState& state, const std::string& label, Outcome outcome);
void setToolFault(MacState& state, const std::string& tool, const std::string& outcome);

}  // namespace zelor::rehearsal

#pragma once

#include <string>
#include <vector>

#include "rehearsal/MacState.h"
#include "rehearsal/OsVersion.h"

/// What softwareupdate prints: texts from values, nothing here touches a file.
namespace zelor::rehearsal {

/// What a tool prints on either stream, and its exit status.
struct ToolText {
    std::string out;
    std::string err;
    int status = 0;
};

/// The output of `softwareupdate -l` on that system.
ToolText listing(const std::vector<Update>& updates, const OsVersion& version);

/// Which updates a command asks for.
struct UpdateChoice {
    bool all = false;
    bool recommended = false;
    std::vector<std::string> labels;
};

/// What a command's choice selects, and labels that match no listed update.
struct ChosenUpdates {
    std::vector<Update> updates;
    std::vector<std::string> unknownLabels;
};

/// The listed updates that the choice selects; a label that is listed twice selects both.
ChosenUpdates chooseUpdates(const std::vector<Update>& updates, const UpdateChoice& choice);

/// The output of `softwareupdate -i` for the chosen updates on that system.
ToolText installTranscript(const ChosenUpdates& chosen, const OsVersion& version);

/// Whether an update with that outcome gets installed.
bool installs(Outcome outcome);

}  // namespace zelor::rehearsal

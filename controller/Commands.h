#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "controller/Setup.h"

/// The commands of zelor-remediate. Each returns the exit status and throws CommandError.
namespace zelor::controller {

/// How a command talks.
struct TalkOptions {
    bool quiet = false;
    bool verbose = false;
};

struct RunOptions {
    std::string requests;
    PathOptions paths;
    TalkOptions talk;
    bool afterScan = false;
    int waitSeconds = 0;
    std::string json;
    std::string events;
    std::string report;
    /// How long the run may take, zero for any time; none: as the agent's settings say.
    std::optional<std::chrono::milliseconds> timeLimit;
};
int runCommand(const RunOptions& options);

/// How long a buffering job goes on with the patch in hand when a run waits.
inline constexpr std::chrono::seconds kGiveWayTime{60};

struct BufferOptions {
    std::string requests;
    PathOptions paths;
    TalkOptions talk;
    int waitSeconds = 0;
    std::string json;
    std::chrono::milliseconds giveWayTime = kGiveWayTime;
};
int bufferCommand(const BufferOptions& options);

struct StatusOptions {
    PathOptions paths;
    std::string json;  ///< "": text on standard output; else JSON there, "-" for standard output
};
int statusCommand(const StatusOptions& options);

struct PlanOptions {
    std::string requests;
    PathOptions paths;
    std::string json;  ///< as for `status`
    bool afterScan = false;
    bool verbose = false;
};
int planCommand(const PlanOptions& options);

}  // namespace zelor::controller

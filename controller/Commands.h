#pragma once

#include <string>

#include "controller/Setup.h"

/// The commands of zelor-remediate. Each returns the exit status and throws InputError.
namespace zelor::controller {

/// How a command talks.
struct TalkOptions {
    bool quiet = false;
    bool verbose = false;
};

struct RunOptions {
    std::string requests;
    PlaceOptions place;
    TalkOptions talk;
    bool afterScan = false;
    std::string json;
    std::string events;
    std::string report;
};
int runCommand(const RunOptions& options);

struct BufferOptions {
    std::string requests;
    PlaceOptions place;
    TalkOptions talk;
    std::string json;
};
int bufferCommand(const BufferOptions& options);

struct StatusOptions {
    PlaceOptions place;
    bool json = false;
};
int statusCommand(const StatusOptions& options);

struct PlanOptions {
    std::string requests;
    PlaceOptions place;
    bool json = false;
    bool afterScan = false;
    bool verbose = false;
};
int planCommand(const PlanOptions& options);

}  // namespace zelor::controller

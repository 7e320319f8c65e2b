#pragma once

#include <ostream>
#include <string>

#include "controller/run/ResultTable.h"

namespace zelor::controller {

/// What the run says beside the values.
struct RunFlags {
    bool rebootNeeded = false;
    bool scanNeeded = false;
    bool allFailed = false;
};

/// {"requests": {"<key>": {"identifier": ..., "value": 4, "state": "success"}}, "rebootNeeded": ...}, a
/// request to a line.
void writeResultJson(std::ostream& out, const ResultTable& table, const RunFlags& flags);

/// {"t": seconds since the start, "key": ..., "value": ..., "state": ...} without a line end.
std::string eventJson(double seconds, const std::string& key, ProgressValue value);

}  // namespace zelor::controller

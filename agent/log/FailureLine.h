#pragma once

#include <string>

#include "platform/Log.h"
#include "remediation/CallReport.h"

namespace zelor::agent {

/// Logs the error "[Tag] text", and reports the text as the reason why the current call fails.
inline void logFailure(const std::string& line) {
    log::error(line);
    CallReport::addReason(line.substr(line.find("] ") + 2));
}

}  // namespace zelor::agent

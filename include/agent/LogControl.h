#pragma once

#include <log4cpp/Priority.hh>
#include <log4cpp/TimeStamp.hh>
#include <string>

#include "base/Export.h"

namespace zelor::agent {

/// Also writes the agent's log to standard error, from `level` up ("debug", "info" or "error"; another word
/// counts as "debug"), whatever Log.Level is for the file. A later call can only lower the level. Call it
/// before other threads log.
ZELOR_API void logToStandardError(const std::string& level);

/// One line of the log: "2026-11-21T10:15:02.123Z DEBUG text" and a new line.
ZELOR_API std::string logLine(const log4cpp::TimeStamp& time, log4cpp::Priority::Value priority,
                              const std::string& text);

/// `text` with its control characters (C0, DEL, and C1 in UTF-8) written as \n, \t, \r or \xHH, so that a
/// hostile name can neither forge a line nor control a terminal.
ZELOR_API std::string escapeControls(const std::string& text);

}  // namespace zelor::agent

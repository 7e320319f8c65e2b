#pragma once

#include <string>

#include "base/Export.h"

/// Sets the directory below which every fixed path of the library ("/etc/zelor/...", "/var/log/zelor/...",
/// "/Applications/", "/var/zelor/mountpoint") and every path of the agent's ini file is taken; "" (the state
/// at load) takes them as they are. For rehearsals, images and tests: call it once, before the first manager
/// is built and before other threads run. No environment variable sets it.
ZELOR_API void setSystemRoot(const std::string& directory);

/// The current system root, without trailing separators; "" when none is set.
ZELOR_API std::string getSystemRoot();

/// `path` below the system root: "/etc/x" gives "/tmp/mac/etc/x" for the root "/tmp/mac".
ZELOR_API std::string underSystemRoot(const std::string& path);

#pragma once

#include <cstdint>
#include <string>

#include "base/Result.h"

namespace zelor::trust {

/// Seconds since the beginning of 1970, UTC.
using Time = std::int64_t;
constexpr Time kDay = 86'400;

/// The time that `text` names as YYYY-MM-DDTHH:MM:SSZ. Fails on any other form and on days that do not exist.
base::Result<Time> parseTime(const std::string& text);

/// `time`, in the years 0 to 9999, as YYYY-MM-DDTHH:MM:SSZ.
std::string timeText(Time time);

}  // namespace zelor::trust

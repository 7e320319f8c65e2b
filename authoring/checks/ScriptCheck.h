#pragma once

#include <string>

#include "authoring/Finding.h"

namespace zelor::authoring {

/// Whether /bin/bash can parse the script; nothing of it is run.
Findings scriptFindings(const std::string& place, const std::string& script);

}  // namespace zelor::authoring

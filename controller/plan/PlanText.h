#pragma once

#include <ostream>
#include <string>

#include "controller/plan/Plan.h"

namespace zelor::controller {

/// Printable lines, with escape sequences for colour when asked for.
void writePlanText(std::ostream& out, const Plan& plan, bool colour);
/// One JSON object, a request to a line.
void writePlanJson(std::ostream& out, const Plan& plan);

}  // namespace zelor::controller

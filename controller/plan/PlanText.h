#pragma once

#include <ostream>
#include <string>

#include "controller/plan/Plan.h"

namespace zelor::controller {

/// Writes the plan as printable lines, with escape sequences for colour if `colour`. Reasons, notes and
/// warnings are folded at `columns` (0: not at all); commands are not, so that they can be copied.
void writePlanText(std::ostream& out, const Plan& plan, bool colour, std::size_t columns = 0);
/// Writes the plan as one JSON object, one line for each request.
void writePlanJson(std::ostream& out, const Plan& plan);

}  // namespace zelor::controller

#pragma once

#include <ostream>
#include <string>

#include "controller/plan/Plan.h"

namespace zelor::controller {

/// Printable lines, with escape sequences for colour when asked for. Reasons, notes and warnings are folded
/// at `columns` (0: not at all); commands stay whole, so that they can be copied.
void writePlanText(std::ostream& out, const Plan& plan, bool colour, std::size_t columns = 0);
/// One JSON object, a request to a line.
void writePlanJson(std::ostream& out, const Plan& plan);

}  // namespace zelor::controller

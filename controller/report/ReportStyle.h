#pragma once

namespace zelor::controller {

/// The style sheet of a report: light and dark by the reader's preference, light on paper.
extern const char* const reportStyle;

}  // namespace zelor::controller

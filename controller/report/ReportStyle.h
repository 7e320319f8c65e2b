#pragma once

namespace zelor::controller {

/// The style sheet of a report: light and dark by the reader's preference, light on paper.
extern const char* const kReportStyle;

}  // namespace zelor::controller

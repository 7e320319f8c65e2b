#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "controller/report/RunTimeline.h"
#include "results/Page.h"

/// The pictures of a report, as inline SVG.
namespace zelor::controller {

/// One request in the timeline; the spans stay the caller's.
struct TimelineRow {
    std::string label;  ///< escaped
    std::string title;  ///< escaped
    const std::vector<StateSpan>* spans;
};

/// The start of a printable text that fits before a row in whatever font, "…" at its end when it was cut.
std::string timelineLabel(const std::string& printableText);

/// Writes a row for each request, from the start of the run to its end, with a time axis.
void writeTimeline(std::ostream& out, const std::vector<TimelineRow>& rows, double seconds);

/// Writes an area chart: how many requests wait, are worked on, succeeded and failed at each moment.
void writeStateAreas(std::ostream& out, const std::vector<std::vector<StateSpan>>& spans, double seconds);

/// Times for the marks of an axis: round steps, at most `most` of them.
std::vector<double> axisTimes(double seconds, std::size_t most);

/// "40 ms", else as `durationText`.
std::string shortDuration(double seconds);

/// The class that gives a state its colour.
using results::stateClass;

}  // namespace zelor::controller

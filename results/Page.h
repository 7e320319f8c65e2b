#pragma once

#include <chrono>
#include <ostream>
#include <string>

#include "results/States.h"

/// What the HTML pages about results share. A page is well-formed XML too, and has no scripts and no external
/// resources.
namespace zelor::results {

/// The style sheet: light and dark by the reader's preference, light on paper.
extern const char* const kPageStyle;

/// Writes a page up to the start of its body; `title` is any text.
void writePageHead(std::ostream& out, const std::string& title);

/// "2026-11-21 10:15:02 UTC"
std::string dateText(std::chrono::system_clock::time_point time);

/// The class that gives a state its colour.
std::string stateClass(ProgressValue value);

/// The mark of a state as a picture of twelve units: a dot for success, a square for what did not come to its
/// end, a cross for the others, so that not only colours distinguish them.
std::string markSvg(ProgressValue value);

}  // namespace zelor::results

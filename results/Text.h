#pragma once

#include <chrono>
#include <string>

#include "base/PrintableText.h"

/// Text for people. A "printable" text is one that `base::printable` made: safe on a terminal.
namespace zelor::results {

/// Columns that a printable text takes on a terminal.
std::size_t columnsOf(const std::string& printableText);

/// The start of a printable text in at most `columns` columns, with `ellipsis` at its end when something is
/// left out. Never cuts inside a character.
std::string cutToColumns(const std::string& printableText, std::size_t columns, const std::string& ellipsis);

/// "2026-11-21T10:15:02Z"
std::string utcText(std::chrono::system_clock::time_point time);

/// A printable text escaped for HTML and XML, also inside quotes.
std::string escapedMarkup(const std::string& printableText);
/// Any text escaped for HTML and XML: control characters and the like become "?", line ends stay.
std::string markupText(const std::string& text);

/// "1 request", "3 requests", "2 entries", "4 patches"
std::string countText(std::size_t count, const std::string& noun);

/// How a request is called in front of people, printable: its package name, else its last CPE, else its key.
std::string requestLabel(const std::string& key);

/// The package name that a request's key carries, trimmed; "" when there is none or it is an OVAL identifier.
std::string packageNameOf(const std::string& key);

}  // namespace zelor::results

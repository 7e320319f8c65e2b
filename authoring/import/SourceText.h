#pragma once

#include <string>
#include <vector>

#include "remediation/intake/RequestParsing.h"

namespace zelor::authoring {

/// Why text cannot be imported, such as "a control character in line 3": bytes that are no UTF-8, control
/// characters but tab and line end (carriage returns too: bash takes them for part of a word), marks that
/// show text in another order than it is run in. "" when there is nothing.
std::string whyUnfitText(const std::string& text);

/// `text` in one line with single blanks, safe to print, and of at most `limit` bytes.
std::string oneLine(const std::string& text, std::size_t limit = 300);

/// Whether the text is a CCE identifier.
using remediation::isCceIdentifier;

}  // namespace zelor::authoring

#pragma once

#include <string>
#include <vector>

#include "authoring/import/ImportedRule.h"
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

/// The most identifiers of one rule: each becomes an entry with a copy of the scripts.
constexpr std::size_t kIdentifiersLimit = 100;
constexpr const char* kTooManyIdentifiers = "it has more than 100 CCE identifiers";
constexpr const char* kTooLargeScripts = "the scripts of its rules have more than 512 MiB together";

/// Adds `text` if it is a CCE identifier and a new one. Keeps no more than one beyond the limit.
void addIdentifier(std::vector<std::string>& identifiers, const std::string& text);

/// The bytes of a rule's scripts, with a copy for each identifier.
std::size_t bytesOfScripts(const ImportedRule& rule);

}  // namespace zelor::authoring

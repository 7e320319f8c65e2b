#pragma once

#include <string>

#include "agent/xml/XmlText.h"
#include "authoring/import/ImportedRule.h"
#include "base/Result.h"

namespace zelor::authoring {

/// The most bytes of a data stream.
constexpr std::size_t kDataStreamBytesLimit = agent::kXmlBytesLimit;

/// Reads the rules of an XCCDF 1.2 benchmark, on its own or in a data stream of SCAP 1.2 or 1.3. `profile`
/// selects rules and values; with "" every rule is taken, with the default values. The text of a fix is what
/// the file says with its values in place, byte for byte. Refused: malformed XML, document types (and so
/// entities), other encodings than UTF-8, too many or too deep elements, no or several benchmarks, an unknown
/// profile.
base::Result<RuleSet> readXccdfRules(const std::string& xml, const std::string& profile);

}  // namespace zelor::authoring

#pragma once

#include <optional>
#include <string>

namespace zelor::controller {

/// True for a name in the form of CPE 2.3, "cpe:2.3:a:example:editor:2.1:*:*:*:*:*:*:*".
bool isCpe23(const std::string& name);

/// The CPE 2.2 name of an operating system or application that corresponds to a CPE 2.3 name,
/// "cpe:/a:example:editor:2.1"; fields that are left out at its end count as "*". None when it is not well
/// formed.
std::optional<std::string> cpe22Name(const std::string& name23);

}  // namespace zelor::controller

#pragma once

#include <map>
#include <string>

namespace zelor::controller {

/// Request key (CPE text) to CVE or CCE identifier.
using RequestMap = std::map<std::string, std::string>;

/// The requests in `text`, a JSON object of strings. `name` stands for the text in messages. Throws
/// InputError that names the line, the key and the remedy.
RequestMap parseRequests(const std::string& text, const std::string& name);

/// The requests in a file of at most 1 GiB, "-" for standard input. Throws InputError.
RequestMap loadRequests(const std::string& path);

}  // namespace zelor::controller

#pragma once

#include <string>

namespace zelor::controller {

/// How a request is called in front of people, printable: its package name, else its last CPE, else its key.
std::string requestLabel(const std::string& key);

/// The package name that a request's key carries, trimmed; "" when there is none or it is an OVAL identifier.
std::string packageNameOf(const std::string& key);

}  // namespace zelor::controller

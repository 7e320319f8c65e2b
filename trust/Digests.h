#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace zelor::trust {

/// Digests by algorithm, in lower-case hexadecimal digits.
using Digests = std::map<std::string, std::string>;

/// The digest of `bytes` in lower-case hexadecimal digits; nothing for an algorithm other than sha224,
/// sha256, sha384 and sha512.
std::optional<std::string> digestOf(const std::string& algorithm, std::string_view bytes);

/// True when `digits` are an even number, at least two, of hexadecimal digits.
bool isHex(const std::string& digits);
/// The bytes that hexadecimal digits encode; nothing when `digits` are something else.
std::optional<std::string> bytesOfHex(const std::string& digits);

/// Whether `bytes` have that length, if there is one, and every one of those digests. One of an algorithm
/// that is not known cannot be checked, and fails.
base::Check checkBytes(std::string_view bytes, const std::optional<std::uint64_t>& length,
                       const Digests& digests);

}  // namespace zelor::trust

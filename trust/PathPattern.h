#pragma once

#include <string>
#include <string_view>

namespace zelor::trust {

/// Whether `path` matches `pattern`, in which `*` means any characters but '/', and `?` any one. Takes time
/// in proportion to the product of the lengths at most.
bool pathMatches(std::string_view pattern, std::string_view path);

/// `text` as a part of a URL or a file name: everything but letters, digits and -._~ percent-encoded. The
/// names "." and ".." stay as they are: append an ending.
std::string percentEncoded(const std::string& text);

/// The same for each part of a path with slashes.
std::string percentEncodedPath(const std::string& path);

/// Whether a target may have that name: a relative path without empty, "." and ".." parts and without control
/// characters.
bool isTargetPath(const std::string& path);

}  // namespace zelor::trust

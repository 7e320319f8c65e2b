#pragma once

#include <string>

namespace zelor::base {

/// Copies everything inside the folder `source` into the existing folder `destination`: modes (without set-id
/// bits, since the owner changes), modification times and symbolic links are kept, files that exist are
/// replaced, all else in `destination` stays; its own mode and time become those of `source` only with
/// `keepOwnAttributes`. A file appears under its name only when it is complete; a symbolic link in the place
/// of a copied folder is replaced, never followed. Returns what went wrong first, "" when all was copied.
std::string copyTree(const std::string& source, const std::string& destination, bool keepOwnAttributes);

}  // namespace zelor::base

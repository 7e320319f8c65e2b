#pragma once

#include <string>

namespace zelor::base {

/// Copies everything inside the directory `source` into the existing directory `destination`: modes (without
/// set-id bits, since the owner changes), modification times and symbolic links are kept, files that exist
/// are replaced, all else in `destination` stays; its own mode and time become those of `source` only with
/// `keepOwnAttributes`. A file appears under its name only when it is complete. A symbolic link in the place
/// of a copied directory is replaced, and a directory in the place of a copied link is removed with all it
/// holds, but not directly in a destination that is `shared` with others. No link below `destination`, or in
/// its own place, is followed; a name that ends with a separator would be. Returns what went wrong first,
/// with the place, "" when all was copied.
std::string copyTree(const std::string& source, const std::string& destination, bool keepOwnAttributes,
                     bool shared = false);

}  // namespace zelor::base

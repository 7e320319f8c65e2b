#pragma once

#include <string>

namespace zelor::base {

/// Copies everything inside the directory `source` into the existing directory `destination`. Modes (without
/// set-id bits, since the owner changes), modification times and symbolic links are kept; files that exist
/// are replaced, and everything else in `destination` stays. Only with `keepOwnAttributes` does `destination`
/// itself get the mode and time of `source`. A file appears under its name only when it is complete. A
/// symbolic link in the place of a copied directory is replaced, and a directory in the place of a copied
/// link is removed with its contents, but not directly in a destination that is `shared` with others. No link
/// is followed, neither below `destination` nor in its place (unless its name ends with a separator). Returns
/// the first error, with its path; "" when everything was copied.
std::string copyTree(const std::string& source, const std::string& destination, bool keepOwnAttributes,
                     bool shared = false);

}  // namespace zelor::base

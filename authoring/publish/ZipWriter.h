#pragma once

#include <string>

namespace zelor::authoring {

/// Writes the archive of a patch to the descriptor: the file or bundle folder at `source` under the name
/// `patchId`, in byte order of the paths, with the permission bits, modification times and symbolic links of
/// the source, then the signature under `signatureName`. The same input gives the same bytes. Streams. Throws
/// std::runtime_error.
void writePatchArchive(int descriptor, const std::string& source, const std::string& patchId,
                       const std::string& signatureName, const std::string& signature);

}  // namespace zelor::authoring

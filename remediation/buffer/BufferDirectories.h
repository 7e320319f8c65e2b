#pragma once

namespace zelor::remediation {

/// True when other users can modify neither the directory of the buffered-patches list nor the buffer
/// directory; otherwise an error line says why neither is used.
bool bufferDirectoriesAreOurs();

}  // namespace zelor::remediation

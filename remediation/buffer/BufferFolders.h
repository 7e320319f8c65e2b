#pragma once

namespace zelor::remediation {

/// True when the folder of the buffered-patches list and the buffer directory are in nobody else's hands;
/// otherwise an error line says why neither is used.
bool bufferFoldersAreOurs();

}  // namespace zelor::remediation

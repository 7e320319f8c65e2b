#pragma once

namespace zelor::remediation {

/// True when the directory of the buffered-patches list and the buffer directory are writable only by us;
/// otherwise an error line says why neither is used.
bool bufferDirectoriesAreOurs();

}  // namespace zelor::remediation

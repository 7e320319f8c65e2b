#include "remediation/buffer/BufferDirectories.h"

#include "base/TrustedDirectory.h"
#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"

namespace zelor::remediation {

bool bufferDirectoriesAreOurs() {
    ConfigurationManager* configuration = ConfigurationManager::GetInstance("");
    for (const std::string& directory :
         {configuration->getUnzipFileFolder(), configuration->getBufferPatchesDir()}) {
        if (directory.empty()) continue;
        const base::Check own = base::checkDirectory(directory);
        if (own) continue;
        log::error("[Remediation Manager] Buffered patches are not used. The directory '", directory,
                   "' is refused: ", own.error().text);
        return false;
    }
    return true;
}

}  // namespace zelor::remediation

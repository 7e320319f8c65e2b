#include "remediation/buffer/BufferDirectories.h"

#include "base/TrustedDirectory.h"
#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"

namespace zelor::remediation {

bool bufferDirectoriesAreOurs() {
    ConfigurationManager* configuration = ConfigurationManager::GetInstance("");
    for (const std::string& directory :
         {configuration->getUnzipFileFolder(), configuration->getBufferPatchesDir()}) {
        const std::string problem = directory.empty() ? "" : base::directoryProblem(directory);
        if (problem.empty()) continue;
        log::error("[Remediation Manager] Buffered patches are not used. The directory '", directory,
                   "' is refused: ", problem);
        return false;
    }
    return true;
}

}  // namespace zelor::remediation

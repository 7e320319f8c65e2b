#include "remediation/buffer/BufferFolders.h"

#include "base/TrustedFolder.h"
#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"

namespace zelor::remediation {

bool bufferFoldersAreOurs() {
    ConfigurationManager* configuration = ConfigurationManager::GetInstance("");
    for (const std::string& folder :
         {configuration->getUnzipFileFolder(), configuration->getBufferPatchesDir()}) {
        const std::string problem = folder.empty() ? "" : base::folderProblem(folder);
        if (problem.empty()) continue;
        log::error("[Remediation Manager] Buffered patches are not used. The folder '", folder,
                   "' is refused: ", problem);
        return false;
    }
    return true;
}

}  // namespace zelor::remediation

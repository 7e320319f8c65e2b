#include "authoring/checks/BundleChecks.h"

#include <boost/filesystem/operations.hpp>

#include "remediation/fetch/PatchName.h"

namespace zelor {

Findings kindFindings(const std::string& place, const std::string& patchId, bool script,
                      const std::string& path) {
    boost::system::error_code ignored;
    const bool folder = boost::filesystem::is_directory(path, ignored);
    const std::string kind = script ? "script" : installerKind(patchId);
    if (folder && (kind == "script" || kind == "dmg")) {
        return {{Severity::error, place, "\"" + patchId + "\" is a folder, but must be a file",
                 script ? "publish the script itself" : "publish the disk image itself"}};
    }
    if (!folder && kind == "app") {
        return {{Severity::error, place, "\"" + patchId + "\" is installed as a bundle, but is a file",
                 "publish the bundle as a folder, or a .pkg or .dmg that holds it"}};
    }
    if (kind == "app" && boost::filesystem::is_directory(path + "/Contents", ignored)) {
        return {{Severity::warning, place,
                 "what \"" + patchId +
                     "\" holds is copied straight into /Applications/, so its Contents would land there "
                     "without a "
                     "bundle around them",
                 "publish a folder " + patchId + " that holds the bundle " + patchId}};
    }
    return {};
}

}  // namespace zelor

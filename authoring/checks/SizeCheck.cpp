#include "authoring/checks/SizeCheck.h"

#include <algorithm>

#include "authoring/manifest/SizeText.h"
#include "remediation/buffer/PatchSize.h"

namespace zelor::authoring {

namespace {

/// Rounding of the text, and the archive's own bytes around the patch.
constexpr std::uint64_t slack = 128U << 10U;
constexpr std::uint64_t toleranceShare = 20;  // a twentieth

}  // namespace

Findings sizeFindings(const std::string& place, const std::string& size, std::uint64_t archiveBytes,
                      std::uint64_t patchBytes) {
    const std::string remedy = "write \"" + sizeText(archiveBytes) + "\", or let publish compute it";
    if (size.empty()) {
        return {
            {Severity::warning, place, "it has no size, so buffering takes the patch for 0 bytes", remedy}};
    }
    // How a text misleads is reported with the content itself.
    if (!whySizeMisleads(size).empty()) return {};
    const std::uint64_t least = std::min(archiveBytes, patchBytes), most = std::max(archiveBytes, patchBytes);
    const auto announced = static_cast<std::uint64_t>(std::max(0L, remediation::parsePatchSize(size).bytes));
    const bool tooSmall = announced + announced / toleranceShare < least;
    if (!tooSmall && announced <= most + most / toleranceShare + slack) return {};
    return {{Severity::warning, place,
             "size \"" + size + "\" is too " + (tooSmall ? "small" : "large") + ": the archive has " +
                 std::to_string(archiveBytes) + " bytes",
             remedy}};
}

}  // namespace zelor::authoring

#pragma once

#include <string>
#include <vector>

#include "agent/content/ContentCheck.h"
#include "base/CommandRunner.h"
#include "remediation/creEriParsedData.h"

/// What the outcome of a check proves: only decisions, on what tools and files said.
namespace zelor::controller {

/// Whether a remediation has taken effect; `unknown` when that is proven neither way.
enum class Truth { holds, fails, unknown };

/// A truth and why it is believed, printable; of what was looked at, never "".
struct Proof {
    Truth truth = Truth::unknown;
    std::string reason;
};

/// What a request comes to, by its proof and the installed-patches record.
enum class Compliance {
    compliant,     ///< recorded, and holds
    drifted,       ///< recorded, and does not hold
    notRecorded,   ///< not recorded, and holds
    notCompliant,  ///< not recorded, and does not hold
    unknown
};
Compliance complianceOf(Truth truth, bool recorded);
/// "compliant", "drifted", "not-recorded", "not-compliant", "unknown".
std::string complianceName(Compliance compliance);

/// By the exit status of a check script: 0 holds, 1 does not; anything else is the script's own failure.
Proof proofOfScript(const std::string& script, const base::CommandResult& result);
/// By what `pkgutil --pkg-info` said of the check's package.
Proof proofOfReceipt(const agent::ContentCheck& check, const base::CommandResult& result);
/// By the text of a bundle's property list in XML.
Proof proofOfBundle(const agent::ContentCheck& check, const std::string& propertyList);
/// By what `softwareupdate -l` said: no update that belongs to the package name is offered.
Proof proofOfListing(const std::string& packageName, const std::string& productVersion,
                     const base::CommandResult& result);
/// Whether version `found` is `least` or a later one; "" as `least` accepts any.
Proof proofOfVersion(const std::string& what, const std::string& found, const std::string& least);

/// One block of a content and what its check proves.
struct BlockProof {
    std::string eriId;
    Proof proof;
};
/// The blocks must all hold; one that fails decides.
Proof proofOfAll(const std::vector<BlockProof>& blocks);

}  // namespace zelor::controller

#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "controller/status/Status.h"
#include "controller/verify/Verifier.h"

namespace zelor::controller {

/// The outcome of `verify`.
struct VerifyReport {
    std::vector<VerifiedRequest> requests;  ///< in the order of their keys
    std::set<std::string> forgotten;        ///< ERI ids that were dropped from the record
    std::string host;
    SystemIdentity system;
    std::string started;  ///< as `utcText` gives it
    double seconds = 0;

    /// How many requests are so.
    std::size_t count(Compliance compliance) const;
};

/// The ERI ids to drop from the record so that the next run applies what has drifted: of each such request
/// all that are recorded, since one of them makes the whole content count as applied.
std::set<std::string> driftedIds(const std::vector<VerifiedRequest>& requests);

/// 0 when every request holds, 1 some, 3 none.
int verifyExitStatus(const VerifyReport& report);

/// Writes a table, folded at `columns` (0: not at all), and one JSON object, a line for each request.
void writeVerifyText(std::ostream& out, const VerifyReport& report, std::size_t columns);
void writeVerifyJson(std::ostream& out, const VerifyReport& report);

/// What is proven of a request: its state, `verified`, the reason and, by ERI, the same.
nlohmann::ordered_json verifiedJson(const VerifiedRequest& request);

/// Removes lines from the installed-patches record at `path`, all or none of them, in one step that survives
/// a power loss. Other lines stay as they are. Throws std::runtime_error that names the file and the remedy.
void dropFromRecord(const std::string& path, const std::set<std::string>& lines);

}  // namespace zelor::controller

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "controller/States.h"
#include "controller/run/Requests.h"
#include "controller/verify/VerifiedRequest.h"
#include "remediation/parseOnlyMetadata.h"

/// What a run would do: a forecast by the run's own rules from what is there now.
namespace zelor::controller {

/// What a request asks for, and what a run would do with it or with one of its ERIs.
enum class PlanKind { unknown, configuration, osUpdate, patch };
enum class PlanAction { apply, applied, fail, nothing };

/// Names for output: "configuration", "os-update", ...; "apply", "already-applied", ...
std::string planKindName(PlanKind kind);
std::string planActionName(PlanAction action);

/// A file that a run would use.
struct PlannedFile {
    std::string name;
    std::string sizeText;            ///< from the content
    bool buffered = false;           ///< it would be taken from the buffer, else downloaded
    std::uint64_t bytes = 0;         ///< of the buffered archive
    std::uint64_t partialBytes = 0;  ///< of an unfinished download that would be resumed
    bool checked = false;            ///< it exists already, and its signature was checked
    std::string problem;             ///< why it would not be used; "" when nothing prevents that
};

/// What a run would do for one ERI.
struct PlannedStep {
    std::string eri;
    PlanAction action = PlanAction::nothing;
    std::string reason;
    std::optional<PlannedFile> file;
    std::vector<std::string> commands;
    std::string note;  ///< what happens besides the commands
};

/// What a run would do for one request.
struct PlannedRequest {
    std::string key;
    std::string identifier;
    PlanKind kind = PlanKind::unknown;
    PlanAction action = PlanAction::nothing;
    ProgressValue expected = 0;  ///< at the end of the run, when downloads and installers succeed
    std::string reason;
    std::string cre;
    bool reboot = false;  ///< its content asks for a restart
    std::vector<PlannedStep> steps;
    std::vector<std::string> labels;  ///< of the OS updates that it installs, in order
    std::vector<std::string> commands;
    std::vector<std::string> warnings;
    std::optional<VerifiedRequest> verified{};  ///< what is proven of it now, when that was asked
};

/// What a run would do for all requests.
struct Plan {
    std::vector<PlannedRequest> requests;  ///< invalid ones first, the others in the order of a run
    bool rebootNeeded = false;             ///< as the run would report it
    std::vector<std::string> warnings;     ///< not about a single request
    std::string productName;
    std::string productVersion;
    std::string platformCpe;
    std::string repository{};  ///< its addresses, without credentials; "" when there is none

    /// How many requests have that action.
    std::size_t count(PlanAction action) const;
};

/// What the forecast is based on. The functions may block; they are called only for what matters.
struct PlanFacts {
    std::string platformCpe;
    std::set<std::string> specialCases;  ///< CPEs of the system that count as products
    std::string vendorInstallation;      ///< the agent's setting
    std::string contentDir;
    std::string applications;
    std::string mountPoint;
    bool mountPointInUse = false;  ///< it is not empty
    InvalidRequests invalid;       ///< rows of the requests file that a run rejects
    std::string bufferedList;      ///< its text
    std::map<std::string, std::uint64_t> bufferFiles;
    std::map<std::string, std::uint64_t> partialFiles;

    /// Whether the installed-patches record has the ERI.
    std::function<bool(const std::string& eri)> isRecorded;
    std::function<parseOnlyMetadata(const std::string& platform, const std::string& product,
                                    const std::string& identifier)>
        content;
    /// Why there is no content for a request.
    std::function<std::string(const std::string& key, const std::string& identifier)> contentProblem;
    std::function<std::vector<std::string>()> updateListing;  ///< the starred lines
    std::function<std::string()> productVersion;
    /// Why the file in that archive of the buffer would be refused; "" when its signature is good.
    std::function<std::string(const std::string& archive, const std::string& fileName)> signatureProblem;
    /// Why the digests of content let nothing be downloaded for the two; "" when they do.
    std::function<std::string(const std::string& archive, const std::string& fileName)> digestProblem =
        [](const std::string& /*archive*/, const std::string& /*fileName*/) { return std::string(); };
};

/// The forecast for the requests. Reads and changes nothing but through `facts`, whose functions may throw.
Plan makePlan(const RequestMap& requests, const PlanFacts& facts);

/// 0: every request can succeed; 1: some can; 3: none can.
int planExitStatus(const Plan& plan);

}  // namespace zelor::controller

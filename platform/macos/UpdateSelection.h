#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Which listed OS updates belong to a request: only decisions on text.
namespace zelor::platform {

/// The most labels that one OS-wide request installs.
inline constexpr std::size_t kMostLabels = 100;

/// Which updates of a listing a request installs.
struct UpdateSelection {
    bool named = false;                   ///< a named product matched: `label` is installed
    std::string label;                    ///< from the match to the end of the line, as listed
    std::vector<std::string> candidates;  ///< an OS-wide request's lines as listed, once per matching keyword
    bool cut = false;                     ///< there were more than `kMostLabels`
};

/// Selects from the starred lines of a listing. `packageName` "apple mac os x" (any case) selects lines by
/// keywords of the product version; any other name, without a leading word "apple", selects the first line
/// that contains it in any case. `productVersion` is called for each line of an OS-wide request.
UpdateSelection selectUpdates(const std::vector<std::string>& listing, std::string packageName,
                              const std::function<std::string()>& productVersion);

/// How many times a line (in lower case) becomes a candidate of an OS-wide request on that product version.
int osWideMatches(const std::string& lowerCasedLine, const std::string& productVersion);

/// The label in a candidate line: what follows the star and the first blank after it.
std::string candidateLabel(const std::string& line);

/// The labels to install, in order; a duplicated one is tried twice.
std::vector<std::string> labelsToInstall(const UpdateSelection& selection);

/// How an attempt to install one label ended.
enum class UpdateOutcome { installed, nothingToDo, failed };

/// One installation attempt of a request. All are made, in order, and the last one decides the request's
/// result.
struct UpdateStep {
    std::string label;
    std::string command;  ///< "": not run, since softwareupdate would take the label for an option
    bool nothingToDoIsEnough = false;  ///< it succeeds when there is nothing to install
    /// Whether an attempt with this outcome makes the request succeed.
    bool succeeds(UpdateOutcome outcome) const {
        return outcome == UpdateOutcome::installed ||
               (outcome == UpdateOutcome::nothingToDo && nothingToDoIsEnough);
    }
};

/// The steps for the selection: a run makes them, a plan shows them.
std::vector<UpdateStep> updateSteps(const UpdateSelection& selection);

/// Makes every attempt in its order by `attempt`, which gives its outcome: `failed` for a refused label, none
/// to end them. True when the last one makes the request succeed.
bool attemptUpdates(const std::vector<UpdateStep>& steps,
                    const std::function<std::optional<UpdateOutcome>(const UpdateStep&)>& attempt);

/// What softwareupdate did, by its output.
UpdateOutcome updateOutcome(const std::string& output);

/// The most bytes of a listing line that are matched at once: what a line buffer of 2,000 bytes holds.
inline constexpr std::size_t kListingPiece = 1999;

/// The lines of `output` that contain "*", line ends included, a line in pieces of at most `pieceSize` bytes.
std::vector<std::string> starredLines(const std::string& output, std::size_t pieceSize);

}  // namespace zelor::platform

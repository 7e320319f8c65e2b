#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Which listed OS updates belong to a request: decisions on text alone.
namespace zelor::platform {

/// The most labels that one OS-wide request installs.
inline constexpr std::size_t kMostLabels = 100;

struct UpdateSelection {
    bool named = false;                   ///< a named product matched: `label` is to be installed
    std::string label;                    ///< from the match to the end of the line, as listed
    std::vector<std::string> candidates;  ///< an OS-wide request's lines as listed, once per matching keyword
    bool cut = false;                     ///< there were more than `kMostLabels`
};

/// Walks the starred listing lines. `packageName` "apple mac os x" (any case) takes lines by keywords of the
/// product version; any other name, without a leading "apple" word, takes the first line that contains it in
/// any case. `productVersion` is asked at the first line of an OS-wide request.
UpdateSelection selectUpdates(const std::vector<std::string>& listing, std::string packageName,
                              const std::function<std::string()>& productVersion);

/// How often a line (lower-cased) is a candidate of an OS-wide request on that product version.
int osWideMatches(const std::string& lowerCasedLine, const std::string& productVersion);

/// The label in a candidate line: what follows the star and the first blank after it.
std::string candidateLabel(const std::string& line);

/// The labels that are installed, in their order; a duplicated one is tried twice.
std::vector<std::string> labelsToInstall(const UpdateSelection& selection);

/// How an attempt to install one label ended.
enum class UpdateOutcome { installed, nothingToDo, failed };

/// One attempt of a request. All are made, in their order, and the last one decides on the request.
struct UpdateStep {
    std::string label;
    std::string command;  ///< "": refused, since softwareupdate would take the label for an option
    bool nothingToDoIsEnough = false;  ///< there being nothing to install is a success
    /// True when an attempt that ended so makes the request succeed.
    bool succeeds(UpdateOutcome outcome) const {
        return outcome == UpdateOutcome::installed ||
               (outcome == UpdateOutcome::nothingToDo && nothingToDoIsEnough);
    }
};

/// A run's steps for the selection, and those that a plan shows.
std::vector<UpdateStep> updateSteps(const UpdateSelection& selection);

/// Makes every attempt in its order by `attempt`, which gives its outcome: `failed` for a refused label, none
/// to end them. True when the last one makes the request succeed.
bool attemptUpdates(const std::vector<UpdateStep>& steps,
                    const std::function<std::optional<UpdateOutcome>(const UpdateStep&)>& attempt);

/// What softwareupdate did, by its output.
UpdateOutcome updateOutcome(const std::string& output);

/// The listing is judged in the pieces that a line buffer of 2,000 bytes with its terminator holds.
inline constexpr std::size_t kListingPiece = 1999;

/// The lines of `output` that contain "*", line ends included, a line in pieces of at most `pieceSize` bytes.
std::vector<std::string> starredLines(const std::string& output, std::size_t pieceSize);

}  // namespace zelor::platform

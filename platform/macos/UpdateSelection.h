#pragma once

#include <functional>
#include <string>
#include <vector>

/// Which listed OS updates belong to a request: decisions on text alone.
namespace zelor::platform {

struct UpdateSelection {
    bool named = false;                   ///< a named product matched: `label` is to be installed
    std::string label;                    ///< from the match to the end of the line, as listed
    std::vector<std::string> candidates;  ///< an OS-wide request's lines as listed, once per matching keyword
};

/// Walks the starred listing lines. `packageName` "apple mac os x" (any case) takes lines by keywords of the
/// product version; any other name, without a leading "apple" word, takes the first line that contains it in
/// any case. `productVersion` is asked for each line of an OS-wide request.
UpdateSelection selectUpdates(const std::vector<std::string>& listing, std::string packageName,
                              const std::function<std::string()>& productVersion);

/// How often a line (lower-cased) is a candidate of an OS-wide request on that product version.
int osWideMatches(const std::string& lowerCasedLine, const std::string& productVersion);

/// The label in a candidate line: what follows the star and the first blank after it.
std::string candidateLabel(const std::string& line);

/// The labels that are installed, in their order; one that stands there twice is tried twice.
std::vector<std::string> labelsToInstall(const UpdateSelection& selection);

/// True for a label that softwareupdate would take for an option; it is never installed.
bool looksLikeAnOption(const std::string& label);

/// The lines of `output` that contain "*", line ends included, a line in pieces of at most `pieceSize` bytes.
std::vector<std::string> starredLines(const std::string& output, std::size_t pieceSize);

}  // namespace zelor::platform

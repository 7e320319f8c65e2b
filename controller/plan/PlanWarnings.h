#pragma once

#include <optional>
#include <string>
#include <vector>

#include "controller/plan/Plan.h"
#include "platform/macos/UpdateSelection.h"
#include "remediation/intake/RequestParsing.h"

/// Warnings about a plan: what may surprise the author of the requests or of the content.
namespace zelor::controller {

/// Adds the warnings that the request does not have yet.
void addWarnings(PlannedRequest& request, std::vector<std::string> warnings);

/// On a patch's name and the text of its size. `path` is where the file will be.
std::vector<std::string> patchWarnings(const std::string& name, const std::string& sizeText,
                                       const std::string& path, bool script);

/// On the disk image `name`. `runsNothing`: a bundle on it would be installed by its own installer, and the
/// content names none. `occupied`: the mount point when it is not empty, else "".
std::vector<std::string> imageWarnings(const std::string& name, bool runsNothing,
                                       const std::string& occupied);

/// The label as softwareupdate knows it, of a starred line in either of its forms: white space at its end is
/// part of it.
std::string listedLabel(const std::string& line);

/// Whether softwareupdate knows the label, according to that listing. A label in a line that was split into
/// pieces is not known.
bool isListed(const std::string& label, const std::vector<std::string>& listing);

/// Whether a label is listed with white space at its end: it is installed without that, and so not known.
bool isListedWithBlanks(const std::string& label, const std::vector<std::string>& listing);

/// On the choice of updates for a request.
std::vector<std::string> updateWarnings(const platform::UpdateSelection& selection,
                                        const std::vector<std::string>& listing);

/// On the names in a request's key, of which a run takes only those of CPE 2.2 for an operating system or an
/// application; without one, the platform is `platformCpe`.
std::vector<std::string> keyWarnings(const std::vector<std::string>& names, const std::string& platformCpe);

/// On restarts that no result reports.
std::vector<std::string> restartWarnings(const std::vector<PlannedRequest>& requests);

/// Adds warnings that concern several requests to each of them: patch names that contain one another or one
/// in the buffered-patches list, and results that are reported under the same key.
void addMutualWarnings(std::vector<PlannedRequest>& requests, const std::string& bufferedList);

/// True for a name in the form of CPE 2.3, "cpe:2.3:a:example:editor:2.1:*:*:*:*:*:*:*".
bool isCpe23(const std::string& name);

/// The CPE 2.2 name of an operating system or application that corresponds to a CPE 2.3 name,
/// "cpe:/a:example:editor:2.1"; fields that are left out at its end count as "*". None when it is not well
/// formed.
std::optional<std::string> cpe22Name(const std::string& name23);

}  // namespace zelor::controller

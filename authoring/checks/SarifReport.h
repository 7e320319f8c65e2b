#pragma once

#include <string>

#include "authoring/checks/RepositoryCheck.h"

namespace zelor::authoring {

/// The findings of a check as SARIF 2.1.0, with file names relative to the repository. Bytes that are not
/// UTF-8 are replaced.
std::string sarifReport(const CheckReport& report);

}  // namespace zelor::authoring

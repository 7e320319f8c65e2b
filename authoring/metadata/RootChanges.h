#pragma once

#include <string>

#include "trust/Json.h"

namespace zelor::authoring {

/// The file in which a change of the root waits for signatures.
std::string pendingRootFile(const std::string& repository);

/// What the content of one root changes in that of another: a line for each role, for who has to sign it.
std::string rootChanges(const trust::Json& before, const trust::Json& after);

}  // namespace zelor::authoring

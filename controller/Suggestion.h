#pragma once

#include <string>
#include <vector>

namespace zelor::controller {

/// The known word that `word` was probably meant to be: a longer one that it begins, else the one with the
/// fewest letters added, left out, replaced or swapped. "" when none is near.
std::string nearestWord(const std::string& word, const std::vector<std::string>& known);

}  // namespace zelor::controller

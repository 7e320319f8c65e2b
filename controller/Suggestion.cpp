#include "controller/Suggestion.h"

#include <algorithm>

#include "base/Strings.h"

namespace zelor::controller {

namespace {

constexpr std::size_t longestWord = 40;

/// How many letters must be added, left out, replaced or swapped with their neighbour to make one of the
/// other.
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::vector<std::size_t>> cost(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cost[i][j] = std::min({replaced, cost[i - 1][j] + 1, cost[i][j - 1] + 1});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    }
    return cost[a.size()][b.size()];
}

}  // namespace

std::string nearestWord(const std::string& word, const std::vector<std::string>& known) {
    constexpr std::size_t shortestBeginning = 2;
    if (word.empty() || word.size() > longestWord) return "";
    std::string best;
    std::size_t fewest = word.size() / 3 + 1;  // exclusive
    for (const std::string& one : known) {
        if (word.size() >= shortestBeginning && base::hasBeginning(one, word)) return one;
        const std::size_t distance = editDistance(word, one);
        if (distance >= fewest || distance >= one.size()) continue;
        fewest = distance;
        best = one;
    }
    return best;
}

}  // namespace zelor::controller

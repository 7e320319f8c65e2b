#include "trust/RootHistory.h"

#include <sstream>

namespace zelor::trust {

RootHistory::RootHistory(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (!line.empty()) digests_.insert(line);
}

std::string RootHistory::text() const {
    std::string lines;
    for (const std::string& digest : digests_)
        lines += digest + '\n';
    return lines;
}

std::string RootHistory::digest(std::string_view root) {
    const auto file = readSignedFile(root, root.size());
    return file ? digestOf("sha256", file->canonical).value_or("") : "";
}

RootRelation relationOf(const Root& configured, std::string_view configuredBytes, const Root& kept,
                        std::string_view keptBytes, const RootHistory& history, const Limits& limits) {
    if (history.has(configuredBytes)) return RootRelation::keptLeadsOn;
    if (kept.version > configured.version && isSignedByRoot(configured, keptBytes, limits))
        return RootRelation::keptLeadsOn;
    if (configured.version > kept.version && isSignedByRoot(kept, configuredBytes, limits))
        return RootRelation::configuredLeadsOn;
    return RootRelation::none;
}

}  // namespace zelor::trust

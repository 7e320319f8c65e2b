#include "platform/macos/UpdateSelection.h"

#include <algorithm>
#include <optional>

#include "base/Strings.h"
#include "platform/macos/InstallCommands.h"

namespace zelor::platform {

namespace {

constexpr char kOsWideName[] = "apple mac os x";

void cutAppleWord(std::string& name) {
    if (!base::hasBeginning(name, "apple")) return;
    const auto separator = name.find_first_of(" \t");
    if (separator != std::string::npos) name.erase(0, separator + 1);
}

}  // namespace

int osWideMatches(const std::string& lowerCasedLine, const std::string& productVersion) {
    int matches = 0;
    if (base::contains(productVersion, "10.9")) {
        for (const char* word : {"secupd", "os x"})
            matches += base::contains(lowerCasedLine, word) ? 1 : 0;
    }
    if (base::contains(productVersion, "10.10")) {
        for (const char* word : {"os x", "osx", "secupd"})
            matches += base::contains(lowerCasedLine, word) ? 1 : 0;
    }
    return matches;
}

UpdateSelection selectUpdates(const std::vector<std::string>& listing, std::string packageName,
                              const std::function<std::string()>& productVersion) {
    UpdateSelection selection;
    packageName = base::lowerCased(packageName);
    std::optional<std::string> version;
    for (const std::string& line : listing) {
        const std::string lowerLine = base::lowerCased(line);
        if (packageName == kOsWideName) {
            if (!version) version = productVersion();
            const auto matches = static_cast<std::size_t>(osWideMatches(lowerLine, *version));
            const std::size_t taken = std::min(matches, kMostLabels - selection.candidates.size());
            selection.candidates.insert(selection.candidates.end(), taken, line);
            selection.cut = taken < matches;
            if (selection.cut) return selection;
            continue;
        }
        cutAppleWord(packageName);  // once per line: "apple apple tv" is "tv" from the second line on
        const auto at = lowerLine.find(packageName);
        if (at == std::string::npos || at == line.size()) continue;
        selection.named = true;
        selection.label = line.substr(at);
        return selection;
    }
    return selection;
}

std::string candidateLabel(const std::string& line) {
    const auto star = line.find('*');
    std::string name = base::trimmed(star == std::string::npos ? line : line.substr(star));
    if (name.empty()) return name;
    name.erase(0, 1);
    const auto separator = name.find_first_of(" \t");
    if (separator != std::string::npos) name.erase(0, separator + 1);
    return name;
}

std::vector<std::string> labelsToInstall(const UpdateSelection& selection) {
    if (selection.named) return {base::trimmed(selection.label)};
    std::vector<std::string> labels(selection.candidates.size());
    std::transform(selection.candidates.begin(), selection.candidates.end(), labels.begin(), candidateLabel);
    return labels;
}

std::vector<UpdateStep> updateSteps(const UpdateSelection& selection) {
    std::vector<UpdateStep> steps;
    for (const std::string& label : labelsToInstall(selection)) {
        const bool refused = base::hasBeginning(label, "-");
        steps.push_back({label, refused ? "" : installUpdateCommand(label), selection.named});
    }
    return steps;
}

bool attemptUpdates(const std::vector<UpdateStep>& steps,
                    const std::function<std::optional<UpdateOutcome>(const UpdateStep&)>& attempt) {
    bool succeeded = false;
    for (const UpdateStep& step : steps) {
        const std::optional<UpdateOutcome> outcome = attempt(step);
        if (!outcome) return false;
        succeeded = step.succeeds(*outcome);
    }
    return succeeded;
}

UpdateOutcome updateOutcome(const std::string& output) {
    if (base::contains(output, "Done")) return UpdateOutcome::installed;
    return base::contains(output, "No updates are available") ? UpdateOutcome::nothingToDo
                                                              : UpdateOutcome::failed;
}

std::vector<std::string> starredLines(const std::string& output, std::size_t pieceSize) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < output.size();) {
        const auto newline = output.find('\n', start);
        const std::size_t end = newline == std::string::npos ? output.size() : newline + 1;
        const std::size_t size = std::min(end - start, pieceSize);
        std::string piece = output.substr(start, size);
        if (base::contains(piece, "*")) lines.push_back(std::move(piece));
        start += size;
    }
    return lines;
}

}  // namespace zelor::platform

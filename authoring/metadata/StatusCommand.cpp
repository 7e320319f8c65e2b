#include <algorithm>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <set>

#include "authoring/Commands.h"
#include "authoring/UsageError.h"
#include "authoring/metadata/MetadataKeys.h"
#include "authoring/metadata/MetadataStatus.h"

namespace zelor::authoring {

namespace {

constexpr trust::Time kDay = 86'400;

std::string signersText(const RoleReport& role, const std::set<std::string>& here) {
    std::string text = std::to_string(role.threshold) + " of";
    for (std::size_t i = 0; i < role.ids.size(); ++i)
        text += (i == 0 ? " " : ", ") + role.labels[i] + (here.count(role.ids[i]) != 0 ? " [here]" : "");
    return text;
}

}  // namespace

int runStatus(const StatusOptions& options) {
    const MetadataDirectory directory(options.repository);
    if (!directory.exists())
        throw UsageError(options.repository +
                         " has no metadata; zelor-content publish --metadata-keys writes it");
    std::set<std::string> here;
    if (!options.metadataKeys.empty()) {
        for (const MetadataKey& key : readMetadataKeys(options.metadataKeys))
            here.insert(key.key.id());
    }
    const trust::Time now = std::time(nullptr);
    bool good = true;
    std::string lines;
    std::cout << "role       version  expires               signed by\n";
    for (const RoleReport& role : metadataStatus(directory)) {
        std::cout << std::left << std::setw(11) << role.role << std::setw(9) << role.version << std::setw(22)
                  << trust::timeText(role.expires) << signersText(role, here) << '\n';
        const std::string problem = attention(role, now, options.within < 0 ? -1 : options.within * kDay);
        if (problem.empty()) continue;
        good = false;
        lines += problem + '\n';
    }
    std::cout << lines;
    if (!good) return exitStatus::kFailed;
    return exitStatus::kGood;
}

}  // namespace zelor::authoring

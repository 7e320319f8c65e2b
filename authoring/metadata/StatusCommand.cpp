#include <algorithm>
#include <boost/filesystem.hpp>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <set>

#include "authoring/Commands.h"
#include "authoring/UsageError.h"
#include "authoring/metadata/MetadataKeys.h"
#include "authoring/metadata/MetadataStatus.h"
#include "authoring/metadata/RootChanges.h"
#include "base/Files.h"

namespace zelor::authoring {

namespace {

std::string signersText(const RoleReport& role, const std::set<std::string>& here) {
    std::string text = std::to_string(role.threshold) + " of";
    for (std::size_t i = 0; i < role.ids.size(); ++i)
        text += (i == 0 ? " " : ", ") + role.labels[i] + (here.count(role.ids[i]) != 0 ? " [here]" : "");
    return text;
}

/// The change of the root that waits, so that its signers see what they sign; "" when none does.
std::string pendingText(const std::string& repository, const MetadataDirectory& directory) {
    const std::string path = pendingRootFile(repository);
    if (!boost::filesystem::exists(path)) return "";
    const auto next = trust::readSignedFile(base::readBounded(path, kRootBytesLimit), kRootBytesLimit),
               now = trust::readSignedFile(directory.root(directory.newestRoot()), kRootBytesLimit);
    if (!now || !next || !trust::readRoot(now->content) || !trust::readRoot(next->content))
        return path + " cannot be read; remove it, and begin the change again\n";
    return "A change of the root waits for signatures (zelor-content rotate --sign):\n" +
           rootChanges(now->content, next->content);
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
        const std::string problem =
            attention(role, now, options.within < 0 ? -1 : options.within * trust::kDay);
        if (problem.empty()) continue;
        good = false;
        lines += problem + '\n';
    }
    std::cout << lines << pendingText(options.repository, directory);
    if (!good) return exitStatus::kFailed;
    return exitStatus::kGood;
}

}  // namespace zelor::authoring

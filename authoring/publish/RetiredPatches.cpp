#include "authoring/publish/RetiredPatches.h"

#include <boost/filesystem.hpp>
#include <ctime>
#include <optional>
#include <set>

#include "agent/content/ContentDocument.h"
#include "authoring/publish/ContentDirectory.h"
#include "authoring/publish/ContentXml.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr std::int64_t kGraceSeconds = 24L * 60 * 60;

std::string stemOf(const std::string& patchId) {
    const auto name = remediation::splitAtLastDot(patchId);
    return name ? name->stem : patchId;
}

/// The stems, in lower case as some file systems see them, of all archives that content names.
std::optional<std::set<std::string>> namedStems(const std::string& repository) {
    std::set<std::string> stems;
    for (const std::string& identifier : ContentDirectory(repository).identifiers()) {
        Findings findings;
        try {
            const std::string file = repository + "/content/" + identifier + ".xml";
            const ContentEntry entry = readContentXml(base::readBounded(file, agent::kContentBytesLimit),
                                                      file, identifier, findings);
            if (entry.place.empty()) return std::nullopt;
            for (const ContentCre& cre : entry.cres) {
                for (const ContentEri& eri : cre.eris)
                    stems.insert(base::lowerCased(stemOf(eri.patchId)));
            }
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }
    return stems;
}

bool asPublished(const std::string& directory, const std::string& stem, const PublishedPatch& patch) {
    return fileStamp(directory + stem + ".zip") == patch.archiveStamp;
}

}  // namespace

std::size_t removeRetiredPatches(const std::string& repository, bool atOnce, PublishedPatches& patches,
                                 const std::function<void(const std::string&)>& removed) {
    const auto named = namedStems(repository);
    if (!named) return 0;
    const std::string directory = repository + "/patches/";
    const std::int64_t now = std::time(nullptr);
    std::size_t count = 0;
    for (auto it = patches.begin(); it != patches.end();) {
        const std::string stem = stemOf(it->first);
        PublishedPatch& patch = it->second;
        if (named->count(base::lowerCased(stem)) != 0) {
            patch.unnamedSince = 0;
            ++it;
            continue;
        }
        if (patch.unnamedSince == 0) patch.unnamedSince = now;
        if (!atOnce && now - patch.unnamedSince < kGraceSeconds) {
            ++it;
            continue;
        }
        if (asPublished(directory, stem, patch)) {
            fs::remove(directory + stem + ".zip");
            fs::remove(directory + stem + ".sig");
            removed("patches/" + stem + ".zip");
            ++count;
        }
        it = patches.erase(it);
    }
    return count;
}

}  // namespace zelor::authoring

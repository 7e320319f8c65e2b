#include "authoring/publish/PublishState.h"

#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "agent/content/ContentDocument.h"
#include "authoring/publish/ContentDirectory.h"
#include "authoring/publish/ContentXml.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "base/Strings.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kStateBytesLimit = 256U << 20U;
constexpr int kVersion = 1;

}  // namespace

bool PublishedPatch::operator==(const PublishedPatch& other) const {
    return source == other.source && key == other.key && archiveStamp == other.archiveStamp &&
           signatureStamp == other.signatureStamp;
}

std::string publishStateFile(const std::string& repository) {
    return repository + "/.zelor-content.json";
}

std::string fileStamp(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
    const base::FileStamp stamp = base::stampOf(status);
    return std::to_string(stamp.size) + '-' + std::to_string(stamp.modified.tv_sec) + '.' +
           std::to_string(stamp.modified.tv_nsec);
}

PublishState readPublishState(const std::string& path) {
    PublishState state;
    try {
        const nlohmann::json json = nlohmann::json::parse(base::readBounded(path, kStateBytesLimit));
        if (json.at("version") != kVersion) return {};
        for (const auto& [patchId, patch] : json.at("patches").items()) {
            state.patches[patchId] = {patch.at("source"),
                                      patch.at("key"),
                                      patch.at("archive"),
                                      patch.at("signature"),
                                      patch.value("archiveSha256", std::string()),
                                      patch.value("unnamedSince", std::int64_t{0})};
        }
        state.entries = json.value("entries", state.entries);
        state.eris = json.value("eris", state.eris);
    } catch (const std::exception&) {
        return {};
    }
    return state;
}

void writePublishState(const std::string& path, const PublishState& state) {
    nlohmann::json patches = nlohmann::json::object();
    for (const auto& [patchId, patch] : state.patches) {
        patches[patchId] = {{"source", patch.source},
                            {"key", patch.key},
                            {"archive", patch.archiveStamp},
                            {"signature", patch.signatureStamp}};
        if (!patch.archiveSha256.empty()) patches[patchId]["archiveSha256"] = patch.archiveSha256;
        if (patch.unnamedSince != 0) patches[patchId]["unnamedSince"] = patch.unnamedSince;
    }
    const nlohmann::json json = {
        {"version", kVersion}, {"patches", patches}, {"entries", state.entries}, {"eris", state.eris}};
    base::replaceFile(path, json.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n');
}

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
                for (const ContentEri& eri : cre.eris) {
                    stems.insert(base::lowerCased(stemOf(eri.patchId)));
                    if (eri.check) stems.insert(base::lowerCased(stemOf(eri.check->script)));
                }
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

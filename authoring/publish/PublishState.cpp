#include "authoring/publish/PublishState.h"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "base/Files.h"
#include "base/StagedFile.h"

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
            state.patches[patchId] = {patch.at("source"), patch.at("key"), patch.at("archive"),
                                      patch.at("signature"), patch.value("unnamedSince", std::int64_t{0})};
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
        if (patch.unnamedSince != 0) patches[patchId]["unnamedSince"] = patch.unnamedSince;
    }
    const nlohmann::json json = {
        {"version", kVersion}, {"patches", patches}, {"entries", state.entries}, {"eris", state.eris}};
    base::replaceFile(path, json.dump(1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n');
}

}  // namespace zelor::authoring

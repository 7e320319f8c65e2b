#include "authoring/PublishState.h"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "agent/Files.h"
#include "authoring/StagedFile.h"
#include "platform/SystemCalls.h"

namespace zelor {

namespace {

constexpr std::size_t stateBytesLimit = 256U << 20U;
constexpr int version = 1;

}  // namespace

bool PublishedPatch::operator==(const PublishedPatch& other) const {
    return source == other.source && key == other.key && archiveStamp == other.archiveStamp &&
           signatureStamp == other.signatureStamp;
}

std::string fileStamp(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
    const timespec time = modificationTime(status);
    return std::to_string(status.st_size) + '-' + std::to_string(time.tv_sec) + '.' +
           std::to_string(time.tv_nsec);
}

PublishState readPublishState(const std::string& path) {
    PublishState state;
    try {
        const nlohmann::json json = nlohmann::json::parse(readBounded(path, stateBytesLimit));
        if (json.at("version") != version) return {};
        for (const auto& [patchId, patch] : json.at("patches").items()) {
            state[patchId] = {patch.at("source"), patch.at("key"), patch.at("archive"),
                              patch.at("signature")};
        }
    } catch (const std::exception&) {
        return {};
    }
    return state;
}

void writePublishState(const std::string& path, const PublishState& state) {
    nlohmann::json patches = nlohmann::json::object();
    for (const auto& [patchId, patch] : state) {
        patches[patchId] = {{"source", patch.source},
                            {"key", patch.key},
                            {"archive", patch.archiveStamp},
                            {"signature", patch.signatureStamp}};
    }
    replaceFile(path, nlohmann::json{{"version", version}, {"patches", patches}}.dump(1) + '\n');
}

}  // namespace zelor

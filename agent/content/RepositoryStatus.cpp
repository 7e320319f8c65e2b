#include "agent/RepositoryStatus.h"

#include <ctime>

#include "agent/AgentSettings.h"
#include "agent/content/ContentLibrary.h"
#include "agent/content/IndexFiles.h"
#include "collaborators/Common.h"

namespace zelor::agent {

namespace {

class NoNetwork : public trust::Fetcher {
  public:
    base::Result<trust::Fetched> fetch(const std::string& /*path*/, std::size_t /*maximum*/) override {
        return base::failure("nothing is fetched");
    }
};

}  // namespace

std::vector<std::string> indexWarnings(const std::string& installPath) {
    return contentLibraryAt(Common::StripTrailingSeparators(installPath)).index().warnings();
}

KeptIndex keptIndex(const std::string& installPath) {
    const auto settings = AgentSettings::current();
    KeptIndex kept;
    kept.configured = !settings->values().root.empty();
    if (!kept.configured) return kept;
    const bool silent = settings->values().freshness == Freshness::off;
    NoNetwork none;
    IndexStore store(Common::StripTrailingSeparators(installPath) + "/metadata");
    trust::ClientOptions options;
    options.now = std::time(nullptr);
    trust::Client client(none, store, options);
    if (!client.load()) return kept;
    const std::string refusal = store.refusal();
    if (!silent && !refusal.empty()) kept.warnings.push_back(refusal);
    for (const trust::RoleState& role : client.roles()) {
        kept.roles.push_back({role.role, role.version, trust::timeText(role.expires)});
        if (role.signedAt != 0) kept.signedAt = trust::timeText(role.signedAt);
        const auto fresh = trust::requireFresh(role.role, {role.version, role.expires}, client.now());
        if (!silent && !fresh && fresh.error().text != refusal) kept.warnings.push_back(fresh.error().text);
    }
    return kept;
}

}  // namespace zelor::agent

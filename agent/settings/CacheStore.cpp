#include "collaborators/CacheStore.h"

#include <sys/stat.h>

#include <sstream>

#include "agent/AgentSettings.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "platform/Log.h"

namespace {

constexpr std::size_t kStateBytesLimit = 1U << 20U;

bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

}  // namespace

std::set<std::string> CacheStore::GetSplCaseCPEs() {
    std::set<std::string> cpes;
    const std::string path =
        zelor::agent::AgentSettings::current()->values().installPath + "/special-case-cpes.txt";
    if (!exists(path)) return cpes;
    try {
        std::istringstream text(zelor::base::readBounded(path, kStateBytesLimit));
        for (std::string line; std::getline(text, line);) {
            line = zelor::base::trimmed(line);
            if (!line.empty() && line.front() != '#') cpes.insert(line);
        }
    } catch (const std::exception& e) {
        zelor::log::error("[CacheStore] ", e.what(),
                          "; no CPE counts as a special case until it can be read");
    }
    return cpes;
}

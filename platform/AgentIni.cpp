#include "platform/AgentIni.h"

#include <boost/property_tree/ini_parser.hpp>
#include <map>

#include "base/Files.h"
#include "base/Mutex.h"
#include "platform/Log.h"

namespace zelor::platform {

namespace {

using boost::property_tree::ptree;

std::shared_ptr<const ptree> parse(const std::string& path) {
    ptree tree;
    try {
        boost::property_tree::ini_parser::read_ini(path, tree);
    } catch (const std::exception& problem) {
        log::error("[MacPatchManager] The ini file '", path,
                   "' cannot be read, so it counts as one without keys: ", problem.what());
        tree.clear();
    }
    return std::make_shared<const ptree>(std::move(tree));
}

struct Cache {
    struct Entry {
        base::FileStamp stamp;
        std::shared_ptr<const ptree> tree;
    };
    base::Mutex mutex;
    std::map<std::string, Entry> byPath ZELOR_GUARDED_BY(mutex);
};

constexpr std::size_t kFilesKept = 8;

}  // namespace

std::shared_ptr<const ptree> readIniFile(const std::string& path) {
    // Never destroyed: a run's thread may outlive main().
    static Cache& cache = *new Cache;
    const base::FileStamp stamp = base::stampOf(path);
    if (!stamp.exists) return nullptr;
    {
        const base::MutexLock lock(cache.mutex);
        const auto found = cache.byPath.find(path);
        if (found != cache.byPath.end() && found->second.stamp == stamp) return found->second.tree;
    }
    auto tree = parse(path);
    const base::MutexLock lock(cache.mutex);
    if (cache.byPath.size() >= kFilesKept) cache.byPath.clear();
    // A second change within the clock's resolution would leave the same stamp.
    cache.byPath[path] = {base::changedRecently(stamp) ? base::FileStamp() : stamp, tree};
    return tree;
}

}  // namespace zelor::platform

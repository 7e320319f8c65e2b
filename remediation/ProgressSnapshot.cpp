#include "remediation/ProgressSnapshot.h"

#include <iterator>

namespace zelor {

namespace {

// Beyond it one copy is cheaper than to follow.
constexpr std::size_t kWritesPerEntry = 4;

}  // namespace

void ProgressSnapshot::wrote(const Map& map, const Map::value_type& entry) {
    if (stale_) return;
    if (writes_.size() < kWritesPerEntry * map.size()) {
        writes_.push_back({&entry.first, entry.second});
        return;
    }
    stale_ = true;
    writes_.clear();
}

ProgressSnapshot::Map ProgressSnapshot::get(const Map& map, boost::mutex& mapMutex) {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    {
        const boost::unique_lock<boost::mutex> mapLock(mapMutex);
        if (stale_) copy_ = map;
        stale_ = false;
        following_.swap(writes_);
    }
    follow();
    return copy_;
}

void ProgressSnapshot::follow() {
    auto next = copy_.begin();  // requests mostly move on in the order of their keys
    for (const Write& write : following_)
        next = std::next(copy_.insert_or_assign(next, *write.key, write.value));
    following_.clear();
}

void ProgressSnapshot::replace(Map& map, boost::mutex& mapMutex, Map& by) {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    const boost::unique_lock<boost::mutex> mapLock(mapMutex);
    map.swap(by);
    stale_ = true;
    writes_.clear();
}

}  // namespace zelor

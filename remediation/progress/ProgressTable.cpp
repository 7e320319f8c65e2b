#include "remediation/progress/ProgressTable.h"

#include <iterator>
#include <utility>

namespace zelor::remediation {

namespace {

// Above this, copying the map is cheaper than repeating the writes.
constexpr std::size_t kWritesPerEntry = 8;

}  // namespace

void ProgressTable::store(const std::string& key, unsigned long value) {
    const boost::unique_lock<boost::mutex> lock(mapMutex_);
    bool made = false;
    const auto entry = nearby_.findOrMake(map_, key, value, made);
    if (!made && entry->second == value) return;
    entry->second = value;
    if (!stale_) note(*entry);
}

void ProgressTable::note(const Map::value_type& entry) {
    if (writes_.size() < kWritesPerEntry * map_.size()) {
        writes_.push_back({&entry.first, entry.second});
        return;
    }
    stale_ = true;
    writes_.clear();
}

std::optional<unsigned long> ProgressTable::find(const std::string& key) {
    const boost::unique_lock<boost::mutex> lock(mapMutex_);
    const auto entry = nearby_.find(map_, key);
    if (entry == map_.end()) return std::nullopt;
    return entry->second;
}

ProgressTable::Map ProgressTable::copy() {
    const boost::unique_lock<boost::mutex> lock(pollMutex_);
    {
        const boost::unique_lock<boost::mutex> mapLock(mapMutex_);
        if (stale_) copy_ = map_;
        stale_ = false;
        following_.swap(writes_);
    }
    follow();
    return copy_;
}

// The pointers to keys are valid: only `replace` removes entries, and it waits for this.
void ProgressTable::follow() {
    NearbyKey<Map> nearby;
    for (const Write& write : following_) {
        bool made = false;
        nearby.findOrMake(copy_, *write.key, write.value, made)->second = write.value;
    }
    following_.clear();
}

void ProgressTable::replace(Map by) {
    const boost::unique_lock<boost::mutex> lock(pollMutex_);
    const boost::unique_lock<boost::mutex> mapLock(mapMutex_);
    map_ = std::move(by);
    nearby_.forget();
    stale_ = true;
    writes_.clear();
}

}  // namespace zelor::remediation

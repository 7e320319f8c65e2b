#pragma once

#include <boost/thread/mutex.hpp>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "remediation/progress/NearbyKey.h"

namespace zelor::remediation {

/// Guards a progress map. Polls copy a second map that is kept up to date with the writes, so that a write
/// waits for a copy only at the first poll, or after very many writes. Any thread.
class ProgressTable {
  public:
    /// Progress values by progress key.
    using Map = std::map<std::string, unsigned long>;

    /// `map` belongs to the table from now on, and outlives it.
    explicit ProgressTable(Map& map) : map_(map) {}
    ProgressTable(const ProgressTable&) = delete;
    ProgressTable& operator=(const ProgressTable&) = delete;

    /// Sets the value of `key`, adding an entry when there is none.
    void store(const std::string& key, unsigned long value);
    /// The value of `key`; nothing when it has no entry.
    std::optional<unsigned long> find(const std::string& key);
    /// A copy of all entries.
    Map copy();
    /// Replaces all entries.
    void replace(Map by);

  private:
    struct Write {
        const std::string* key;
        unsigned long value;
    };

    void note(const Map::value_type& entry);
    void follow();

    boost::mutex pollMutex_;  ///< guards the next two; locked before `mapMutex_`
    Map copy_;
    std::vector<Write> following_;

    boost::mutex mapMutex_;  ///< guards everything below
    Map& map_;
    NearbyKey<Map> nearby_;
    std::vector<Write> writes_;  ///< since the last poll
    bool stale_ = true;          ///< the copy cannot be brought up to date by `writes_`
};

}  // namespace zelor::remediation

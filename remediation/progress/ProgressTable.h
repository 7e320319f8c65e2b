#pragma once

#include <boost/thread/mutex.hpp>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "remediation/progress/NearbyKey.h"

namespace zelor::remediation {

/// Guards a progress map. Polls get copies of a copy that follows the writes, so that a write waits for the
/// first poll's copy at most, or for one after very many writes. Any thread.
class ProgressTable {
  public:
    using Map = std::map<std::string, unsigned long>;

    /// `map` belongs to the table from now on, and outlives it.
    explicit ProgressTable(Map& map) : map_(map) {}
    ProgressTable(const ProgressTable&) = delete;
    ProgressTable& operator=(const ProgressTable&) = delete;

    void store(const std::string& key, unsigned long value);
    std::optional<unsigned long> find(const std::string& key);
    Map copy();
    void replace(Map by);

  private:
    struct Write {
        const std::string* key;
        unsigned long value;
    };

    void note(const Map::value_type& entry);
    void follow();

    boost::mutex pollMutex_;  ///< guards the next two; taken before the other
    Map copy_;
    std::vector<Write> following_;

    boost::mutex mapMutex_;  ///< guards all below
    Map& map_;
    NearbyKey<Map> nearby_;
    std::vector<Write> writes_;  ///< since the last poll
    bool stale_ = true;          ///< the copy cannot be brought up to date by `writes_`
};

}  // namespace zelor::remediation

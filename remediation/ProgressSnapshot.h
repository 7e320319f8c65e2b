#pragma once

#include <boost/thread/mutex.hpp>
#include <map>
#include <string>
#include <vector>

namespace zelor {

/// What polls of a progress map return: a copy of their own that follows the writes, so that the run waits
/// for a poll's first copy at most. Entries are never removed from the map but by `replace`. Any thread.
class ProgressSnapshot {
  public:
    using Map = std::map<std::string, unsigned long>;

    /// Tells of a write. The caller holds the map's mutex.
    void wrote(const Map& map, const Map::value_type& entry);
    /// A copy of `map`, which `mapMutex` guards.
    Map get(const Map& map, boost::mutex& mapMutex);
    /// Exchanges all of `map`.
    void replace(Map& map, boost::mutex& mapMutex, Map& by);

  private:
    struct Write {
        const std::string* key;
        unsigned long value;
    };

    void follow();

    boost::mutex mutex_;  ///< taken before the map's
    Map copy_;
    std::vector<Write> following_;
    // Both guarded by the map's mutex.
    std::vector<Write> writes_;
    bool stale_ = true;  ///< the copy cannot be brought up to date by `writes_`
};

}  // namespace zelor

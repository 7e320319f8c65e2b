#pragma once

#include <iterator>
#include <string>

namespace zelor::remediation {

/// Looks keys up in a map, starting where the last one was found: a run mostly asks in the order of the keys,
/// and then a lookup takes constant time. Call `forget` before entries are removed or the map is replaced.
template <class Map>
class NearbyKey {
  public:
    /// The entry of `key`, or the map's end.
    auto find(Map& map, const std::string& key) { return seek(map, key) ? last_ : map.end(); }

    /// The entry of `key`, added with `value` when there is none; `made` says whether it was.
    auto findOrMake(Map& map, const std::string& key, const typename Map::mapped_type& value, bool& made) {
        made = !seek(map, key);
        if (made) {
            last_ = map.emplace_hint(known_ ? std::next(last_) : map.begin(), key, value);
            known_ = true;
        }
        return last_;
    }

    /// Forgets where the last key was found.
    void forget() { known_ = false; }

  private:
    // Moves to the entry of `key`, else to the one before its place.
    bool seek(Map& map, const std::string& key) {
        if (known_) {
            const int order = key.compare(last_->first);
            if (order == 0) return true;
            if (order > 0) {
                const auto next = std::next(last_);
                if (next == map.end()) return false;
                const int nextOrder = key.compare(next->first);
                if (nextOrder < 0) return false;
                if (nextOrder == 0) {
                    last_ = next;
                    return true;
                }
            }
        }
        auto place = map.upper_bound(key);
        known_ = place != map.begin();
        if (!known_) return false;
        last_ = --place;
        return last_->first == key;
    }

    typename Map::iterator last_{};
    bool known_ = false;
};

}  // namespace zelor::remediation
